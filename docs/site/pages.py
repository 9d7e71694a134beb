"""Makes the site's pages from the repository's Markdown, as Doxygen reads it.

    pages.py FOLDER

Works in the repository's folder. Doxygen's Markdown differs from the one that repositories are read with: headings have no anchors of their own, links
lead to labels, and languages have other names. A link to a page, a heading, a public header, a folder of headers or an
example becomes one to its page here; one to any other file of the repository becomes its text, for the site has no
sources. A link to something that is not there is an error. A page of steps becomes a page for each. The comment
<!-- dot: FILE --> is a picture that dot draws.
"""

import html
import os
import re
import subprocess
import sys

import measured
from group_headers import ROOMS

MEASURED = "measured"  # in this place: the page that measured.py makes
PAGES = ["README.md", "docs/guide.md", "docs/centroiding.md", "docs/site/detectors.md", "docs/live.md", "docs/stream.md",
         "docs/telemetry.md", "docs/site/campaigns.md", "docs/site/python.md", MEASURED, "docs/architecture.md", "docs/damaged_files.md",
         "CONTRIBUTING.md", "CHANGELOG.md"]
IN_STEPS = "docs/guide.md"
EXAMPLES = "examples"
LANGUAGES = {"cpp": ".cpp", "python": ".py"}  # those that Doxygen colours
FENCE = re.compile(r"^```(\S*).*$", re.MULTILINE)
HEADING = re.compile(r"^(#{1,6}) (.*)$", re.MULTILINE)
CODE = re.compile(r"(?<!`)(`+)(?!`)(.+?)(?<!`)\1(?!`)", re.DOTALL)
LINK = re.compile(r"(!?)\[((?:[^\[\]]|\[[^\]]*\])*)\]\(([^()\s]+)\)")
DOT = re.compile(r"^<!-- dot: (\S+) -->$", re.MULTILINE)
COMMENT = re.compile(r"<!--.*?-->\n?", re.DOTALL)


def slug(heading):
    """The anchor that readers of repositories give a heading."""
    text = re.sub(r"[`*]|\[|\]\([^)]*\)", "", heading).lower()
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")


def page_label(path):
    return "mainpage" if path == "README.md" else "page_" + os.path.splitext(os.path.basename(path))[0].lower()


def code(match):
    """Code within a line. With an apostrophe, or the bar that parts a table, it is none to Doxygen."""
    text = match[2].replace("\\|", "|")
    if "'" not in text and "|" not in text:
        return match[0]
    return "<code>" + re.sub(r"([\\@#%$*_|\"]|--)", r"\\\1", html.escape(text, quote=False)) + "</code>"


def label_of(page, anchor):
    return f"{page}_{anchor}".replace("-", "_")


def example_label(path):
    return "example_" + re.sub(r"\W", "_", path.removeprefix(EXAMPLES + "/"))


def without_code(text):
    """Pairs of a piece of Markdown and whether it is a block of code."""
    pieces, lines, in_code = [], [], False
    for line in text.splitlines(keepends=True):
        if FENCE.match(line):
            if not in_code:
                pieces.append(("".join(lines), False))
                lines = []
            lines.append(line)
            if in_code:
                pieces.append(("".join(lines), True))
                lines = []
            in_code = not in_code
        else:
            lines.append(line)
    pieces.append(("".join(lines), in_code))
    return pieces


def headings(text):
    """Levels and texts, in their order."""
    found = []
    for piece, is_code in without_code(text):
        if not is_code:
            found += [(len(match[1]), match[2]) for match in map(HEADING.match, piece.splitlines()) if match]
    return found


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


