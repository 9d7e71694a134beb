#!/bin/sh
# Configures with all packages and with the library's own alone, and looks what becomes of the host tool and of the
# Python package. Builds nothing.
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

has_python() {
  ninja -C "$work/build" -t targets all | grep -q '^quen_python: '
}

configure || fail "with all packages"
has_tool || fail "no tool, though nothing is missing"
if grep -q 'quen-shs' "$work/out"; then fail "words about a tool that lacks nothing"; fi
has_python || fail "no Python package, though nothing is missing"
if grep -q 'the Python package' "$work/out"; then fail "words about a Python package that lacks nothing"; fi

for option in QUEN_BUILD_PYTHON QUEN_BUILD_TOOLS; do
  if configure "-D$option=maybe"; then fail "$option=maybe"; fi
  says "$option is maybe; expected ON, OFF or AUTO"
done

configure -DQUEN_BUILD_PYTHON=OFF || fail "Python OFF"
if has_python; then fail "OFF with the Python package"; fi
if grep -q 'the Python package' "$work/out"; then fail "words about a Python package that nobody wants"; fi

for lacking in -DCMAKE_DISABLE_FIND_PACKAGE_pybind11=ON -DQUEN_PYTHON_INTERPRETER=/nowhere/python3; do
  missing="Python's headers, numpy and pybind11; on Debian: apt install python3-dev pybind11-dev python3-numpy"
  configure "$lacking" || fail "without what the Python package needs: $lacking"
  says "-- Without the Python package: it needs $missing"
  if has_python; then fail "a Python package without what it needs"; fi
  has_tool || fail "no tool without the Python package"
  if configure "$lacking" -DQUEN_BUILD_PYTHON=ON; then fail "ON without what the Python package needs"; fi
  says "QUEN_BUILD_PYTHON is ON, but the package needs $missing"
done

configure -DQUEN_BUILD_TOOLS=OFF || fail "OFF"
if has_tool; then fail "OFF with a tool"; fi
if has_python; then fail "a Python package without the workbench"; fi
says '-- Without the Python package: it needs the workbench, which is built with the host tool'
if grep -q 'quen-shs' "$work/out"; then fail "words about a tool that nobody wants"; fi

# From here on the library's own packages alone.
mkdir "$work/packages"
for name in cfitsio log4cplus; do
  ln -s "$(pkg-config --variable=pcfiledir $name)/$name.pc" "$work/packages"
done
export PKG_CONFIG_PATH='' PKG_CONFIG_LIBDIR="$work/packages"
without_others="-DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_Eigen3=ON
                -DCMAKE_DISABLE_FIND_PACKAGE_fmt=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON
                -DCMAKE_DISABLE_FIND_PACKAGE_tomlplusplus=ON -DCMAKE_DISABLE_FIND_PACKAGE_ZLIB=ON"
missing='the host tool quen-shs needs CLI11, Eigen3, fmt, nlohmann_json, tomlplusplus, ZLIB, cairo; on Debian: apt'
missing="$missing install libcli11-dev libeigen3-dev libfmt-dev nlohmann-json3-dev libtomlplusplus-dev zlib1g-dev"
missing="$missing libcairo2-dev"

# shellcheck disable=SC2086  # a list of words
configure $without_others || fail "the library does not configure alone"
says "-- Without quen-shs: $missing"
[ "$(grep -c 'quen-shs' "$work/out")" -eq 1 ] || fail "more than one message"
if has_tool; then fail "a tool without its packages"; fi

# shellcheck disable=SC2086  # a list of words
if configure $without_others -DQUEN_BUILD_TOOLS=ON; then fail "ON without the tool's packages"; fi
says "QUEN_BUILD_TOOLS is ON, but $missing"
