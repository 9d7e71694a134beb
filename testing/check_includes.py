#!/usr/bin/env python3
"""That includes point one way: a module includes what stands before it, and nothing of another module's src/.

    check_includes.py ROOT
"""

import pathlib
import re
import sys

# From the bottom to the top. Modules in one line do not know each other; a folder that is not listed is its parent's.
ORDER = [
    ["defs"],
    ["pim", "common/checks", "common/logging", "common/statistics"],
    ["common/simd"],
    ["common/filesystem", "common/random"],
    ["common/fits"],
    ["quen_image_processing"],
    ["basesim"],
    ["shssim"],
    ["detector", "stream"],
    ["centroiders"],
    ["workbench/fits"],
    ["workbench/detector"],
    ["workbench/engines"],
    ["workbench/sensor"],
    ["workbench/loop", "workbench/check"],
    ["workbench/telemetry"],
    ["workbench/live"],
    ["workbench/serve"],
    ["workbench/pictures", "workbench/campaign"],
    ["tools/quen-shs/cli", "python"],
    ["tools/quen-shs/verbs"],
    ["tools/quen-shs"],
]
# What is built upon all of them.
HOSTS = ["abi", "benchmarks", "docs", "examples", "fuzz", "testing"]
RANK = {module: rank for rank, modules in enumerate(ORDER) for module in modules}
INCLUDE = re.compile(r'^#include "([^"]+)"', re.MULTILINE)


def module_of(path):
    """The module that a file is in: the longest listed folder above it."""
    folders = [module for module in RANK if path.startswith(module + "/")]
    return max(folders, key=len, default=None)


def faults(root):
    for source in sorted(path for suffix in ("hpp", "cpp") for path in root.rglob("*." + suffix)):
        name = source.relative_to(root).as_posix()
        here = module_of(name)
        if "/test/" in name or name.split("/")[0] in [*HOSTS, "build"]:
            continue
        if here is None:
            yield f"{name}: is in no module; give its folder a place in the order"
            continue
        for included in INCLUDE.findall(source.read_text()):
            there = module_of(included)
            if there == here:
                continue
            if there is None:
                yield f"{name}: includes {included}, which is in no module"
            elif RANK[there] >= RANK[here]:
                yield f"{name}: includes {included}, but {there} is not below {here}"
            elif "/src/" in included:
                yield f"{name}: includes {included}, which is private to {there}"


def main():
    found = list(faults(pathlib.Path(sys.argv[1])))
    print("\n".join(found) if found else "all includes point down")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
