"""The changes that make mutants of a source: one operator, constant, condition or statement each."""

import re

import cpp

REPLACEMENTS = {
    "<": ["<=", ">="],
    "<=": ["<", ">"],
    ">": [">=", "<="],
    ">=": [">", "<"],
    "==": ["!="],
    "!=": ["=="],
    "+": ["-"],
    "-": ["+"],
    "*": ["/"],
    "/": ["*"],
    "%": ["*"],
    "&&": ["||"],
    "||": ["&&"],
    "&": ["|"],
    "|": ["&"],
    "^": ["&"],
    "<<": [">>"],
    ">>": ["<<"],
    "+=": ["-="],
    "-=": ["+="],
    "*=": ["/="],
    "/=": ["*="],
    "|=": ["&="],
    "&=": ["|="],
    "<<=": [">>="],
    ">>=": ["<<="],
}
STEPS = {"++": "--", "--": "++"}
PREFIXES = {"!": "", "~": "", "-": ""}
FLIPPED = {"true": "false", "false": "true"}
INTEGER = re.compile(r"(0[xX][0-9a-fA-F']+|\d[\d']*)([uUlL]*)")
HEX_FLOAT = re.compile(r"(0[xX][0-9a-fA-F.]+[pP])([+-]?\d+)(\w*)")
DECIMAL_FLOAT = re.compile(r"(\d+)(\.\d*(?:[eE][+-]?\d+)?)(\w*)")
BEFORE_CONDITION = {"return", "=", "(", "[", "{", ",", ";", ":", "?", "+=", "-=", "|="}


class Change:
    """A piece of a file and what takes its place. Two with the same key differ in their place alone."""

    def __init__(self, path, source, start, end, replacement, label):
        self.path = path
        self.start = start
        self.end = end
        self.replacement = replacement
        self.label = label
        self.line = source.count("\n", 0, start) + 1
        lines = source.split("\n")
        self.text = " ".join(lines[self.line - 1].split())
        above = [line for line in lines[: self.line - 1] if line.strip()]
        self.above = " ".join(above[-1].split()) if above else ""

    @property
    def key(self):
        return (self.path, self.text, self.label)

    def applied(self, source):
        return source[: self.start] + self.replacement + source[self.end :]


def other_integers(text):
    """The integers beside it, and none, in its own notation."""
    digits, suffix = INTEGER.fullmatch(text).groups()
    number = int(digits.replace("'", ""), 0)
    base = hex if digits[:2] in ("0x", "0X") else str
    return [base(other) + suffix for other in dict.fromkeys([number + 1, number - 1, 0]) if other >= 0 and other != number]


def other_numbers(text):
    if INTEGER.fullmatch(text):
        return other_integers(text)
    match = HEX_FLOAT.fullmatch(text)
    if match:
        return [f"{match[1]}{int(match[2]) + 1}{match[3]}"]
    match = DECIMAL_FLOAT.fullmatch(text)
    return [f"{int(match[1]) + 1}{match[2]}{match[3]}"] if match else []


class Finder:
    def __init__(self, path, source):
        self.path = path
        self.source = source
        self.tokens = cpp.parse(source)
        self.found = {}

    def add(self, first, last, replacement, label):
        """Of the tokens from first to last."""
        start, end = self.tokens[first].start, self.tokens[last].end
        change = Change(self.path, self.source, start, end, replacement, label)
        self.found.setdefault((start, end, replacement), change)

    def replace(self, index, others):
        for other in others:
            self.add(index, index, other, f"{self.tokens[index].text} -> {other or 'nothing'}")

    def all(self):
        for index, token in enumerate(self.tokens):
            if not token.skipped:
                self.change_token(index, token)
                if cpp.starts_statement(self.tokens, index):
                    self.change_statement(index, token)
        return self.told_apart(sorted(self.found.values(), key=lambda change: (change.start, change.label)))

    @staticmethod
    def told_apart(changes):
        """The second of two equal changes of a line is labelled so."""
        seen = {}
        for change in changes:
            place = (change.line, change.label)
            seen[place] = seen.get(place, 0) + 1
            if seen[place] > 1:
                change.label += f" #{seen[place]}"
        return changes

    def change_token(self, index, token):
        if token.kind == "number":
            self.replace(index, other_numbers(token.text))
        elif token.text in FLIPPED:
            self.replace(index, [FLIPPED[token.text]])
        elif token.text in STEPS:
            self.replace(index, [STEPS[token.text]])
        elif token.text in REPLACEMENTS and token.apart and token.kind == "sign":
            self.replace(index, REPLACEMENTS[token.text])
        elif token.text in PREFIXES and not token.apart and self.is_prefix(index):
            self.replace(index, [PREFIXES[token.text]])
        elif token.text == "?":
            self.change_condition(self.start_of_condition(index), index - 1)

    def is_prefix(self, index):
        before = self.tokens[index - 1]
        following = self.tokens[index + 1]
        if self.tokens[index].text == "~" and before.text in (";", "{", "}", ":", "::"):
            return False  # a destructor
        if following.start != self.tokens[index].end:
            return False
        return before.text == "return" or (before.kind == "sign" and before.text not in (")", "]"))

    def start_of_condition(self, question):
        index = question
        while index > 0 and self.tokens[index - 1].text not in BEFORE_CONDITION:
            index = (self.tokens[index - 1].partner if self.tokens[index - 1].text in cpp.CLOSING else None) or index - 1
        return index

    def change_condition(self, first, last, outcomes=("true", "false")):
        if first > last:
            return
        for outcome in outcomes:
            self.add(first, last, outcome, f"condition -> {outcome}")
        text = self.source[self.tokens[first].start : self.tokens[last].end]
        self.add(first, last, f"!({text})", "condition -> its contrary")

    def change_statement(self, index, token):
        if token.text in ("if", "while"):
            opening = index + 2 if self.tokens[index + 1].text == "constexpr" else index + 1
            outcomes = ("false",) if token.text == "while" else ("true", "false")
            self.change_condition(opening + 1, self.tokens[opening].partner - 1, outcomes)
        elif token.text == "for":
            self.change_loop(index + 1)
        elif token.text not in ("else", "do", "try", "catch", "case", "default", "switch", "public", "private"):
            end = cpp.end_of_statement(self.tokens, index)
            if end is not None:
                self.change_plain_statement(index, token, end)

    def change_loop(self, opening):
        first = cpp.end_of_statement(self.tokens, opening + 1)
        last = cpp.end_of_statement(self.tokens, first + 1) if first is not None else None
        if last is not None and last < self.tokens[opening].partner:
            self.change_condition(first + 1, last - 1, ("false",))

    def change_plain_statement(self, index, token, end):
        if token.text == "return":
            value = self.tokens[index + 1]
            is_constant = end == index + 2 and (value.kind == "number" or value.text in FLIPPED)
            if end > index + 1 and not is_constant:
                self.add(index + 1, end - 1, "{}", "returned value -> {}")
            elif end == index + 1:
                self.add(index, end, ";", "statement removed")
        elif not cpp.declares(self.tokens, index, end) or self.is_lock(index):
            self.add(index, end, ";", "statement removed")

    def is_lock(self, index):
        return self.tokens[index].text.endswith("Lock") and self.tokens[index + 1].kind == "word"


def changes_of(path, source):
    return Finder(path, source).all()
