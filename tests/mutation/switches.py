# SPDX-License-Identifier: Apache-2.0
"""Rewrites source files so that changes are made at run time: see switches.h."""
import json
import os
import re
import shlex

import clang.cindex

FUNCTIONS = {
    "==": "equal", "!=": "unequal", "<": "less", "<=": "at_most", ">": "greater", ">=": "at_least", "+": "plus",
    "-": "minus", "*": "times", "/": "by", "%": "rest", "<<": "left", ">>": "right", "&": "bits_and", "|": "bits_or",
    "+=": "add",
}


class Site:
    """An expression or statement with one or two changes: texts to insert around it and tokens to replace."""

    def __init__(self, changes, start, end, opening, closing, replaced=(), inner=()):
        self.changes, self.start, self.end = changes, start, end
        self.opening, self.closing = opening, closing
        self.replaced = replaced  # (start, end, text)
        self.inner = inner  # (offset, text)
        self.span = (0, 0)  # in the written text


def expressions(compile_commands, tree):
    """Parses the sources. Returns {path: {offset of an operator: (kind, start, end, end of its left operand, start of its
    right operand)}} and, with the key ("statement", start), the ends of statements."""
    index = clang.cindex.Index.create()
    found = {}
    texts = {}

    def text_of(path):
        if path not in texts:
            with open(os.path.join(tree, path), encoding="latin-1") as file:
                texts[path] = file.read()
        return texts[path]

    def visit(cursor, path):
        text = text_of(path)
        children = list(cursor.get_children())
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        here = found.setdefault(path, {})
        kind = cursor.kind
        parts = [(child.extent.start.offset, child.extent.end.offset) for child in children]
        if kind.is_expression() and len(parts) in (2, 3):
            left, right = parts[0], parts[-1]
            between = text[left[1]:right[0]]
            sign = re.sub(r"//[^\n]*", "", between).strip()
            if (sign in FUNCTIONS or sign in ("&&", "||")) and left[0] == start and right[1] == end:
                here.setdefault(left[1] + between.index(sign), ("binary", start, end, left[1], right[0]))
        if kind.is_expression() and parts and parts[-1][1] == end:
            sign = text[start:parts[-1][0]].strip()
            if sign in ("!", "++"):
                here.setdefault(start, ("not" if sign == "!" else "up", start, end, 0, 0))
        bodies = []
        if kind == clang.cindex.CursorKind.COMPOUND_STMT:
            bodies = children
        elif kind in (clang.cindex.CursorKind.IF_STMT, clang.cindex.CursorKind.FOR_STMT,
                      clang.cindex.CursorKind.WHILE_STMT, clang.cindex.CursorKind.CXX_FOR_RANGE_STMT,
                      clang.cindex.CursorKind.CASE_STMT, clang.cindex.CursorKind.DEFAULT_STMT):
            bodies = children[1:] if kind != clang.cindex.CursorKind.DEFAULT_STMT else children
        for body in bodies:
            if body.kind.is_expression() or body.kind == clang.cindex.CursorKind.CONTINUE_STMT:
                here.setdefault(("statement", body.extent.start.offset), body.extent.end.offset)
        for child in children:
            if child.location.file and child.extent.start.file and child.extent.start.file.name.endswith(path):
                visit(child, path)

    for command in compile_commands:
        words = shlex.split(command["command"])
        arguments = [word for word in words[1:-1] if word not in ("-c", "-o") and not word.endswith((".o", ".cpp"))]
        unit = index.parse(command["file"], args=["-x", "c++", *arguments])
        problems = [str(d) for d in unit.diagnostics if d.severity >= clang.cindex.Diagnostic.Error]
        if problems:
            raise RuntimeError("\n".join(problems[:3]))
        for cursor in unit.cursor.get_children():
            name = cursor.extent.start.file.name if cursor.extent.start.file else ""
            if name.startswith(tree + "/") and not name.startswith(tree + "/build"):
                visit(cursor, os.path.relpath(name, tree))
    return found


