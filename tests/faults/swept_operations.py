"""Every public operation is in a sweep of faults: the list of them is made from the public headers.

usage: swept_operations.py ROOT LIST PROGRAM...

LIST names, for each operation, the rows of the sweeps that run it, or "-" and why none needs to.
The PROGRAMs are those sweeps; what they list with --gtest_list_tests has to contain the rows.
"""

import pathlib
import re
import subprocess
import sys

FOLDERS = ["include/tarn", "platform/can/include/plexa_can", "platform/common/include/plexa_common"]
# A name before its parameters, in a declaration.
CALL = re.compile(r"(~?\b[A-Za-z_]\w*|operator\s*[^\s\w(]+)\s*\(")
SCOPE = re.compile(r"^(namespace|class|struct|enum|union)\b(?: class)?(?: [A-Z_]+_API)? ?(\w*)")
EXPORTED = re.compile(r"_API\b|visibility\(\"default\"\)")
NO_OPERATION = re.compile(r"= (?:0|delete|default)$|^friend\b|^using\b|^typedef\b|^static_assert\b")


def without_comments(text):
    text = re.sub(r"//[^\n]*|/\*.*?\*/", "", text, flags=re.DOTALL)
    return re.sub(r"^\s*#(?:[^\n\\]|\\\n|\\)*", "", text, flags=re.MULTILINE)


def declarations(text):
    """(the scopes around it as (kind, name), its access, the declaration without its body) of each."""
    scopes = []  # (kind, name, access)
    head = ""
    bodies = 0
    for part in re.split(r"([{};]|\b(?:public|protected|private)\s*:(?!:))", text):
        if part == "{":
            scope = SCOPE.match(" ".join(head.split()))
            if bodies or not scope:
                bodies += 1
                continue
            scopes.append([*scope.groups(), "private" if scope.group(1) == "class" else "public"])
        elif part == "}" and bodies:
            bodies -= 1
            if not bodies:
                yield scopes, " ".join(head.split())
        elif part == "}":
            scopes.pop()
        elif part == ";" and not bodies:
            yield scopes, " ".join(head.split())
        elif part.rstrip(": \n") in ("public", "protected", "private") and not bodies:
            scopes[-1][2] = part.rstrip(": \n")
        elif not bodies:
            head = part if not head else head + part
            continue
        if not bodies:
            head = ""


def operations_of(text):
    """The public operations that the text of a header declares."""
    for scopes, declaration in declarations(without_comments(text)):
        classes = [scope for scope in scopes if scope[0] != "namespace"]
        if any(kind in ("enum", "union") or access != "public" for kind, _, access in classes):
            continue
        if not classes and not EXPORTED.search(declaration) or NO_OPERATION.search(declaration):
            continue
        found = CALL.search(re.sub(r"__attribute__\(\(.*?\)\)\)", "", declaration))
        if found:
            yield "::".join([name for _, name, _ in classes] + [found.group(1).replace(" ", "")])


def rows_of(programs):
    rows = set()
    for program in programs:
        listed = subprocess.run([program, "--gtest_list_tests"], capture_output=True, text=True, check=True).stdout
        suite = ""
        for line in listed.splitlines():
            name = line.split("#")[0].strip()
            if not line.startswith(" "):
                suite = name.rstrip(".").split("/")[0]
            else:
                rows.add(f"{suite}/{name.split('/')[-1]}")
    return rows


def main():
    root, listing, programs = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3:]
    declared = set()
    for folder in FOLDERS:
        for header in sorted((root / folder).glob("*.h")):
            declared.update(operations_of(header.read_text()))
    entries = {}
    for line in listing.read_text().splitlines():
        if line and not line.startswith("#"):
            name, _, rest = line.partition("  ")
            entries[name] = rest.strip()
    rows = rows_of(programs)
    wrong = [f"{name}: no sweep of faults runs it" for name in sorted(declared - set(entries))]
    wrong += [f"{name}: is in the list, but in no header" for name in sorted(set(entries) - declared)]
    for name, rest in entries.items():
        if rest.startswith("-"):
            continue
        wrong += [f"{name}: there is no row {row}" for row in rest.split() if row not in rows]
        if not rest:
            wrong.append(f"{name}: neither rows nor a reason")
    print("\n".join(wrong) or f"{len(declared)} operations, all in the list")
    return 1 if wrong or len(declared) < 100 else 0


if __name__ == "__main__":
    sys.exit(main())
