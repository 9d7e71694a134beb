#!/bin/sh
# Lists the headers that hosts get: every one at the top of a library's module, but for those that say they are internal.
#     public_headers.sh SOURCE_FOLDER
set -eu
cd "$1"
find ./basesim ./centroiders ./common ./defs ./detector ./pim ./quen_image_processing ./shssim ./stream -name '*.hpp' \
  -not -path '*/src/*' -not -path '*/test/*' -exec grep --files-without-match 'Internal to the' {} + | LC_ALL=C sort
