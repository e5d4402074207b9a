#!/usr/bin/env python3
"""Tells where a link leads nowhere: to a file that is not there, or a place that it does not have.

A Markdown page that no other page links is found by nobody, and told too.

usage: links.py [--external] ROOT     the Markdown pages of a tree: README.md and its like, docs/
       links.py --site FOLDER         the HTML pages of a built site
       links.py --self-test

Nothing is fetched: links to other hosts are only listed, by --external.
"""

import html.parser
import pathlib
import re
import sys
import tempfile
import urllib.parse

FENCE = re.compile(r"^ *(```|~~~)", re.MULTILINE)
CODE = re.compile(r"(`+)(?!`).+?(?<!`)\1(?!`)", re.DOTALL)
COMMENT = re.compile(r"<!--.*?-->", re.DOTALL)
# [text](target) and ![text](target), with one pair of brackets inside the text.
LINK = re.compile(r"\[(?:[^\[\]]|\[[^\[\]]*\])*\]\(\s*<?([^)\s>]+)>?(?:\s+\"[^\"]*\")?\s*\)")
HEADING = re.compile(r"^#{1,6} +(.+?) *#* *$")


def without_code(text):
    """The lines of a page, those of fenced blocks emptied."""
    lines, fence = [], None
    for line in text.split("\n"):
        mark = FENCE.match(line)
        if fence is None and mark:
            fence = mark.group(1)
            line = ""
        elif fence is not None:
            if mark and mark.group(1) == fence:
                fence = None
            line = ""
        lines.append(line)
    return lines


def slug(heading):
    """The anchor that forges give a heading."""
    shown = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", heading)
    return re.sub(r"[^\w\- ]", "", shown.lower()).replace(" ", "-")


def numbered(names):
    """The names with -1, -2, ... behind those that came already."""
    seen = {}
    for name in names:
        seen[name] = seen.get(name, -1) + 1
        yield f"{name}-{seen[name]}" if seen[name] else name


def anchors_of_page(text):
    headings = (HEADING.match(line) for line in without_code(text))
    return set(numbered(slug(heading.group(1)) for heading in headings if heading))


def links_of_page(text):
    """Line and target of each link."""
    plain = "\n".join(without_code(text))
    for pattern in COMMENT, CODE:
        # Links whose text is code stay links: only what is inside the marks goes.
        plain = pattern.sub(lambda found: re.sub(r"[^\n]", "x", found.group()), plain)
    for found in LINK.finditer(plain):
        yield plain.count("\n", 0, found.start()) + 1, found.group(1)


class Tags(html.parser.HTMLParser):
    """Anchors and targets of an HTML page."""

    def __init__(self):
        super().__init__()
        self.anchors, self.links = set(), []

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name == "id" or (tag == "a" and name == "name"):
                self.anchors.add(value)
            elif name in ("href", "src", "data") and value:
                self.links.append((self.getpos()[0], value))


class Pages:
    """Pages of one kind, each read once."""

    def __init__(self, read):
        self.read, self.known = read, {}

    def anchors(self, file):
        return self._page(file)[0]

    def links(self, file):
        return self._page(file)[1]

    def _page(self, file):
        if file not in self.known:
            self.known[file] = self.read(file.read_text(encoding="utf-8"))
        return self.known[file]


def read_markdown(text):
    return anchors_of_page(text), list(links_of_page(text))


def read_html(text):
    tags = Tags()
    tags.feed(text)
    return tags.anchors, tags.links


def is_external(target):
    return bool(re.match(r"[a-z][a-z0-9+.-]*:", target)) or target.startswith("//")


def fault(page, target, pages, root, suffix):
    """Why a link of a page leads nowhere; None when it leads somewhere."""
    path, _, place = target.partition("#")
    path = urllib.parse.unquote(path.partition("?")[0])
    file = (page.parent / path).resolve() if path else page
    if root not in (file, *file.parents):
        return "outside the tree"
    if not file.exists():
        return "there is no such file"
    place = urllib.parse.unquote(place)
    if place and file.suffix == suffix and place not in pages.anchors(file):
        return "the page has no such place"
    return None


