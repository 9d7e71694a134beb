#!/bin/sh
# Makes a calibration with the tool, has it checked, and closes a short loop on it.
#     smoke.sh FOLDER_OF_THE_TOOL
set -eu
tool=$(realpath "$1")/quen-shs
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

"$tool" calibrate sensor
"$tool" check sensor
"$tool" loop sensor --frames 20
