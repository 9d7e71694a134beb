"""Compares packaging/debian with what it is told from elsewhere: the symbols files with the lists in abi/, the packages'
names with the SOVERSION, and the changelog with the project's version. Names what differs.
    check_debian.py REPOSITORY
"""

import re
import sys
from pathlib import Path

# The libraries' packages, without their number: the file that each has, and the list of what that exports.
LIBRARIES = {
    "libquen-shssim": ("libquen_shssim_lib", "exported_symbols.txt"),
    "libquen-engines": ("libquen_engines", "exported_symbols_engines.txt"),
    "libquen-centroiders": ("libquen_centroiders", "exported_symbols_centroiders.txt"),
    "libquen-detector": ("libquen_detector", "exported_symbols_detector.txt"),
    "libquen-stream": ("libquen_stream", "exported_symbols_stream.txt"),
}


def found_in(pattern, text):
    return re.search(pattern, text, re.MULTILINE).group(1)


def differences(repository):
    debian = repository / "packaging" / "debian"
    project = (repository / "CMakeLists.txt").read_text()
    version = found_in(r"^  VERSION (\S+)", project)
    packaged = found_in(r"^quen-shssim \((.*?)\)", (debian / "changelog").read_text())
    if packaged != version:
        yield f"changelog: the version is {packaged}; in CMakeLists.txt it is {version}"

    soversion = found_in(r"^set\(QUEN_SOVERSION (\d+)\)", project)
    packages = set(re.findall(r"^Package: (.*)", (debian / "control").read_text(), re.MULTILINE))
    for name, (library, exported) in LIBRARIES.items():
        package = name + soversion
        if package not in packages:
            yield f"control: there is no package {package}"
            continue
        head, *lines = (debian / f"{package}.symbols").read_text().splitlines()
        if not head.startswith(f"{library}.so.{soversion} {package} "):
            yield f"{package}.symbols: begins with {head}"
        symbols = {found_in(r'"(.*)@Base"', line) for line in lines if not line.startswith("*")}
        listed = set((repository / "abi" / exported).read_text().splitlines())
        for symbol in sorted(listed - symbols):
            yield f'{package}.symbols lacks, from abi/{exported}:  (c++)"{symbol}@Base" {version}'
        for symbol in sorted(symbols - listed):
            yield f"{package}.symbols has what abi/{exported} has not: {symbol}"


found = list(differences(Path(sys.argv[1])))
print("\n".join(found) or "packaging/debian agrees with the lists of symbols, the SOVERSION and the version")
sys.exit(bool(found))