def check(files, root, read, suffix):
    """Texts about links that lead nowhere, the number of those looked at, and the external ones."""
    pages, faults, number, external = Pages(read), [], 0, []
    for page in files:
        for line, target in pages.links(page):
            if is_external(target):
                external.append((target, f"{page.relative_to(root)}:{line}"))
                continue
            number += 1
            why = fault(page, target, pages, root, suffix)
            if why:
                faults.append(f"{page.relative_to(root)}:{line}: {target}: {why}")
    return faults, number, external


def linked_files(page):
    for _, target in links_of_page(page.read_text(encoding="utf-8")):
        yield (page.parent / urllib.parse.unquote(target.partition("#")[0])).resolve()


def check_markdown(root):
    files = [*sorted(root.glob("*.md")), *sorted(root.glob("docs/**/*.md"))]
    faults, number, external = check(files, root, read_markdown, ".md")
    found = {file for page in files for file in linked_files(page) if file != page}
    faults += [
        f"{page.relative_to(root)}: no other page links it"
        for page in files
        if page not in found and page != root / "README.md"
    ]
    return faults, number, external


def check_site(root):
    return check(sorted(root.glob("**/*.html")), root, read_html, ".html")


def targets(text):
    return [target for _, target in links_of_page(text)]


def test_reading():
    page = "# One `Two` (3)!\n## Same\n## Same\n```\n# no heading\n[no](link)\n```\n### [A](b.md) end ##\n"
    assert anchors_of_page(page) == {"one-two-3", "same", "same-1", "a-end"}
    assert targets(page) == ["b.md"]
    assert list(links_of_page("\n[`a`](b#c) ![d](e.svg)\n")) == [(2, "b#c"), (2, "e.svg")]
    assert targets("`[a](b)` <!-- [c](d) --> ``[e]`(f)`` [g\nh](i)") == ["i"]
    assert targets("bus[at] = [](int) and `x` [y](<z.md> \"title\")") == ["int", "z.md"]
    anchors, links = read_html('<p id="a"><a name="b" href="c.html#d"></a>\n<img src="e.svg">')
    assert anchors == {"a", "b"} and links == [(1, "c.html#d"), (2, "e.svg")]


def test_checking():
    with tempfile.TemporaryDirectory() as name:
        root = pathlib.Path(name).resolve()
        (root / "docs/deep").mkdir(parents=True)
        (root / "docs/a.md").write_text("# Here\n[1](deep/b.md#there) [2](../README.md) [3](#here) [4](deep)\n")
        (root / "docs/deep/b.md").write_text("# There\n[1](https://example.org/x)\n")
        (root / "README.md").write_text("[1](docs/a.md#here)\n")
        assert check_markdown(root) == ([], 5, [("https://example.org/x", "docs/deep/b.md:2")])
        (root / "README.md").write_text("\n[1](docs/gone.md) [2](docs/a.md#gone) [3](../x) [4](#gone)\n")
        assert check_markdown(root)[0] == [
            "README.md:2: docs/gone.md: there is no such file",
            "README.md:2: docs/a.md#gone: the page has no such place",
            "README.md:2: ../x: outside the tree",
            "README.md:2: #gone: the page has no such place",
        ]
        (root / "README.md").write_text("[1](docs/deep/)\n")
        assert check_markdown(root)[0] == ["docs/a.md: no other page links it"]
        (root / "i.html").write_text('<a href="j.html#k"><a href="l.html">')
        (root / "j.html").write_text('<a id="m" href="#m">')
        assert check_site(root)[:2] == (
            ["i.html:1: j.html#k: the page has no such place", "i.html:1: l.html: there is no such file"], 3)


def main():
    arguments = sys.argv[1:]
    if arguments == ["--self-test"]:
        test_reading()
        test_checking()
        print("self-test passed")
        return
    options, names = [a for a in arguments if a[:1] == "-"], [a for a in arguments if a[:1] != "-"]
    if len(names) != 1 or options not in ([], ["--external"], ["--site"]):
        sys.exit(__doc__)
    root = pathlib.Path(names[0]).resolve()
    faults, number, external = (check_site if options == ["--site"] else check_markdown)(root)
    if options == ["--external"]:
        print(*(f"{target}  ({place})" for target, place in sorted(external)), sep="\n")
    print(f"{number} links, {len(faults)} lead nowhere; {len(external)} to other hosts, not tried")
    for text in faults:
        print(text)
    if faults or number == 0:
        sys.exit("links.py: correct the links" if faults else "links.py: found no link: are these pages?")


if __name__ == "__main__":
    main()
