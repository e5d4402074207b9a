"""The list of mutants that no test can tell from the original, each with its reason.

A file is a line that begins with "file:", and rules what follows it. Under it stand entries, apart by a
blank line: the line of the source, what it may be changed to, and why nobody would notice.

    file: src/message/Example.cpp

    line: constexpr std::size_t ROOM = 512;
    change: 512 -> 513
    change: 512 -> 511
    reason: only room

    line: return false;
    above: if (mRemoved)
    change: false -> true
    reason: ...

"above" is the line before it that is not blank: needed where the same line stands twice in the file.
"""


class ListError(Exception):
    pass


class Entry:
    def __init__(self, file, number):
        self.file = file
        self.number = number
        self.line = None
        self.above = None
        self.changes = []
        self.reason = None

    def put(self, name, value):
        if name == "change":
            self.changes.append(value)
        elif name in ("line", "above", "reason") and getattr(self, name) is None:
            setattr(self, name, value)
        else:
            raise ListError(f"line {self.number}: '{name}' is not known here, or stands twice in the entry")

    def check(self):
        if not (self.file and self.line and self.changes and self.reason):
            raise ListError(f"line {self.number}: an entry needs a file above it, a line, a change and a reason")

    def covers(self, change, label):
        return (change.path, change.text, change.label) == (self.file, self.line, label) and self.above in (None, change.above)


def read(text):
    entries = []
    file = None
    entry = None
    for number, line in enumerate(text.splitlines(), 1):
        name, colon, value = (part.strip() for part in line.partition(":"))
        if not line.strip() or line.startswith("#"):
            entry = None
        elif line[0].isspace() and entry is not None and entry.reason is not None:
            entry.reason += " " + line.strip()
        elif not colon:
            raise ListError(f"line {number}: '{line}' is not NAME: VALUE")
        elif name == "file":
            file = value
        else:
            if entry is None:
                entry = Entry(file, number)
                entries.append(entry)
            entry.put(name, " ".join(value.split()))
    for entry in entries:
        entry.check()
    return entries


def apply(entries, changes):
    """The reasons of the changes that are listed, and what is listed without a change that it fits."""
    by_place = {}
    for change in changes:
        by_place.setdefault((change.path, change.text), []).append(change)
    reasons = {}
    stale = []
    for entry in entries:
        there = by_place.get((entry.file, entry.line), [])
        for label in entry.changes:
            fitting = [change for change in there if entry.covers(change, label)]
            reasons.update((change, entry.reason) for change in fitting)
            if not fitting:
                stale.append(f"line {entry.number}: {entry.file} has no line '{entry.line}' with the change '{label}' any more")
    return reasons, stale
