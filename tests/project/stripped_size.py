"""A shared library, stripped, is no larger than it may be.

usage: stripped_size.py LIBRARY MAX_KIB
"""

import os
import subprocess
import sys
import tempfile


def main(arguments):
    if len(arguments) != 2:
        sys.exit(__doc__)
    library, limit = arguments[0], int(arguments[1])
    with tempfile.NamedTemporaryFile() as stripped:
        subprocess.run(["strip", "-o", stripped.name, library], check=True)
        size = os.path.getsize(stripped.name)
    print(f"{library} has {size} bytes without its symbols; {limit * 1024} are allowed")
    return 1 if size > limit * 1024 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
