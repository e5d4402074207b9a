"""A log statement that is off is two byte loads, a comparison and a branch in the machine code.

The operations that are looked at do nothing but trace their beginning and their end, so their way
to the return instruction shows two log statements and nothing else.

usage: trace_sites.py LIBRARY | --self-test
"""

import collections
import pathlib
import re
import subprocess
import sys

SKIPPED = 77
OPERATIONS = [f"tarn::TarnAsyncDispatcherMock::{name}" for name in ["Start()", "Stop()", "Send(tarn::TarnMessage&)"]]
SITES = 2
LINE = re.compile(r"^\s*([0-9a-f]+):\s+(\S+)\s*(.*)$")
SITE_LOAD = re.compile(r"# [0-9a-f]+ <.*_site__(?:\+0x1)?>")
FRAME = {"push", "pop", "mov", "sub", "add", "endbr64", "nop", "nopl", "nopw", "leave"}

Instruction = collections.namedtuple("Instruction", "address name operands")


def body(disassembly, operation):
    """The instructions of a function, by address; empty when it is not there."""
    start = re.search(rf"^[0-9a-f]+ <{re.escape(operation)}(?: \[clone \.localalias\])?>:\n", disassembly, re.M)
    if start is None:
        return {}
    text = disassembly[start.end() :].split("\n\n")[0]
    lines = filter(None, map(LINE.match, text.splitlines()))
    found = [Instruction(int(line[1], 16), line[2], line[3]) for line in lines]
    return dict((instruction.address, instruction) for instruction in found)


def quiet_way(instructions):
    """What is executed when no conditional jump is taken, up to the return."""
    addresses = sorted(instructions)
    following = dict(zip(addresses, addresses[1:]))
    address = addresses[0]
    way = []
    while address in instructions and len(way) <= len(addresses):
        instruction = instructions[address]
        way.append(instruction)
        if instruction.name.startswith("ret"):
            return way
        if instruction.name == "jmp":
            address = int(instruction.operands.split()[0], 16)
        else:
            address = following.get(address)
    return []


def kind(instruction):
    if SITE_LOAD.search(instruction.operands):
        return "byte load" if re.match(r"movz|cmpb?$", instruction.name) else "other access"
    if instruction.name in ("cmp", "test"):
        return "comparison"
    if instruction.name.startswith("j") and instruction.name != "jmp":
        return "branch"
    if instruction.name.startswith("ret") or instruction.name in FRAME | {"jmp"}:
        return "frame"
    return instruction.name


def complaints(disassembly, operation):
    instructions = body(disassembly, operation)
    way = quiet_way(instructions) if instructions else []
    if not way:
        return [f"{operation}: its way to the end is not found"]
    counts = collections.Counter(map(kind, way))
    expected = {"byte load": 2 * SITES, "branch": SITES}
    wrong = {name: count for name, count in counts.items() if name not in ("frame", "comparison", *expected)}
    wrong |= {name: counts[name] for name, count in expected.items() if counts[name] != count}
    if counts["comparison"] > SITES:
        wrong["comparison"] = counts["comparison"]
    return [f"{operation}: {dict(wrong)} on its way, not {expected}"] if wrong else []


def check(library):
    header = pathlib.Path(library).read_bytes()[:20]
    if header[:4] != b"\x7fELF" or int.from_bytes(header[18:20], "little") != 62:
        print("not x86-64 machine code, which is the only one that this check reads")
        sys.exit(SKIPPED)
    command = ["objdump", "-dC", "--no-show-raw-insn", library]
    text = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    return [complaint for operation in OPERATIONS for complaint in complaints(text, operation)]


SITE = """\
    {0}0: movzbl 0xf833(%rip),%eax        # 1d0e2 <X::Start()::_site__>
    {0}7: movzbl 0xf82d(%rip),%edx        # 1d0e3 <X::Start()::_site__+0x1>
    {0}a: cmp    %al,%dl
    {0}c: jae    6e14 <X::Start() [clone .cold]>
"""
FUNCTION = "0000000000000010 <X::Start()>:\n    10: push %rbx\n{}    90: pop %rbx\n    91: ret\n\n"


def self_test():
    good = FUNCTION.format(SITE.format("2") + SITE.format("3"))
    bad = {
        "one site": FUNCTION.format(SITE.format("2")),
        "a call": FUNCTION.format(SITE.format("2") + SITE.format("3") + "    70: call 40 <f>\n"),
        "two branches": FUNCTION.format(SITE.format("2") + SITE.format("3") + "    70: je 40 <f>\n"),
        "no function": good.replace("Start()>:", "Other()>:"),
    }
    wrong = complaints(good, "X::Start()")
    wrong += [f"let through: {name}" for name, text in bad.items() if not complaints(text, "X::Start()")]
    return wrong


def main(arguments):
    if len(arguments) != 1:
        sys.exit(__doc__)
    wrong = self_test() if arguments[0] == "--self-test" else check(arguments[0])
    print("\n".join(wrong) or "ok")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
