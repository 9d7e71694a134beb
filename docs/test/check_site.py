"""Checks that the links of a site lead somewhere, and that it needs no network.

    check_site.py FOLDER

Every link, picture, script and style sheet of every page is there, in the folder, and so is the place in it that is
named. What the search and the tree lead to is there. Nothing is loaded from elsewhere; a link that is followed by the
reader may lead there.
"""

import html.parser
import os
import re
import sys
import urllib.parse

LOADED = {("script", "src"), ("img", "src"), ("link", "href"), ("iframe", "src"), ("object", "data"), ("embed", "src"),
          ("image", "xlink:href"), ("use", "xlink:href"), ("source", "src")}
FOLLOWED = {("a", "href"), ("area", "href"), ("a", "xlink:href")}
# Links that scripts make pages of: those of the search's results, of the tree and of the menu.
IN_SCRIPTS = re.compile(r"""["']((?:\.\./)?[\w./-]+\.html(?:#[\w-]*)?)["']""")
IN_STYLES = re.compile(r"""url\(\s*["']?([^"')]+)["']?\s*\)|@import\s+["']([^"']+)""")


class Page(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.anchors = set()
        self.loaded = []
        self.followed = []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name == "id" or (tag, name) == ("a", "name"):
                self.anchors.add(value)
            elif (tag, name) in LOADED and value:
                self.loaded.append(value)
            elif (tag, name) in FOLLOWED and value:
                self.followed.append(value)

    handle_startendtag = handle_starttag


def is_elsewhere(link):
    return urllib.parse.urlsplit(link).scheme != "" or link.startswith("//")


def is_inside(link):
    return link.startswith(("data:", "javascript:")) or link == "#"


class Site:
    def __init__(self, root):
        self.root = root
        self.files = {os.path.relpath(os.path.join(folder, name), root)
                      for folder, _, names in os.walk(root) for name in names}
        self.pages = {path: Page(self.text(path)) for path in self.files if path.endswith((".html", ".svg"))}
        self.links = 0
        self.faults = []

    def text(self, path):
        with open(os.path.join(self.root, path), encoding="utf-8") as file:
            return file.read()

    def check(self, source, link):
        """A link to a file of the site, and to a place in it."""
        self.links += 1
        parts = urllib.parse.urlsplit(link)
        path = urllib.parse.unquote(parts.path)
        target = os.path.normpath(os.path.join(os.path.dirname(source), path)) if path else source
        anchor = urllib.parse.unquote(parts.fragment)
        if target not in self.files:
            self.faults.append(f"{source}: {link} leads to a file that is not there")
        elif anchor and target in self.pages and anchor not in self.pages[target].anchors:
            self.faults.append(f"{source}: {link} leads to a place that is not there")

    def check_loaded(self, source, link):
        if is_inside(link):
            return
        if is_elsewhere(link):
            self.faults.append(f"{source}: {link} is loaded from elsewhere")
        else:
            self.check(source, link)

    def check_all(self):
        for path in sorted(self.files):
            if path in self.pages:
                for link in self.pages[path].loaded:
                    self.check_loaded(path, link)
                for link in self.pages[path].followed:
                    if not is_inside(link) and not is_elsewhere(link):
                        self.check(path, link)
            elif path.endswith(".css"):
                for match in IN_STYLES.finditer(self.text(path)):
                    self.check_loaded(path, match[1] or match[2])
            elif path.endswith(".js") and (path.startswith("search/") or re.search(r"nav|menudata", path)
                                           or path[:-3] + ".html" in self.files):
                # Those of the tree are beside the pages, those of the search lead up to them.
                for link in IN_SCRIPTS.findall(self.text(path)):
                    self.check(path, link)


def main():
    site = Site(sys.argv[1])
    site.check_all()
    for fault in site.faults:
        print(fault)
    if not site.links:
        print(f"{sys.argv[1]}: no site: not a single link")
    print(f"{len(site.pages)} pages and pictures, {site.links} links, {len(site.faults)} of them wrong")
    sys.exit(bool(site.faults) or not site.links)


if __name__ == "__main__":
    main()
