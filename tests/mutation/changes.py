# SPDX-License-Identifier: Apache-2.0
"""Finds the changes to try in the source files."""
import hashlib
import os
import re

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FOLDERS = ("filter", "files", "command_line", "raster", "simulator", "monitor", "monitor/views")

SWAPS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">"], "<=": ["<", ">"], ">": [">=", "<"], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "!": [""], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "<<": [">>"], ">>": ["<<"], "&": ["|"], "|": ["&"], "+=": ["-="], "++": ["--"],
    "true": ["false"], "false": ["true"],
}
TOKEN = re.compile(
    r'(?P<comment>//[^\n]*|/\*.*?\*/)|(?P<include>^[ \t]*#[^\n]*)|(?P<raw>R"(?P<end>\w*)\(.*?\)(?P=end)")'
    r'|(?P<string>"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\')'
    r"|(?P<number>\b(?:0[xX][0-9a-fA-F]+|[0-9](?:'?[0-9])*(?:\.[0-9]+)?)[uU]?\b)|(?P<word>[A-Za-z_]\w*)"
    r"|(?P<op><<=|>>=|\+\+|--|->|::|\+=|-=|==|!=|<=|>=|&&|\|\||<<|>>|[-+*/%<>!&|=])", re.M | re.S)
# A statement that can be removed: a call or an assignment on its own lines.
STATEMENT = re.compile(
    r"^[ \t]+(?!return\b|const\b|constexpr\b|static\b|using\b|auto\b|std::\w+<|std::array|case\b|break;|if\b|for\b|while\b"
    r"|[\w:]+ \w+(?:;| =|\{|\())[\w*+][^;{}]*;\n", re.M)

# The text before the 0 of a pure virtual function.
PURE = re.compile(r"virtual [^;{}]*\) (?:const )?= \Z")


class Change:
    """Replaces the text from `start` to `end` of a file. `kind` is the token's kind."""

    def __init__(self, path, text, start, end, replacement, kind):
        self.path, self.text, self.start, self.end = path, text, start, end
        self.replacement, self.kind = replacement, kind
        self.key = ""
        self.line = text.count("\n", 0, start) + 1

    def __str__(self):
        old = " ".join(self.text[self.start:self.end].split())
        before = self.text[:self.start].rsplit("\n", 1)[-1][-30:].strip()
        new = self.replacement.strip() or "nothing"
        return f"{self.path}\t{self.line}\t{old}\t{new}\tafter {before or 'the line before'}"

    def changed(self):
        return self.text[:self.start] + self.replacement + self.text[self.end:]


def is_operator(text, match):
    """Returns whether the token is an operator, not part of a type: it has blanks on both sides or is unary."""
    token, start, end = match.group(), match.start(), match.end()
    before, after = text[start - 1], text[end] if end < len(text) else " "
    if token == "!":
        return after.isalpha() or after == "("
    if token == "++":
        return True
    return before == " " and after in " \n"


def other_numbers(token):
    digits = token.rstrip("uU")
    suffix = token[len(digits):]
    if "." in digits:
        return [str(float(digits) + 1)]
    if digits[:2].lower() == "0x":
        return [f"0x{int(digits, 16) ^ 1:x}{suffix}"]
    if len(digits) > 1 and digits[0] == "0":
        return [f"0{int(digits, 8) ^ 1:o}{suffix}"]
    value = int(digits.replace("'", ""))
    return [f"{value + 1}{suffix}"] + ([f"{value - 1}{suffix}"] if value else [])


def other_texts(token):
    """Returns a text with a different first letter."""
    if token.startswith("'"):
        return ["'#'"] if len(token) == 3 else []
    if len(token) <= 3:
        return []
    if token[1] in "\\%":
        return ['"#' + token[1:]]
    return [token[:1] + ("#" if token[1] != "#" else "$") + token[2:]]


def changes_of(path):
    """Returns all changes of a file. Their keys do not depend on its comments and blanks."""
    found = list(found_changes(path))
    if found:
        code = TOKEN.sub(lambda match: "" if match.lastgroup == "comment" else match.group(), found[0].text)
        source = hashlib.sha256(" ".join(code.split()).encode()).hexdigest()[:12]
        for number, change in enumerate(found):
            change.key = "\t".join((path, source, str(number), " ".join(change.replacement.split())))
    return found


def found_changes(path):
    with open(os.path.join(TREE, path), encoding="latin-1") as file:
        text = file.read()
    # A test compares the reason table with a second list, and its 110 rows have the same kinds of changes: try a tenth.
    table = (text.find("PRINTER_STATE_REASONS[110] = {"), text.find("}},\n};")) if path.endswith("reasons.h") else (0, 0)
    # Skip the checks at compile time.
    asserts = text.find("namespace {") if path.endswith("printer_state_reasons.cpp") else len(text)
    rows = 0
    for match in TOKEN.finditer(text):
        kind, token = match.lastgroup, match.group()
        if match.start() >= asserts:
            break
        if table[0] < match.start() < table[1]:
            rows += 1
            if rows % 10:
                continue
        replacements = []
        if kind == "number" and not PURE.search(text, 0, match.start()):
            replacements = other_numbers(token)
        elif kind == "string":
            replacements = other_texts(token)
        elif kind in ("word", "op") and token in SWAPS and (kind == "word" or is_operator(text, match)):
            replacements = SWAPS[token]
        for replacement in replacements:
            yield Change(path, text, match.start(), match.end(), replacement, kind)
    for match in STATEMENT.finditer(text):
        start, end = match.start() + len(match.group()) - len(match.group().lstrip()), match.end() - 1
        if start < asserts and not table[0] < start < table[1]:
            yield Change(path, text, start, end, ";" + "\n" * text.count("\n", start, end), "statement")


def all_changes(only):
    for folder in FOLDERS:
        for name in sorted(os.listdir(os.path.join(TREE, folder))):
            path = f"{folder}/{name}"
            if name.endswith((".cpp", ".h")) and only in path:
                yield from changes_of(path)
