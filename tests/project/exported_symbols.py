"""A shared library offers what its public headers mark for export, and nothing else.

usage: exported_symbols.py LIBRARY SONAME INCLUDE_DIR | --self-test
"""

import pathlib
import re
import subprocess
import sys

EXPORT_MARK = r'(?:\b[A-Z_]+_API|__attribute__\(\(visibility\("default"\)\)\))'
# What stands between the mark and the first of "(", "{", ";" or a single ":" ends in the name.
MARKED = re.compile(EXPORT_MARK + r"\s+((?:::|[^(){};:])*\w)\s*[({;:]")
NAME_IN_SYMBOL = re.compile(
    r"(?:typeinfo for |typeinfo name for |vtable for |VTT for |(?:non-)?virtual thunk to )?"
    r"tarn::(\w+)(::(?:Core|Impl)\b)?"  # the second is what a class keeps behind its pointer
)


def marked(text):
    """The classes and functions that a header marks."""
    text = re.sub(r"//[^\n]*|^\s*#[^\n]*", "", text, flags=re.MULTILINE)
    return {re.findall(r"\w+", match.group(1))[-1] for match in MARKED.finditer(text)}


def stray(symbols, names):
    """The exported symbols that belong to none of the names, or to what hides inside one."""
    matches = ((symbol, NAME_IN_SYMBOL.match(symbol)) for symbol in symbols)
    return [
        symbol
        for symbol, match in matches
        if not match or match.group(1) not in names or match.group(2)
    ]


def unseen(symbols, names):
    """The names for which nothing is exported. An abstract class of inline functions alone has its
    table in whoever derives from it."""
    seen = {match.group(1) for match in map(NAME_IN_SYMBOL.match, symbols) if match}
    return sorted(name for name in names - seen if not name.startswith("i"))


def exported(library):
    command = ["nm", "-DC", "--defined-only", "--without-symbol-versions", library]
    lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
    symbols = [line.split(maxsplit=2)[1:] for line in lines]
    return [symbol for kind, symbol in symbols if kind != "A"]  # absolute: the name of a version


def soname(library):
    text = subprocess.run(
        ["readelf", "-d", library], check=True, capture_output=True, text=True
    ).stdout
    match = re.search(r"SONAME.*\[(.*)\]", text)
    return match.group(1) if match else "(none)"


def check(library, wanted_soname, include_dir):
    names = set()
    for header in pathlib.Path(include_dir).rglob("*.h"):
        names |= marked(header.read_text())
    symbols = exported(library)
    wrong = [f"{library} exports {symbol}" for symbol in stray(symbols, known(names))]
    wrong += [f"{library} lacks {name}" for name in unseen(symbols, names)]
    if soname(library) != wanted_soname:
        wrong.append(f"{library} has the SONAME {soname(library)}, not {wanted_soname}")
    print(f"{len(symbols)} exported symbols of {', '.join(sorted(names))}; {len(wrong)} wrong")
    return wrong


def known(names):
    """A class that derives from an interface of the lower layer repeats that one's type data."""
    return names | {"iCanMessageHandler", "iCanAsyncDispatcher"}


def self_test():
    header = """
    #define TARN_API __attribute__((visibility("default")))
    class TARN_API TarnMessage
    {
    class Hidden;
    class TARN_API Derived : public Base {
    __attribute__((visibility("default"))) Poco::Mutex& GetLoggerMutex();
    """
    names = marked(header)
    good = [
        "tarn::TarnMessage::GetType() const",
        "vtable for tarn::Derived",
        "tarn::GetLoggerMutex()",
        "tarn::Derived::Derived(std::shared_ptr<tarn::Derived::Core>)",
    ]
    bad = [
        "tarn::Hidden::Hidden()",
        "tarn::Derived::Core::Run()",
        "typeinfo for tarn::Derived::Core",
        "tarn::payload::EncodeFixedPoint(float, unsigned int)",
        "void std::vector<double, std::allocator<double> >::_M_realloc_insert<double>()",
        "typeinfo for std::string",
        "main",
    ]
    wrong = []
    if names != {"TarnMessage", "Derived", "GetLoggerMutex"}:
        wrong.append(f"self-test: read {names}")
    if stray(good, names):
        wrong.append(f"self-test: refused {stray(good, names)}")
    if stray(bad, names) != bad:
        wrong.append(f"self-test: let through {set(bad) - set(stray(bad, names))}")
    if unseen(good[:1], names) != ["Derived", "GetLoggerMutex"]:
        wrong.append(f"self-test: missed {unseen(good[:1], names)}")
    return wrong


def main():
    if sys.argv[1:] == ["--self-test"]:
        wrong = self_test()
    elif len(sys.argv) == 4:
        wrong = check(*sys.argv[1:])
    else:
        sys.exit(__doc__)
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)


main()
