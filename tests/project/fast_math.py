"""The payload codec refuses to be compiled where NaN and rounding are the compiler's to drop, and says so.

usage: fast_math.py ROOT COMPILER [SYSTEM_INCLUDE_DIR...]
"""

import os
import pathlib
import subprocess
import sys

REFUSED = ("-ffast-math", "-ffinite-math-only", "-Ofast")
TAKEN = ("-O2", "-O3", "-ffast-math -fno-fast-math")


def compile_codec(root, compiler, flags, system):
    command = [compiler, "-std=c++17", "-fsyntax-only", *flags.split(), str(root / "src/message/PayloadCodec.cpp")]
    for folder in ("src", "include", "platform/can/include", "platform/common/include"):
        command += ["-I", str(root / folder)]
    for folder in system:
        # Naming this one would move it in front of the compiler's own.
        if folder and os.path.realpath(folder) != "/usr/include":
            command += ["-isystem", folder]
    return subprocess.run(command, capture_output=True, text=True, check=False)


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    root, compiler, system = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3:]
    wrong = []
    for flags in REFUSED:
        run = compile_codec(root, compiler, flags, system)
        if run.returncode == 0:
            wrong.append(f"{flags}: compiles")
        elif "payload codec" not in run.stderr or "build without" not in run.stderr:
            wrong.append(f"{flags}: is refused without a reason\n{run.stderr}")
    for flags in TAKEN:
        run = compile_codec(root, compiler, flags, system)
        if run.returncode != 0:
            wrong.append(f"{flags}: is refused\n{run.stderr}")
    print(f"{len(REFUSED)} refused, {len(TAKEN)} taken by {compiler}; {len(wrong)} wrong")
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)


main()
