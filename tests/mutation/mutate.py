#!/usr/bin/env python3
"""Mutation test: changes one token of the filter's code at a time and sees whether a test fails.

Works in a copy of the tree, build/mutation. Every result is appended to build/mutation/results.tsv; a second run
goes on where the first one ended. Prints a table a file and all survivors.

Usage: tests/mutation/run [--fresh] [--list] [--only FILE] [--jobs N]
"""
import argparse
import os
import re
import shutil
import subprocess
import sys

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
COPY = os.path.join(TREE, "build", "mutation")
BUILD = os.path.join(COPY, "build")
RESULTS = os.path.join(COPY, "results.tsv")
FOLDERS = ("filter", "status", "levels", "debug")
UNIT_TESTS = ("unit_status", "unit_levels", "unit_debug", "unit_exchange", "unit_raster", "unit_state_cleanup")
# What waits for the filter's own half minute is left out.
CHANNEL_FILTER = "-*NeverAnswered*"
TIME_LIMIT = 60

SWAPS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">"], "<=": ["<", ">"], ">": [">=", "<"], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "!": [""], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "<<": [">>"], ">>": ["<<"], "&": ["|"], "|": ["&"], "+=": ["-="], "++": ["--"],
    "true": ["false"], "false": ["true"],
}
TOKEN = re.compile(
    r'(?P<comment>//[^\n]*|/\*.*?\*/)|(?P<include>^[ \t]*#[^\n]*)|(?P<string>"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\')'
    r"|(?P<number>\b(?:0[xX][0-9a-fA-F]+|[0-9]+(?:\.[0-9]+)?)[uU]?\b)|(?P<word>[A-Za-z_]\w*)"
    r"|(?P<op><<=|>>=|\+\+|--|->|::|\+=|-=|==|!=|<=|>=|&&|\|\||<<|>>|[-+*/%<>!&|=])", re.M | re.S)
# A statement that can be left out: a call or an assignment on lines of its own.
STATEMENT = re.compile(r"^[ \t]+(?!return\b|const\b|constexpr\b|static\b|using\b|auto\b|std::\w+<|std::array|case\b|break;|if\b|for\b|while\b|[\w:]+ \w+(?:;| =|\{|\())"
                       r"[\w*+][^;{}]*;\n", re.M)


def is_operator(text, match):
    """An operator with blanks on both sides, or a unary one before a word: not a template's or a type's sign."""
    token, start, end = match.group(), match.start(), match.end()
    before, after = text[start - 1], text[end] if end < len(text) else " "
    if token == "!":
        return after.isalpha() or after == "("
    if token == "++":
        return True
    return before == " " and after in " \n"


def mutants_of(path):
    """(start, end, replacement) of every single-token change."""
    text = open(os.path.join(TREE, path), encoding="utf-8").read()
    found = []
    # The table's rows are compared with a list of their own; its rows are 110 times the same mutations.
    table = (text.find("PRINTER_STATE_REASONS = {{"), text.find("}};")) if path.endswith("reasons.h") else (0, 0)
    asserts = text.find("namespace {") if path.endswith("printer_state_reasons.cpp") else len(text)
    rows = 0
    for match in TOKEN.finditer(text):
        kind, token = match.lastgroup, match.group()
        if match.start() >= asserts:
            break  # checks at compile time, not code that runs
        if table[0] < match.start() < table[1]:
            rows += 1
            if rows % 10:
                continue  # a tenth of the table
        if kind == "number":
            digits = token.rstrip("uU")
            suffix = token[len(digits):]
            if "." in digits:
                replacements = [str(float(digits) + 1)]
            elif digits[:2].lower() == "0x":
                replacements = [f"0x{int(digits, 16) ^ 1:x}"]
            else:
                value = int(digits)
                replacements = [str(value + 1)] + ([str(value - 1)] if value else [])
            found += [(match.start(), match.end(), r + suffix) for r in replacements]
        elif kind == "string" and token.startswith('"') and len(token) > 3:
            # A letter of the text, or its last character.
            found.append((match.start(), match.end(), token[:1] + ("#" if token[1] != "#" else "$") + token[2:])
                         if token[1] not in "\\%" else (match.start(), match.end(), '"#' + token[1:]))
        elif kind == "string" and token.startswith("'") and len(token) == 3:
            found.append((match.start(), match.end(), "'#'"))
        elif token in SWAPS and (kind == "word" or is_operator(text, match)):
            found += [(match.start(), match.end(), r) for r in SWAPS[token]]
    for match in STATEMENT.finditer(text):
        if match.start() < asserts and not table[0] < match.start() < table[1]:
            found.append((match.start(), match.end(), ""))
    return text, found


def describe(text, start, end, replacement):
    line = text.count("\n", 0, start + (len(text[start:end]) - len(text[start:end].lstrip()))) + 1
    old = " ".join(text[start:end].split())
    return f"{line}\t{old}\t{replacement or 'nothing'}"


def run(words, **more):
    return subprocess.run(words, cwd=COPY, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **more).returncode