class Site:
    def __init__(self):
        self.texts = {path: read(path) for path in PAGES if path != MEASURED}
        self.labels = {}  # of (page, anchor); the page itself has the anchor ""
        for path, text in self.texts.items():
            for level, heading in headings(text):
                anchor = slug(heading)
                self.labels[path, anchor] = page_label(path) if level == 1 else label_of(page_label(path), anchor)
            self.labels[path, ""] = page_label(path)
        self.examples = [os.path.join(folder, name)
                         for folder, _, names in sorted(os.walk(EXAMPLES)) for name in sorted(names)
                         if name.endswith((".cpp", ".py", "CMakeLists.txt")) and os.path.basename(folder) != "test"]
        listed = subprocess.run(["testing/public_headers.sh", "."], stdout=subprocess.PIPE, text=True, check=True)
        self.headers = {line.removeprefix("./") for line in listed.stdout.splitlines()}

    def reference(self, source, target):
        """The label that a link leads to; None: to what the site has not."""
        path, _, anchor = target.partition("#")
        path = os.path.normpath(os.path.join(os.path.dirname(source), path)) if path else source
        if path in self.texts:
            if (path, anchor) not in self.labels:
                raise ValueError(f"{source}: {target} leads to a heading that is not there")
            return self.labels[path, anchor]
        if not os.path.exists(path):
            raise ValueError(f"{source}: {target} leads to a file that is not there")
        if path in self.examples:
            return example_label(path)
        if path.startswith(EXAMPLES):
            return "page_examples"
        if path in ROOMS or path in self.headers:
            return path
        return None

    def link(self, source, match):
        is_image, text, target = match[1], match[2].replace("\n", " "), match[3]
        if is_image:
            return f"![{text}]({os.path.basename(target)})"
        if "://" in target:
            return match[0]
        label = self.reference(source, target)
        return f"[{text}](@ref {label})" if label else text

    def prose(self, source, text):
        """Markdown without blocks of code."""
        spans = []

        def keep(match):
            spans.append(code(match))
            return f"\x01{len(spans) - 1}\x02"

        def heading(match):
            level, title = match[1], match[2]
            return f"{level} {title} {{#{self.labels[source, slug(restored(title))]}}}"

        def restored(text):
            return re.sub("\x01(\\d+)\x02", lambda match: spans[int(match[1])], text)

        text = CODE.sub(keep, text)
        text = DOT.sub(lambda match: f"@dotfile {os.path.basename(match[1])}", text)
        text = COMMENT.sub("", text)
        text = LINK.sub(lambda match: self.link(source, match), text)
        text = re.sub(r"^(#+) (.*)$", heading, text, flags=re.MULTILINE)
        return restored(text)

    def page(self, path):
        parts = []
        for piece, is_code in without_code(self.texts[path]):
            if is_code:
                language, rest = FENCE.match(piece)[1], piece.split("\n", 1)[1]
                parts.append(f"```{{{LANGUAGES.get(language, '.unparsed')}}}\n{rest}")
            else:
                parts.append(self.prose(path, piece))
        return "".join(parts)

    def example(self, path):
        extension = {".py": ".py", ".cpp": ".cpp"}.get(os.path.splitext(path)[1], ".unparsed")
        return f"# {path} {{#{example_label(path)}}}\n\n```{{{extension}}}\n{read(path)}```\n"


def with_contents(text):
    """A page of several sections has a table of them, behind its title."""
    if len(re.findall(r"^## ", text, re.MULTILINE)) < 3:
        return text
    title, rest = text.split("\n", 1)
    return f"{title}\n\n[TOC]\n{rest}"


def steps(text):
    """A page for the beginning, which lists the others, and one for each section of the second level."""
    beginning, *sections = re.split(r"^(?=## )", text, flags=re.MULTILINE)
    names = [HEADING.match(section)[2] for section in sections]
    labels = [re.search(r"\{#(\w+)\}", name)[1] for name in names]
    titles = [name.rsplit(" {#", 1)[0] for name in names]
    pages = [beginning + "".join(f"- @subpage {label}\n" for label in labels)]
    for i, section in enumerate(sections):
        ways = [f"[← {titles[i - 1]}](@ref {labels[i - 1]})"] if i > 0 else []
        ways += [f"[{titles[i + 1]} →](@ref {labels[i + 1]})"] if i + 1 < len(sections) else []
        raised = re.sub(r"^#(#+ .*\{#)", r"\1", section, flags=re.MULTILINE)
        pages.append(raised.rstrip() + "\n\n" + " · ".join(ways) + "\n")
    return pages


def examples_page(site):
    items = "".join(f"- @subpage {example_label(path)}\n" for path in site.examples)
    return f"# Examples {{#page_examples}}\n\nHosts and scripts to begin with, as they are built and run by the tests.\n\n{items}"


def write(folder, number, name, text):
    with open(os.path.join(folder, f"{number:02}_{name}.md"), "w", encoding="utf-8") as file:
        file.write(text)


def main():
    site = Site()
    texts = []
    for path in PAGES:
        if path == MEASURED:
            texts.append(measured.page())
            continue
        text = site.page(path)
        texts += steps(text) if path == IN_STEPS else [with_contents(text)]
    texts += [examples_page(site)] + [site.example(path) for path in site.examples]
    for i, text in enumerate(texts):
        label = re.search(r"\{#(\w+)\}", text)[1]
        write(sys.argv[1], i, label, text)


if __name__ == "__main__":
    try:
        main()
    except ValueError as error:
        sys.exit(f"pages.py: {error}")
