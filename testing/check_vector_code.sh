#!/bin/sh
# Looks at the machine code of kernels: each must work in its own level's registers, or its speed is lost unseen.
#     check_vector_code.sh LIBRARY FUNCTION:REGISTER …       for instance DrawSpotAvx2:ymm
set -eu
code=$(objdump --disassemble --no-show-raw-insn --demangle "$1")
shift

# count FUNCTION REGISTER: packed arithmetic on doubles or integers in these registers.
count() {
  printf '%s\n' "$code" | awk -v name="$1" -v register="%$2" '
    /^[0-9a-f]+ </ {inside = index($0, name) > 0}
    inside && /v(mul|add|sub|fmadd[0-9]+)pd|vp(add|sub|cmpgt|and|maxs|mins)/ && index($0, register) {++found}
    END {print found + 0}'
}

for pair in "$@"; do
  function=${pair%:*}
  register=${pair#*:}
  found=$(count "$function" "$register")
  echo "$function: $found packed operations on $register"
  [ "$found" -ge 4 ]
  if [ "$register" = ymm ]; then
    [ "$(count "$function" zmm)" -eq 0 ] || { echo "$function: zmm as well"; exit 1; }
  fi
done