def configure():
    run(["cmake", "-G", "Ninja", "-S", COPY, "-B", BUILD, "-DCMAKE_BUILD_TYPE=Debug", "-DBUILD_TESTING=ON",
         "-DCMAKE_CXX_FLAGS=-O1 -w"], check=True)


def build(targets, jobs):
    return run(["ninja", "-C", BUILD, "-j", str(jobs), *targets]) == 0


def killer(targets, jobs):
    """What noticed the change: a test program, the compiler, or None."""
    if not build(targets, jobs):
        return "compiler"
    for name in UNIT_TESTS:
        try:
            if run([os.path.join(BUILD, "tests", "unit", name), "--gtest_brief=1"], timeout=TIME_LIMIT):
                return name
        except subprocess.TimeoutExpired:
            return name + " (time)"
    shards = 8
    programs = [subprocess.Popen([os.path.join(BUILD, "tests", "channel", "channel"), "--gtest_brief=1",
                                  "--gtest_filter=" + CHANNEL_FILTER],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                 env=dict(os.environ, GTEST_TOTAL_SHARDS=str(shards), GTEST_SHARD_INDEX=str(i)))
                for i in range(shards)]
    verdict = None
    for program in programs:
        try:
            if program.wait(timeout=TIME_LIMIT):
                verdict = "channel"
        except subprocess.TimeoutExpired:
            program.kill()
            program.wait()
            verdict = "channel (time)"
    return verdict


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--fresh", action="store_true", help="forget earlier results")
    parser.add_argument("--list", action="store_true", help="only list the mutants")
    parser.add_argument("--only", default="", help="only files whose path holds this")
    parser.add_argument("--jobs", type=int, default=2)
    options = parser.parse_args()

    files = [os.path.join(folder, name) for folder in FOLDERS for name in sorted(os.listdir(os.path.join(TREE, folder)))
             if name.endswith((".cpp", ".h"))]
    files = [path for path in files if options.only in path]
    mutants = [(path, text, *m) for path in files for text, found in [mutants_of(path)] for m in found]
    if options.list:
        for path, text, *m in mutants:
            print(path, describe(text, *m), sep="\t")
        print(len(mutants), "mutants")
        return 0

    if options.fresh and os.path.exists(RESULTS):
        os.remove(RESULTS)
    os.makedirs(COPY, exist_ok=True)
    for name in subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=TREE, capture_output=True, text=True,
                               check=True).stdout.split():
        target = os.path.join(COPY, name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        source = os.path.join(TREE, name)
        if not os.path.exists(target) or open(source, "rb").read() != open(target, "rb").read():
            shutil.copy(source, target)
    configure()
    targets = ["channel", "commandtobrenvellis", *UNIT_TESTS]
    if not build(targets, options.jobs) or killer(targets, options.jobs):
        sys.exit("the tests fail without a mutation")

    known = {}
    if os.path.exists(RESULTS):
        for line in open(RESULTS, encoding="utf-8"):
            *key, verdict = line.rstrip("\n").split("\t")
            known["\t".join(key)] = verdict
    for path, text, start, end, replacement in mutants:
        key = f"{path}\t{describe(text, start, end, replacement)}\t{text[max(0, start - 30):start].split(chr(10))[-1].strip()}"
        if key in known:
            continue
        target = os.path.join(COPY, path)
        with open(target, "w", encoding="utf-8") as file:
            file.write(text[:start] + replacement + text[end:])
        known[key] = killer(targets, options.jobs) or "SURVIVED"
        with open(target, "w", encoding="utf-8") as file:
            file.write(text)
        with open(RESULTS, "a", encoding="utf-8") as file:
            file.write(f"{key}\t{known[key]}\n")

    current = {f"{path}\t{describe(text, s, e, r)}\t{text[max(0, s - 30):s].split(chr(10))[-1].strip()}"
               for path, text, s, e, r in mutants}
    known = {key: verdict for key, verdict in known.items() if key in current}
    print("| file | mutants | killed by the compiler | by a test | survived |\n|---|---|---|---|---|")
    rows = {}
    for key, verdict in known.items():
        row = rows.setdefault(key.split("\t")[0], [0, 0, 0])
        row[0 if verdict == "compiler" else 2 if verdict == "SURVIVED" else 1] += 1
    for path, row in sorted(rows.items()) + [("all", [sum(r[i] for r in rows.values()) for i in range(3)])]:
        print(f"| {path} | {sum(row)} | {row[0]} | {row[1]} | {row[2]} |")
    compiled = [v for v in known.values() if v != "compiler"]
    killed = sum(v != "SURVIVED" for v in compiled)
    print(f"\nKilled: {100 * killed / max(1, len(compiled)):.1f} % of those that compile, "
          f"{100 * (len(known) - len(compiled) + killed) / max(1, len(known)):.1f} % of all.")
    for key, verdict in known.items():
        if verdict == "SURVIVED":
            print("survived:", key.replace("\t", " | "))
    return 0


if __name__ == "__main__":
    sys.exit(main())
