"""Doxygen's filter of the public headers: puts what they declare into the group of their folder (groups.dox), so that
the headers say nothing of it. Lines keep their numbers.

    group_headers.py HEADER
"""

import re
import sys

ROOMS = ("shssim", "basesim", "quen_image_processing", "centroiders", "detector", "stream", "common", "pim", "defs")


def room_of(path):
    """The last folder of the path that is a room: the repository may lie in a folder of any name."""
    return next(part for part in reversed(path.split("/")[:-1]) if part in ROOMS)


def grouped(text, room):
    text = text.replace("#pragma once", f"/** @of_group{{{room}}} */", 1)
    text = re.sub(r"^(namespace .*\{)$", rf"\1 /** @begin_group{{{room}}} */", text, flags=re.MULTILINE)
    text = re.sub(r"^\}  // namespace .*$", "/** @end_group */ }", text, flags=re.MULTILINE)
    # Doxygen leaves private things out, but for links to classes among them.
    text = re.sub(r"^ private:\n.*?^(?=\};)", lambda match: "\n" * match[0].count("\n"), text,
                  flags=re.MULTILINE | re.DOTALL)
    # Nobody calls these, and they have the words of what they belong to.
    text = re.sub(r"^extern template .*;$", "", text, flags=re.MULTILINE)
    return re.sub(r"^( .* = default;)$", r"\1  ///< The compiler's own.", text, flags=re.MULTILINE)


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        sys.stdout.write(grouped(file.read(), room_of(sys.argv[1])))


if __name__ == "__main__":
    main()
