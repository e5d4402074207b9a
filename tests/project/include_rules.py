"""Each folder includes only what it may: keeps the layers of the tree apart.

usage: include_rules.py ROOT | --self-test
"""

import pathlib
import re
import sys

STD = r"<[a-z0-9_]+>|<tr1/[a-z_]+>"
OS = r"<(?:sys|linux|net|arpa|netinet)/[\w/]+\.h>|<(?:unistd|fcntl|poll|signal|pthread|time|termios|getopt|cxxabi|dirent|netdb|sched|langinfo)\.h>"
POCO = r"<Poco/[\w/]+\.h>"
POCO_MUTEX = r"<Poco/(?:Mutex|Exception)\.h>"
TARN = r"<tarn/\w+\.h>"
TARN_WITHOUT_DISPATCHERS = r"<tarn/(?!TarnAsyncDispatcher)\w+\.h>"
CONTRACT = r"<plexa_can/(?:CanMessage|iCanMessageHandler|iCanAsyncDispatcher|CanException)\.h>"
LOGGER_MUTEX = r"<plexa_common/LoggerMutex\.h>"
LOCK = r'"lock/ScopedLock\.h"'
CAN = r"<plexa_can/\w+\.h>"
COMMON = r"<plexa_common/\w+\.h>"
PCAP = r"<pcap/\w+\.h>"
TOOL_LIBRARIES = r"<CLI/\w+\.hpp>|<rapidjson/[\w/]+\.h>|<(?:curses|term)\.h>"
BENCHMARK = r"<benchmark/benchmark\.h>|<valgrind/callgrind\.h>"
OWN = "own"  # in quotes, and found in the same folder of the table

# The longest folder that fits a file rules it.
RULES = {
    "include/tarn": [STD, POCO, TARN, CONTRACT, LOGGER_MUTEX],
    "src/lock": [STD, POCO_MUTEX, LOCK],
    "src/message": [STD, POCO_MUTEX, TARN, CONTRACT, LOCK, r'"message/\w+\.h"'],
    "src/diag": [STD, POCO, LOGGER_MUTEX, LOCK, r'"diag/\w+\.h"'],
    "src/dispatch": [STD, POCO, TARN, CONTRACT, LOCK, r'"diag/\w+\.h"', r'"dispatch/\w+\.h"'],
    "src/sync": [STD, POCO, TARN_WITHOUT_DISPATCHERS, LOCK, r'"diag/\w+\.h"', r'"sync/\w+\.h"'],
    "platform/common": [STD, POCO, OS, COMMON, OWN],
    "platform/can": [STD, POCO, OS, PCAP, COMMON, CAN, OWN],
    "tools": [STD, POCO, OS, COMMON, CAN, TARN, TOOL_LIBRARIES, OWN],
    # In quotes also what the libraries hide, and sources of the command.
    "fuzz": [STD, r"<stdint\.h>", POCO, OS, CAN, TARN, r"<fuzzer/\w+\.h>", r'"\w+\.h"'],
    "bench": [STD, POCO, OS, CAN, TARN, BENCHMARK, OWN],
    "examples": [STD, POCO, OS, COMMON, CAN, TARN, OWN],
}
RULED_ROOTS = ["include", "src", "platform", "tools", "fuzz", "bench", "examples"]
SOURCES = {".h", ".hpp", ".cpp"}
INCLUDE = re.compile(r'^\s*#\s*include\s*(<[^>]+>|"[^"]+")', re.MULTILINE)


def folder_of(path):
    """The ruling folder of a path below the root, or None."""
    fits = [folder for folder in RULES if path.startswith(folder + "/")]
    return max(fits, key=len, default=None)


def is_own(name, path, folder, exists):
    """True when a quoted name stands beside the file or below one of its folders in the table."""
    places = [p for p in pathlib.PurePosixPath(path).parents if str(p).startswith(folder)]
    return name.startswith('"') and any(exists(str(place / name.strip('"'))) for place in places)


