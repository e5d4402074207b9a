"""Every public header compiles alone, twice in a row and without a warning.

usage: public_headers.py ROOT COMPILER STANDARD [SYSTEM_INCLUDE_DIR...]

Exit status 77 when there is no such compiler, but not where CI is set.
"""

import os
import pathlib
import shutil
import subprocess
import sys

NO_COMPILER = 77


def include_dirs(root):
    return [root / "include"] + sorted(root.glob("platform/*/include"))


def headers(root):
    """The names by which users include the headers."""
    return [
        file.relative_to(folder).as_posix()
        for folder in include_dirs(root)
        for file in sorted(folder.rglob("*.h"))
    ]


def compiles(command, header):
    text = f"#include <{header}>\n#include <{header}>\n"
    run = subprocess.run(command, input=text, capture_output=True, text=True)
    if run.returncode != 0:
        print(f"<{header}> does not compile: {' '.join(command)}\n{run.stderr}")
    return run.returncode == 0


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    root, compiler, standard = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]
    if shutil.which(compiler) is None:
        print(f"no {compiler} here: nothing was checked")
        sys.exit(1 if os.environ.get("CI") else NO_COMPILER)
    command = [compiler, f"-std={standard}", "-fsyntax-only", "-x", "c++"]
    command += ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
    for folder in include_dirs(root):
        command += ["-I", str(folder)]
    for folder in sys.argv[4:]:
        # Naming this one would move it in front of the compiler's own.
        if folder and os.path.realpath(folder) != "/usr/include":
            command += ["-isystem", folder]
    command.append("-")
    names = headers(root)
    good = [name for name in names if compiles(command, name)]
    print(f"{len(good)} of {len(names)} public headers compile with {compiler} -std={standard}")
    sys.exit(0 if names and len(good) == len(names) else 1)


main()
