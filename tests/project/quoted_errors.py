"""The errors that docs/faq.md explains are those that the sources can write.

usage: quoted_errors.py ROOT | --self-test

A heading that is code quotes an error; "…" in it stands for what varies. Each piece between has to
stand in a text of the sources, or to be one of the operating system's.
"""

import errno
import os
import pathlib
import re
import sys

QUOTE = re.compile(r"^#+ `(.+)`$", re.MULTILINE)
TEXT = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
FOLDERS = ["src", "platform", "tools"]


def quotes(page):
    return QUOTE.findall(page)


def texts(source):
    """The texts of a source, those side by side put together; one a line."""
    joined = re.sub(r'(?<!\\)"\s*\n\s*"', "", source)
    return "\n".join(text.replace('\\"', '"') for text in TEXT.findall(joined))


def system_texts():
    return {os.strerror(number) for number in errno.errorcode}


def pieces(quote):
    """What stands between the varying parts, without what the system says behind the last colon."""
    for piece in filter(None, (part.strip(" ") for part in quote.split("…"))):
        head, _, tail = piece.rpartition(": ")
        if tail in system_texts():
            piece = head
        if piece.strip(" \"':;"):
            yield piece.rstrip(" ")


def is_known(piece, known):
    """Numbers may stand in the text or be put in."""
    return piece in known or all(part in known for part in re.split(r"\d+", piece))


def unknown(page, known):
    """The quotes with a piece that no text has."""
    return [quote for quote in quotes(page) if not all(is_known(piece, known) for piece in pieces(quote))]


def self_test():
    known = texts('throw E("cannot open \\"" + name +\n  "\\": it "\n  "is down; " + x);\ncall("bind")')
    page = "# `cannot open \"…\": it is down`\n## Text\n### `bind: No such device`\n### `bound`\n### `it … up`\n## `bind5down`\n"
    assert unknown(page, known) == ["bound", "it … up"], unknown(page, known)
    print("self-test passed")


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    root = pathlib.Path(sys.argv[1])
    files = [file for folder in FOLDERS for file in sorted(root.glob(f"{folder}/**/*"))]
    known = "\n".join(texts(file.read_text(encoding="utf-8")) for file in files if file.suffix in (".cpp", ".h"))
    page = (root / "docs/faq.md").read_text(encoding="utf-8")
    stray = unknown(page, known)
    print(f"{len(quotes(page))} errors quoted, {len(stray)} of them written by no source")
    for quote in stray:
        print(f"docs/faq.md: {quote}")
    sys.exit(1 if stray or not quotes(page) else 0)


main()
