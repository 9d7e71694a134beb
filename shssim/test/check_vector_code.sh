#!/bin/sh
# Looks at the machine code of the kernels: each level's must work in its own registers, or its speed is lost unseen.
#     check_vector_code.sh LIBRARY
set -eu
code=$(objdump --disassemble --no-show-raw-insn --demangle "$1")

# count FUNCTION REGISTER: packed arithmetic on doubles in these registers.
count() {
  printf '%s\n' "$code" | awk -v name="$1" -v register="%$2" '
    /^[0-9a-f]+ </ {inside = index($0, name) > 0}
    inside && /v(mul|add|sub)pd/ && index($0, register) {++found}
    END {print found + 0}'
}

wide=$(count DrawSpotAvx512 zmm)
narrow=$(count DrawSpotAvx2 ymm)
leaked=$(count DrawSpotAvx2 zmm)
echo "packed operations: $wide on zmm at AVX-512; $narrow on ymm and $leaked on zmm at AVX2"
[ "$wide" -ge 20 ] && [ "$narrow" -ge 20 ] && [ "$leaked" -eq 0 ]