def sites_of(text, changes, known):
    """Returns the sites of a file's changes. `changes` are (number, Change), `known` is the file's part of expressions()."""
    sites = []
    by_token = {}
    for number, change in changes:
        by_token.setdefault((change.start, change.end, change.kind), []).append((number, change))
    strings = {}
    for (start, end, kind), group in sorted(by_token.items()):
        numbers = [number for number, _ in group]
        first = numbers[0]
        token = text[start:end]
        if kind == "statement":
            last = known.get(("statement", start))
            if last is not None and text[last:end].strip() == ";":
                sites.append(Site(numbers, start, end, "{ if (!change::on(%d)) { " % first, " } }"))
        elif kind == "number" or kind == "word" or token.startswith("'"):
            alternatives = ", ".join(change.replacement for _, change in group)
            sites.append(Site(numbers, start, end, "", "",
                              [(start, end, f"change::pick({first}, {token}, {alternatives})")]))
        elif kind == "string":
            strings[start] = (first, group[0][1])
        elif start in known:
            what, begin, finish, left_end, right_start = known[start]
            if what == "not":
                sites.append(Site(numbers, begin, finish, f"(change::on({first}) != ", ")"))
            elif what == "up":
                sites.append(Site(numbers, begin, finish, f"change::up({first}, ", ")", [(start, end, "")]))
            elif token in ("&&", "||"):
                on = f"change::on({first})"
                sites.append(Site(
                    numbers, begin, finish, f"((({on} != static_cast<bool>(", f"))) != {on})",
                    [(start, end, token)],
                    [(left_end, "))"), (right_start, f"({on} != static_cast<bool>(")]))
            elif token in FUNCTIONS:
                sites.append(Site(numbers, begin, finish, f"change::{FUNCTIONS[token]}({first}, ", ")",
                                  [(start, end, ",")]))
    # Adjacent literals are one text. To change several of them, the length must stay the same, because it is part of the type.
    literal = re.compile(r'"(?:\\.|[^"\\\n])*"')
    run_pattern = re.compile(r'"(?:\\.|[^"\\\n])*"(?:\s*"(?:\\.|[^"\\\n])*")*')
    done = 0
    for start in sorted(strings):
        if start < done:
            continue
        run = run_pattern.match(text, start)
        whole, done = run.group(), run.end()
        # An adjacent macro may be another literal.
        if re.match(r"\s*\w", text[done:done + 80]) or re.search(r"\b(?:PRI\w+|[A-Z]\w*)\s*$", text[max(0, start - 80):start]):
            continue
        written = whole.replace("\n", " ")
        numbers = []
        for part in literal.finditer(whole):
            at = start + part.start()
            if at in strings and (part.group() == whole or len(strings[at][1].replacement) == len(part.group())):
                number, change = strings[at]
                other = whole[:part.start()] + change.replacement + whole[part.end():]
                written = f"change::text({number}, {written}, {other})".replace("\n", " ")
                numbers.append(number)
        written += "\n" * whole.count("\n")
        if numbers:
            sites.append(Site(numbers, start, done, "", "", [(start, done, written)]))
    return sites


def write(text, sites):
    """Returns the rewritten text and sets the span of each site."""
    events = []
    for index, site in enumerate(sites):
        size = site.end - site.start
        if site.opening:
            events.append((site.start, 2, -size, site.opening, index, "start"))
        if site.closing:
            events.append((site.end, 0, size, site.closing, index, "end"))
        for offset, inserted in site.inner:
            # Close the left operand after the sites that end there; open the right one before the sites that begin there.
            events.append((offset, 0 if inserted == "))" else 2, size if inserted == "))" else -size, inserted, index, ""))
        for start, end, new in site.replaced:
            events.append((start, 3, 0, (end, new), index, "token"))
    events.sort(key=lambda event: event[:3])
    written, position, length = [], 0, 0

    def put(piece):
        nonlocal length
        written.append(piece)
        length += len(piece)

    for offset, _, _, what, index, role in events:
        if offset > position:
            put(text[position:offset])
            position = offset
        site = sites[index]
        if role == "start":
            site.span = (length, length)
        if role == "token":
            begin = length
            put(what[1])
            position = what[0]
            if not site.opening:
                site.span = (begin, length)
        else:
            put(what)
        if role == "end":
            site.span = (site.span[0], length)
    put(text[position:])
    return "".join(written)


def without_errors(log, tree, build, files):
    """Removes the sites for which `log` has compiler errors. Returns their number. `files` is {path: (text, sites)}."""
    dropped = 0
    places = set(re.findall(r"^(\S+?):(\d+):(\d+): +(?:error:|  required from)", log, re.M))
    places |= set(re.findall(r"^(\S+?):(\d+):(\d+): +required from", log, re.M))
    for name, line, column in places:
        path = os.path.relpath(os.path.normpath(os.path.join(build, name)), tree)
        if path not in files:
            continue
        text, sites = files[path]
        lines = text.split("\n")
        position = sum(len(row) + 1 for row in lines[:int(line) - 1])
        position += len(lines[int(line) - 1].encode()[:int(column) - 1].decode(errors="ignore"))
        around = [site for site in sites if site.span[0] <= position < site.span[1]]
        if around:
            guilty = [min(around, key=lambda site: site.span[1] - site.span[0])]
        else:
            row_end = position + len(lines[int(line) - 1])
            row_start = position - int(column)
            guilty = [site for site in sites if site.span[1] > row_start and site.span[0] < row_end]
        for site in guilty:
            if site in sites:
                sites.remove(site)
                dropped += 1
    return dropped


def read_commands(build):
    with open(os.path.join(build, "compile_commands.json"), encoding="latin-1") as file:
        return json.load(file)
