"""Finds the places where script/campaign mutate changes the code. Requires C++ that is formatted by
.clang-format, where only binary operators stand between spaces."""

import collections
import hashlib
import pathlib
import re

TOKEN = re.compile(r"""
    (?P<skip>//[^\n]*|^[ ]*\#[^\n]*) | (?P<text>"(?:\\.|[^"\\])*") | (?P<char>'(?:\\.|[^'\\\n])+')
  | (?P<number>\b(?:0x[\dA-Fa-f]+|\d[\d.']*)[uUlL]*\b) | (?P<word>\w+) | (?P<space>\s+)
  | (?P<symbol><<=|>>=|<<|>>|[-+*/%&|^=!<>]=|&&|\|\||\+\+|--|->|::|.)""", re.M | re.X)
SWAPPED = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="],
           ">=": [">", "<"], "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"],
           "/": ["*"], "%": ["*"], "&": ["|"], "|": ["&"], "<<": [">>"], ">>": ["<<"],
           "+=": ["-="], "-=": ["+="], "*=": ["+="], "/=": ["*="], "|=": ["&="]}
STATEMENT = re.compile(r"(?<=[;{}:)])\s+([^\W\d][^{};]*(?:\{[^{};]*\}[^{};]*)?);")
CALL = re.compile(r"[\w:]+([.]|->|[\w:<>])*\(.*\)$", re.S)
FLAG = r"\b(?:[A-Z][A-Z\d_]+|(?:\w+::)+\w+|k[A-Z]\w*)\b"
FLAGS = re.compile(rf"{FLAG}(?:\s\|\s+{FLAG})+")
LEFT_ALONE = re.compile(r"(return|using|static_assert|while|for)\b|.*= (default|delete)$|"
                        r"(?!delete|throw|else)[\w:]+(<.*>)?[*&]*\s+[*&]?\w", re.S)  # declarations


def token_changes(source):
    for token in TOKEN.finditer(source):
        kind, text, (begin, end) = token.lastgroup, token.group(), token.span()
        if kind == "text":
            yield "constant", begin, end, '"x"' if text == '""' else '""'
        elif kind == "char":
            yield "constant", begin, end, "'~'"
        elif kind == "number":
            yield "constant", begin, end, f"({text} + 1)"
            yield "constant", begin, end, f"({text} - 1)"
        elif text in ("true", "false"):
            yield "constant", begin, end, "false" if text == "true" else "true"
        elif text in ("++", "--"):
            yield "operator", begin, end, "--" if text == "++" else "++"
        elif text in SWAPPED and source[begin - 1].isspace() and source[end].isspace():
            yield from (("operator", begin, end, other) for other in SWAPPED[text])
        elif text in ("!", "-", "~") and not source[end].isspace():
            yield "operator", begin, end, ""
        elif text == "?":
            yield "condition", begin, begin, "&& false "
            yield "condition", begin, begin, "|| true "


def condition_changes(source, code):
    for match in re.finditer(r"\b(if|while|for) (?=\()", code):
        end, depth = match.end(), 0
        semicolons = [end]  # the parts of the head begin after the parenthesis and each semicolon
        while end == match.end() or depth > 0:
            depth += {"(": 1, ")": -1}.get(code[end], 0)
            semicolons += [end] if code[end] == ";" else []
            end += 1
        if match.group(1) != "for":
            begin, end = semicolons[-1] + 1, end - 1
        elif len(semicolons) == 3:
            begin, end = semicolons[1] + 1, semicolons[2]
        else:
            continue  # a loop over a range has no condition
        for text in ("!(" + source[begin:end].strip() + ")", "false", "true"):
            if text != "true" or match.group(1) == "if":  # "true" makes a loop endless
                yield "condition", begin, end, " " + text


def flag_changes(code):
    """Yields one change for each flag in `A | B`: the flag is left out."""
    for match in FLAGS.finditer(code):
        flags = list(re.finditer(FLAG, match.group()))
        for i, flag in enumerate(flags):
            begin, end = flag.span() if i == 0 else (flags[i - 1].end(), flag.end())
            end = flags[1].start() if i == 0 else end
            yield "flag", match.start() + begin, match.start() + end, ""


def statement_changes(source, code):
    """Yields the changes that leave out a statement or swap two adjacent calls."""
    before = None  # the begin and end of the previous statement, if it is a call
    for match in STATEMENT.finditer(code):
        begin, end = match.span(1)
        if LEFT_ALONE.match(match.group(1)):
            continue
        isCall = CALL.match(match.group(1)) is not None
        yield "call" if isCall else "statement", begin, end, ""
        if isCall and before is not None and code[before[1]:begin].strip() == ";":
            yield ("order", before[0], end,
                   source[begin:end] + source[before[1]:begin] + source[slice(*before)])
        before = (begin, end) if isCall else None


def changes(source):
    """Yields all changes of a source: kind, begin, end, replacement. Blanks comments and string
    literals first, because they may look like code."""
    blank = {"skip": " ", "text": "_", "char": "_"}
    code = TOKEN.sub(lambda token: re.sub(r"[^\n]", blank[token.lastgroup], token.group())
                     if token.lastgroup in blank else token.group(), source)
    yield from token_changes(source)
    yield from condition_changes(source, code)
    yield from flag_changes(code)
    yield from statement_changes(source, code)


def described(file, source, kind, begin, end, text):
    line = source.count("\n", 0, begin)
    return {"id": hashlib.sha256(repr((source, begin, end, text)).encode()).hexdigest()[:16],
            "file": file, "line": line + 1, "kind": kind, "place": [begin, end],
            "was": source[begin:end], "is": text, "where": source.splitlines()[line].strip()}


def drawn(base, files):
    """Yields all changes in turn: one of each class (a header and its source) and each kind."""
    groups = collections.defaultdict(list)
    for file in files:
        source = (base / file).read_text()
        for change in changes(source):
            groups[pathlib.Path(file).stem, change[0]].append(described(file, source, *change))
    for group in groups.values():
        group.sort(key=lambda change: change["id"])  # random, but the same in every run
    while groups:
        for name in list(groups):
            yield groups[name].pop()
            if not groups[name]:
                del groups[name]
