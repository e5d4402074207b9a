"""Enough of C++ to change a source: its tokens, and which of them stand in the body of a function.

Relies on the layout of clang-format: a binary operator has blanks on both sides, the brackets of a
template and the signs of pointers and references have not.
"""

import re

TOKEN = re.compile(
    r"""(?P<skip>\s+|//[^\n]*|/\*.*?\*/)
      | (?P<line>(?<![^\n])[ \t]*\#(?:\\\n|[^\n])*)
      | (?P<text>(?:u8|[uUL])?R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|(?:u8|[uUL])?"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+')
      | (?P<number>\.?\d(?:[eEpP][+-]|'(?=\w)|[\w.])*)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<sign><<=|>>=|\.\.\.|->\*|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.VERBOSE | re.DOTALL,
)
OPENING = {"(": ")", "[": "]", "{": "}"}
CLOSING = {")", "]", "}"}
SCOPES = {"namespace", "class", "struct", "union", "enum"}
BEFORE_BODY = {")", "]", "else", "do", "try", "const", "noexcept", "override", "final", ";", ":", "{", "}"}
CONTROLS = {"if", "while", "for", "switch"}
DECLARATIONS = SCOPES | {"const", "static", "constexpr", "auto", "using", "unsigned", "thread_local", "template", "typedef"}


class Token:
    def __init__(self, kind, text, start, end, apart):
        self.kind = kind
        self.text = text
        self.start = start
        self.end = end
        self.apart = apart  # blanks on both sides
        self.partner = None  # index of the other bracket
        self.brace = None  # of "{": "scope", "body" or "values"
        self.within = None  # index of the "{" around it
        self.skipped = False  # part of what is never changed

    def __repr__(self):
        return self.text


def tokens_of(source):
    tokens = []
    at = 0
    while at < len(source):
        match = TOKEN.match(source, at)
        kind = match.lastgroup if match.lastgroup != "mark" else "text"
        if kind not in ("skip", "line"):
            around = source[at - 1 : at] + source[match.end() : match.end() + 1]
            apart = len(around) == 2 and around.isspace()
            tokens.append(Token(kind, match.group(), at, match.end(), apart))
        at = match.end()
    return tokens


def pair_brackets(tokens):
    opened = []
    for index, token in enumerate(tokens):
        if token.text in OPENING:
            opened.append(index)
        elif token.text in CLOSING and opened and OPENING[tokens[opened[-1]].text] == token.text:
            token.partner = opened.pop()
            tokens[token.partner].partner = index


def head_before(tokens, index):
    """What stands between the last statement or block and this token."""
    first = index
    while first > 0 and tokens[first - 1].text not in (";", "{", "}"):
        first -= 1
    return tokens[first:index]


def kind_of_brace(tokens, index, around):
    before = tokens[index - 1].text if index > 0 else ";"
    if around == "values":
        return "body" if before in (")", "]") and tokens[index - 1].kind == "sign" else "values"
    head = head_before(tokens, index)
    words = {token.text for token in head}
    if words & SCOPES and "(" not in words and "=" not in words:
        return "scope"
    return "body" if before in BEFORE_BODY else "values"


def classify_braces(tokens):
    around = [None]
    for index, token in enumerate(tokens):
        token.within = around[-1]
        if token.text == "{":
            outer = tokens[around[-1]].brace if around[-1] is not None else None
            token.brace = kind_of_brace(tokens, index, outer)
            around.append(index)
        elif token.text == "}" and len(around) > 1:
            around.pop()
            token.within = around[-1]


def end_of_statement(tokens, index):
    """The index of the semicolon that ends what begins here, or None."""
    while index < len(tokens):
        token = tokens[index]
        if token.text == ";":
            return index
        if token.text in CLOSING:
            return None
        index = token.partner + 1 if token.text in OPENING and token.partner else index + 1
    return None


def end_of_angles(tokens, index):
    """The index of the ">" to the "<" here."""
    depth = 0
    while index < len(tokens):
        text = tokens[index].text
        depth += {"<": 1, ">": -1, ">>": -2}.get(text, 0)
        if depth <= 0:
            return index
        index = tokens[index].partner + 1 if text in "([{" and tokens[index].partner else index + 1
    return index - 1


def skip(tokens, first, last):
    for token in tokens[first : last + 1]:
        token.skipped = True


def mark_skipped(tokens):
    """Attributes, static_assert, the parameters of templates, names of operators."""
    for index, token in enumerate(tokens):
        following = tokens[index + 1].text if index + 1 < len(tokens) else ""
        if token.text == "static_assert":
            skip(tokens, index, end_of_statement(tokens, index) or index)
        elif token.text == "template" and following == "<":
            skip(tokens, index, end_of_angles(tokens, index + 1))
        elif token.text == "operator":
            skip(tokens, index, index + 1)
        elif token.text == "[" and following == "[" and token.partner:
            skip(tokens, index, token.partner)


def parse(source):
    tokens = tokens_of(source)
    pair_brackets(tokens)
    classify_braces(tokens)
    mark_skipped(tokens)
    return tokens


def starts_statement(tokens, index):
    """True for the first token of a statement in the body of a function."""
    token = tokens[index]
    if token.within is None or tokens[token.within].brace != "body" or token.text in ("{", "}", ";"):
        return False
    before = tokens[index - 1]
    if before.text == ")":
        return follows_control(tokens, index - 1)
    if before.text == ":":
        return is_label_end(tokens, index - 1)
    if before.text == "}":
        return ends_body(tokens, index - 1)
    return before.text in (";", "else", "do") or before.brace == "body"


def ends_body(tokens, index):
    return tokens[index].partner is not None and tokens[tokens[index].partner].brace in ("body", "scope")


def follows_control(tokens, closing):
    opening = tokens[closing].partner
    if opening is None or opening == 0:
        return False
    word = tokens[opening - 1].text
    return word in CONTROLS or (word == "constexpr" and tokens[opening - 2].text == "if")


def is_label_end(tokens, colon):
    return any(token.text in ("case", "default") for token in head_before(tokens, colon))


def declares(tokens, first, end):
    """True when the statement is a declaration: a keyword of one, or a type and a name."""
    if tokens[first].text in DECLARATIONS:
        return True
    index = first
    while index < end and tokens[index].kind == "word":
        index += 1
        if index < end and tokens[index].text == "<" and not tokens[index].apart:
            index = end_of_angles(tokens, index) + 1
        if index < end and tokens[index].text == "::":
            index += 1
            continue
        break
    while index < end and tokens[index].text in ("*", "&", "&&") and not tokens[index].apart:
        index += 1
    return first < index < end and tokens[index].kind == "word"
