#!/bin/sh
# Compares what the shared library exports with the checked-in list.
#     check_exported_symbols.sh LIBRARY LIST
set -eu
found=$(mktemp)
trap 'rm -f "$found"' EXIT
nm --dynamic --defined-only --demangle "$1" | cut -d' ' -f3- | LC_ALL=C sort -u >"$found"
if ! diff -u "$2" "$found"; then
  echo "The exported symbols (+) differ from those listed in $2 (-). Add new ones to the list."
  echo "A missing or changed one needs a new SOVERSION; see CONTRIBUTING.md."
  exit 1
fi
echo "$(wc -l <"$2") exported symbols, as listed"