def forbidden(path, text, exists):
    """What is wrong with the includes of one file, a line each."""
    folder = folder_of(path)
    if folder is None:
        return [f"{path}: no rule for this folder; tests/project/include_rules.py needs one"]
    wrong = []
    for match in INCLUDE.finditer(text):
        name = match.group(1)
        allowed = any(re.fullmatch(rule, name) for rule in RULES[folder] if rule != OWN)
        if not allowed and OWN in RULES[folder]:
            allowed = is_own(name, path, folder, exists)
        if not allowed:
            line = text.count("\n", 0, match.start(1)) + 1
            wrong.append(f"{path}:{line}: {folder} may not include {name}")
    return wrong


def check_tree(root):
    files = [
        file
        for top in RULED_ROOTS
        for file in sorted((root / top).rglob("*"))
        if file.suffix in SOURCES
    ]
    wrong = []
    for file in files:
        path = file.relative_to(root).as_posix()
        wrong += forbidden(path, file.read_text(), lambda p: (root / p).is_file())
    print(f"{len(files)} files, {len(wrong)} forbidden includes")
    return wrong if files else [f"{root}: no sources found"]


ALLOWED = [
    ("include/tarn/A.h", "<tr1/memory>"),
    ("include/tarn/A.h", "<Poco/Mutex.h>"),
    ("include/tarn/A.h", "<plexa_can/CanException.h>"),
    ("src/message/A.cpp", '"lock/ScopedLock.h"'),
    ("src/dispatch/A.cpp", '"diag/TraceGate.h"'),
    ("src/sync/A.cpp", "<tarn/iTarnAsyncDispatcher.h>"),
    ("platform/can/src/A.cpp", "<linux/can/raw.h>"),
    ("platform/can/src/A.cpp", "<pcap/pcap.h>"),
    ("platform/can/src/A.cpp", '"Socket.h"'),
    ("tools/tarn/A.cpp", "<plexa_can/SocketCanDispatcher.h>"),
]
FORBIDDEN = [
    ("include/tarn/A.h", '"message/HeaderLayout.h"'),
    ("include/tarn/A.h", "<plexa_can/SocketCanDispatcher.h>"),
    ("src/message/A.cpp", '"diag/TraceGate.h"'),
    ("src/message/A.cpp", '"dispatch/Registry.h"'),
    ("src/message/A.cpp", "<Poco/Logger.h>"),
    ("src/diag/A.cpp", "<tarn/TarnMessage.h>"),
    ("src/dispatch/A.cpp", '"message/HeaderLayout.h"'),
    ("src/dispatch/A.cpp", '"sync/Reply.h"'),
    ("src/sync/A.cpp", "<tarn/TarnAsyncDispatcher.h>"),
    ("src/sync/A.cpp", "<tarn/TarnAsyncDispatcherMock.h>"),
    ("src/sync/A.cpp", '"dispatch/Registry.h"'),
    ("platform/can/src/A.cpp", "<tarn/TarnMessage.h>"),
    ("platform/common/src/A.cpp", "<plexa_can/CanMessage.h>"),
    ("tools/tarn/A.cpp", '"message/HeaderLayout.h"'),
    ("tools/tarn/A.cpp", '"../../src/message/HeaderLayout.h"'),
    ("tools/tarn/A.cpp", "<pcap/pcap.h>"),
    ("src/elsewhere/A.cpp", "<vector>"),
]


def self_test():
    present = {"platform/can/src/Socket.h", "src/message/HeaderLayout.h"}
    wrong = []
    for path, name in ALLOWED:
        if forbidden(path, f"#include {name}\n", present.__contains__):
            wrong.append(f"self-test: {path} should be allowed {name}")
    for path, name in FORBIDDEN:
        if not forbidden(path, f"// x\n#  include {name}\n", present.__contains__):
            wrong.append(f"self-test: {path} should be forbidden {name}")
    print(f"{len(ALLOWED) + len(FORBIDDEN)} cases, {len(wrong)} wrong")
    return wrong


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    wrong = self_test() if sys.argv[1] == "--self-test" else check_tree(pathlib.Path(sys.argv[1]))
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)


main()
