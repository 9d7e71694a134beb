"""Checks that the pages of a site say what the Markdown says that they are made of: each block of code and each piece of
code within a line is on its page, word by word, and nothing of the Markdown's own marks is.

    check_words.py FOLDER

Works in the repository's folder.
"""

import html.parser
import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "site"))
import pages  # what makes them

MARKS = re.compile(r"\*\*|`|\|.*\|.*\||\]\(|@ref|\{#")


class Words(html.parser.HTMLParser):
    """The code of a page, block by block and piece by piece, and the lines of the rest."""

    def __init__(self, text):
        super().__init__()
        self.open = []  # the blocks and pieces that are open here, "" for other elements of their kind
        self.blocks = []
        self.pieces = set()
        self.rest = ""
        self.now = ""
        self.feed(text)

    def kind_of(self, tag, attributes):
        if tag in ("pre", "code", "script"):
            return tag
        return "pre" if tag == "div" and dict(attributes).get("class") == "fragment" else ""

    def handle_starttag(self, tag, attributes):
        if tag in ("div", "pre", "code", "script"):
            self.open.append((tag, self.kind_of(tag, attributes)))
            if self.open[-1][1]:
                self.now = ""
            if dict(attributes).get("class") == "line":
                self.now += "\n"

    def handle_endtag(self, tag):
        if self.open and self.open[-1][0] == tag:
            kind = self.open.pop()[1]
            if kind == "pre":
                self.blocks.append(plain(self.now))
            elif kind == "code":
                self.pieces.add(plain(self.now))

    def handle_data(self, data):
        if any(kind for _, kind in self.open):
            self.now += data
        else:
            self.rest += data


def plain(text):
    return " ".join(text.replace("\u200b", "").split())


def faults_of(path, text, words):
    blocks = [block for page in words for block in page.blocks]
    pieces = {piece for page in words for piece in page.pieces}
    for part, is_code in pages.without_code(text):
        if is_code:
            block = plain("\n".join(part.splitlines()[1:-1]))
            if not any(block in shown for shown in blocks):
                yield f"{path}: the site has no such block: {block[:80]} …"
        else:
            for match in pages.CODE.finditer(part):
                piece = plain(match[2]).replace("\\|", "|")
                if piece not in pieces:
                    yield f"{path}: the site has no such code: {piece}"
    for page in words:
        for line in page.rest.splitlines():
            if MARKS.search(line):
                yield f"{path}: the site shows Markdown: {line.strip()[:80]}"


def main():
    site = sys.argv[1]
    faults = []
    texts = pages.Site().texts
    for path, text in texts.items():
        label = pages.page_label(path)
        start = "index" if label == "mainpage" else label
        words = []
        for name in sorted(os.listdir(site)):
            if re.fullmatch(rf"{start}(_\d+_\w+)?\.html", name):
                with open(os.path.join(site, name), encoding="utf-8") as file:
                    words.append(Words(file.read()))
        faults += faults_of(path, text, words)
        if not words:
            faults.append(f"{path}: the site has no such page")
    print("\n".join([*faults, f"{len(texts)} pages of Markdown, {len(faults)} faults"]))
    sys.exit(bool(faults))


if __name__ == "__main__":
    main()
