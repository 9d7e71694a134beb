#!/bin/sh
# Configures with all packages and with the library's own alone, and looks what becomes of the host tool. Builds
# nothing.
#     check_configuring.sh SOURCE_FOLDER COMPILER
set -eu
source=$1
compiler=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "FAILED: $*" >&2
  cat "$work/out" >&2
  exit 1
}

# configure OPTION...: into $work/build; what CMake says is $work/out.
configure() {
  rm -rf "$work/build"
  cmake -S "$source" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" "$@" >"$work/out" 2>&1
}

# says TEXT: the output has it, wherever its lines are broken.
says() {
  tr -s ' \n' '  ' <"$work/out" | grep -qF -- "$1" || fail "not said: $1"
}

has_tool() {
  ninja -C "$work/build" -t targets all | grep -q '^quen-shs: '
}

configure || fail "with all packages"
has_tool || fail "no tool, though nothing is missing"
if grep -q 'quen-shs' "$work/out"; then fail "words about a tool that lacks nothing"; fi

configure -DQUEN_BUILD_TOOLS=OFF || fail "OFF"
if has_tool; then fail "OFF with a tool"; fi
if grep -q 'quen-shs' "$work/out"; then fail "words about a tool that nobody wants"; fi

# From here on the library's own packages alone.
mkdir "$work/packages"
for name in cfitsio log4cplus; do
  ln -s "$(pkg-config --variable=pcfiledir $name)/$name.pc" "$work/packages"
done
export PKG_CONFIG_PATH='' PKG_CONFIG_LIBDIR="$work/packages"
without_others="-DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_Eigen3=ON
                -DCMAKE_DISABLE_FIND_PACKAGE_fmt=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON"
missing='the host tool quen-shs needs CLI11, Eigen3, fmt, nlohmann_json, cairo; on Debian: apt install'
missing="$missing libcli11-dev libeigen3-dev libfmt-dev nlohmann-json3-dev libcairo2-dev"

# shellcheck disable=SC2086  # a list of words
configure $without_others || fail "the library does not configure alone"
says "-- Without quen-shs: $missing"
[ "$(grep -c 'quen-shs' "$work/out")" -eq 1 ] || fail "more than one message"
if has_tool; then fail "a tool without its packages"; fi

# shellcheck disable=SC2086  # a list of words
if configure $without_others -DQUEN_BUILD_TOOLS=ON; then fail "ON without the tool's packages"; fi
says "QUEN_BUILD_TOOLS is ON, but $missing"
