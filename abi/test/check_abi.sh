#!/bin/sh
# Compares the binary interface of the shared library, types included, with its checked-in description.
#     check_abi.sh LIBRARY DESCRIPTION
# The library must be built by g++ with debugging information.
set -eu
if abidiff "$2" "$1"; then
  echo "The binary interface is the one described."
  exit
fi
echo "The binary interface differs from $2. Hosts that are not recompiled may break: see CONTRIBUTING.md for what needs a"
echo "new SOVERSION. Then describe the new one:"
echo "    abidw --no-show-locs --no-comp-dir-path --no-corpus-path --drop-undefined-syms --exported-interfaces-only \\"
echo "      $1 | sed \"s#\$PWD/##\" >$2"
exit 1
