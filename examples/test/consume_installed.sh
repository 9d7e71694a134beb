#!/bin/sh
# Installs the build, then builds and runs hosts against the installed tree alone.
#     consume_installed.sh BUILD_FOLDER SOURCE_FOLDER COMPILER PYTHON
set -eu
build=$1
source=$2
compiler=$3
python=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# expect FILE TEXT: the file holds exactly this text.
expect() {
  printf '%s\n' "$2" >"$work/expected"
  diff -u "$work/expected" "$1" || fail "other output than expected"
}

# readme_block LANGUAGE: the README's first code block in this language.
readme_block() {
  awk -v start="^\`\`\`$1\$" '$0 ~ start {inside = 1; next} /^```$/ && inside {exit} inside' "$source/README.md"
}

cmake --install "$build" --prefix "$prefix" >/dev/null
pkg_config_path=$(dirname "$(find "$prefix" -name quen_shssim.pc)")
library_path=$(dirname "$pkg_config_path")

# What a host finds installed is every header at the top of a module, but for those that say they are internal.
(cd "$prefix/include/quen_shssim" && find . -type f | LC_ALL=C sort) >"$work/installed"
"$source/testing/public_headers.sh" "$source" >"$work/offered"
diff -u "$work/offered" "$work/installed" || fail "installed headers differ from the public ones"

"$prefix/bin/quen-shs" calibrate "$work/sensor" >/dev/null
cd "$work"
export CFGPATH="$work/sensor"
expected='first used sub-aperture: x +0.500 y -0.253 pixels, flux 102864'
expected_of_engine='weighted centre of gravity: RMS error at noise 10: 0.0015 pixels; least possible: 0.0011'

# Hosts need every library that they are linked with, used or not: so it shows which ones a package brings along.
all_needed=-Wl,--no-as-needed

# As a CMake project.
cmake -S "$source/examples" -B by_cmake -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_EXE_LINKER_FLAGS="$all_needed" >/dev/null
cmake --build by_cmake >/dev/null
by_cmake/smallest_host >out
expect out "$expected"
fitsverify -q slopes.fits | grep -q '^verification OK' || fail "slopes.fits"

# host SOURCE PROGRAM PACKAGE: built with pkg-config.
host() {
  # shellcheck disable=SC2046  # a list of words
  "$compiler" -std=c++20 -O2 -Wall -Wextra -Werror "$all_needed" -o "$2" "$1" \
    $(PKG_CONFIG_PATH="$pkg_config_path" pkg-config --cflags --libs "$3") -Wl,-rpath,"$library_path"
}
host "$source/examples/smallest_host.cpp" by_pkg_config quen_shssim
./by_pkg_config >out
expect out "$expected"

# The ready-made engines.
host "$source/examples/ready_made_engine.cpp" engine_by_pkg_config quen_centroiders
for program in by_cmake/ready_made_engine ./engine_by_pkg_config; do
  "$program" >out
  expect out "$expected_of_engine"
done
if ldd by_cmake/smallest_host | grep -qE 'quen_(centroiders|engines)'; then
  fail "a simulator without engines needs them"
fi

# The engines alone: a host with frames of its own needs no simulator, by itself or through what it needs.
host "$source/examples/own_frames.cpp" own_frames_by_pkg_config quen_engines
for program in by_cmake/own_frames ./own_frames_by_pkg_config; do
  "$program" >out
  expect out 'x +1.250 y -0.500 pixels, flux 400'
  readelf -d "$program" | grep -q 'NEEDED.*libquen_engines' || fail "$program does without the engines"
  ldd "$program" >loaded
  grep -q libquen_engines loaded || fail "ldd does not see the engines"
  if grep -E 'libquen_shssim_lib|libcfitsio' loaded; then fail "$program needs the simulator"; fi
done

# A host that publishes its frames.
host "$source/examples/publishing_host.cpp" publishing_by_pkg_config "quen_shssim quen_stream"
for program in by_cmake/publishing_host ./publishing_by_pkg_config; do
  MILK_SHM_DIR=$work "$program" >out
  expect out "frame 3 of stream sensor: 840 x 816 pixels, as the simulator has them"
done
[ ! -e sensor.im.shm ] || fail "a stream outlives its host"

# The README's example, with the output that it shows.
readme_block cpp >readme.cpp
host readme.cpp readme quen_shssim
./readme >out
expect out "$(readme_block text)"
for line in "$expected" "$expected_of_engine"; do
  grep -qxF "$line" "$source/README.md" || fail "the README does not show: $line"
done
fitsverify -q frame.fits | grep -q '^verification OK' || fail "frame.fits"

# Every public header on its own.
for header in $(cd "$prefix/include/quen_shssim" && find . -name '*.hpp'); do
  echo "#include \"$header\"" >alone.cpp
  # shellcheck disable=SC2046  # a list of words
  "$compiler" -std=c++20 -Wall -Wextra -Werror -fsyntax-only alone.cpp \
    $(PKG_CONFIG_PATH="$pkg_config_path" pkg-config --cflags quen_shssim) || fail "$header alone"
done

# The tool as the README shows it, its manual pages and its completion.
awk '/^## The host tool$/ {wanted = 1} wanted && /^```sh$/ {inside = 1; next} /^```$/ && inside {exit} inside' \
  "$source/README.md" >tool.sh
grep -q '^quen-shs loop ' tool.sh || fail "the README's commands"
mkdir tool
(cd tool && PATH="$prefix/bin:$PATH" sh -eu ../tool.sh >/dev/null) || fail "the README's commands"
for page in quen-shs quen-shs-loop; do
  man -P cat -l "$prefix/share/man/man1/$page.1" | grep -q "^NAME" || fail "the manual page $page"
done
bash -c '. "$1" && complete -p quen-shs' sh "$prefix/share/bash-completion/completions/quen-shs" >/dev/null ||
  fail "the completion"

# The Python package, on the installed libraries, where it has been built.
package=$(find "$prefix" -path '*/quen_shs/__init__.py')
if [ -n "$package" ]; then
  export PYTHONPATH="${package%/quen_shs/__init__.py}" PYTHONDONTWRITEBYTECODE=1
  (mkdir python && cd python && MPLBACKEND=Agg "$python" "$source/examples/python/closed_loop.py") >out
  grep -q '^residual: 0[.]4' out || fail "$(cat out)"
  ldd "${package%/__init__.py}"/_core*.so >loaded
  grep -q libquen_shssim_lib loaded || fail "ldd does not see the Python package's library"
  if grep libquen loaded | grep -vF "=> $prefix/"; then fail "the Python package needs libraries of the build"; fi

  # Below /usr Debian's Python looks in another folder, whatever the build was configured for.
  DESTDIR="$work/staged" cmake --install "$build" --prefix /usr >/dev/null
  [ -f "$work/staged/usr/lib/python3/dist-packages/quen_shs/__init__.py" ] || fail "the package's folder below /usr"
fi

# A host without a calibration fails as the README says, and with INTROOT is told where it was looked for.
mkdir elsewhere && cd elsewhere
if env -u CFGPATH -u INTROOT ../readme 2>err; then fail "ran without a calibration"; fi
grep -qF 'basic_string: construction from null is not valid' err || fail "$(cat err)"
if CFGPATH=/nowhere INTROOT='' ../by_pkg_config 2>err; then fail "ran without a calibration"; fi
head -n 1 err | grep -qx 'Simulator can not initialize: FileSystem: Path or file data/M2S.fits not found, searched in:' ||
  fail "$(cat err)"
