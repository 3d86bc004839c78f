#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Does what tests/mutation/run says."""
import argparse
import atexit
import hashlib
import json
import os
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FOLDER = os.path.join(TREE, "build", "mutation")
RESULTS = os.path.join(FOLDER, "results.tsv")
# The files that are changed, by the beginning of their paths.
CHANGED = ("filter/", "raster/band_image_capture.", "raster/page_header_dump.", "raster/raster_names.")
UNIT_TESTS = ("unit_filter", "unit_exchange", "unit_state_cleanup", "unit_raster")
# Tests that wait for the 30 seconds of the probe are excluded.
CHANNEL_FILTER = "-*NeverAnswered*"
SHARDS = 12
TIME_LIMIT = 120
BUILD_LIMIT = 600

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
STATEMENT = re.compile(
    r"^[ \t]+(?!return\b|const\b|constexpr\b|static\b|using\b|auto\b|std::\w+<|std::array|case\b|break;|if\b|for\b|while\b"
    r"|[\w:]+ \w+(?:;| =|\{|\())[\w*+][^;{}]*;\n", re.M)


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
    table = (text.find("PRINTER_STATE_REASONS[110] = {"), text.find("}},\n};")) if path.endswith("reasons.h") else (0, 0)
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


def line_of(text, start, end):
    return text.count("\n", 0, start + (len(text[start:end]) - len(text[start:end].lstrip()))) + 1


class Mutant:
    """One change: `replacement` for the bytes from `start` to `end` of a file."""

    def __init__(self, path, text, start, end, replacement):
        self.path, self.text, self.start, self.end, self.replacement = path, text, start, end, replacement
        source = hashlib.sha256(text.encode()).hexdigest()[:12]
        self.key = "\t".join((path, source, str(start), str(end), replacement.strip()))
        self.line = line_of(text, start, end)

    def __str__(self):
        old = " ".join(self.text[self.start:self.end].split())
        before = self.text[:self.start].rsplit("\n", 1)[-1][-30:].strip()
        return f"{self.path}\t{self.line}\t{old}\t{self.replacement or 'nothing'}\tafter {before or 'the line before'}"

    def mutated(self):
        return self.text[:self.start] + self.replacement + self.text[self.end:]


def mutants(only):
    for folder in sorted({os.path.dirname(beginning) for beginning in CHANGED}):
        for name in sorted(os.listdir(os.path.join(TREE, folder))):
            path = f"{folder}/{name}"
            if path.startswith(CHANGED) and name.endswith((".cpp", ".h")) and only in path:
                text, found = mutants_of(path)
                yield from (Mutant(path, text, *change) for change in found)


class Worker:
    """A copy of the tree with a build folder of its own."""

    def __init__(self, number):
        self.tree = os.path.join(FOLDER, str(number))
        self.build = os.path.join(self.tree, "build")
        self.units = [os.path.join(self.build, "tests", "unit", name) for name in UNIT_TESTS]
        self.channel = os.path.join(self.build, "tests", "channel", "channel")
        self.filter = os.path.join(self.build, "filter", "commandtobrenvellis")
        self.original = {}

    def prepare(self, sources):
        for name in sources:
            target = os.path.join(self.tree, name)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            if not os.path.exists(target) or read(os.path.join(TREE, name)) != read(target):
                shutil.copy(os.path.join(TREE, name), target)
        # Optimised as what is shipped, so that a change without any effect gives the same program.
        self.call(["cmake", "-G", "Ninja", "-S", self.tree, "-B", self.build, "-DCMAKE_BUILD_TYPE=Release",
                   "-DBUILD_TESTING=ON", "-DCMAKE_CXX_FLAGS=-w", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld",
                   "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"])
        if self.call(["ninja", "-C", self.build, "-j", str(os.cpu_count()), *UNIT_TESTS, "channel"], None) != 0:
            sys.exit(f"the tests do not build without a change; see ninja -C {self.build}")
        self.original = {program: digest(program) for program in (*self.units, self.channel, self.filter)}

    def fails_unchanged(self):
        """Whether a test fails without a change; a success is remembered for the same programs."""
        passed = os.path.join(self.tree, "passed")
        programs = json.dumps(self.original)
        if os.path.exists(passed) and read(passed).decode() == programs:
            return False
        if any(self.call([unit, "--gtest_brief=1"]) for unit in self.units) or self.channel_fails():
            return True
        with open(passed, "w", encoding="utf-8") as file:
            file.write(programs)
        return False

    def verdict(self, mutant):
        """The test that detected the change; SAME if the program is the same, SURVIVED if no test did."""
        target = os.path.join(self.tree, mutant.path)
        with open(target, "w", encoding="utf-8") as file:
            file.write(mutant.mutated())
        try:
            return self.verdict_on_tree()
        finally:
            with open(target, "w", encoding="utf-8") as file:
                file.write(mutant.text)

    def verdict_on_tree(self):
        same = True
        for name, unit in zip(UNIT_TESTS, self.units):
            if not self.builds(name):
                return "compiler"
            if digest(unit) != self.original[unit]:
                same = False
                status = self.call([unit, "--gtest_brief=1", "--gtest_fail_fast"])
                if status != 0:
                    return name + (" (time)" if status is None else "")
        if not self.builds("commandtobrenvellis"):
            return "compiler"
        if digest(self.filter) != self.original[self.filter]:
            return self.channel_fails() or "SURVIVED"
        return "SAME" if same else "SURVIVED"

    def builds(self, target):
        return self.call(["ninja", "-C", self.build, "-j", "1", target], BUILD_LIMIT) == 0

    def channel_fails(self):
        """Runs the channel tests, which mostly wait, at the same time; ends the others when one fails."""
        shards = []
        for index in range(SHARDS):
            shard = os.environ | {"GTEST_TOTAL_SHARDS": str(SHARDS), "GTEST_SHARD_INDEX": str(index)}
            shards.append(Process([self.channel, "--gtest_fail_fast", "--gtest_filter=" + CHANNEL_FILTER], shard))
        verdict = None
        end = time.monotonic() + TIME_LIMIT
        while shards and not verdict:
            time.sleep(0.05)
            for shard in [shard for shard in shards if shard.status() is not None]:
                shards.remove(shard)
                if shard.status() != 0:
                    verdict = self.confirmed(shard.failed_test())
            if time.monotonic() > end:
                verdict = "channel (time)"
        for shard in shards:
            shard.end()
        return verdict

    def confirmed(self, test):
        """On a busy machine a filter may give up on a test that is late: only what fails twice has failed."""
        if not test or self.call([self.channel, "--gtest_filter=" + test]) != 0:
            return "channel" + (": " + test if test else "")
        return None

    def call(self, words, limit=TIME_LIMIT):
        """The exit status; None at the time limit."""
        return Process(words).wait(limit)


class Process:
    """A process group that ends with this program."""
    running = set()

    def __init__(self, words, environment=None):
        self.output = tempfile.TemporaryFile()
        self.process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=self.output,
                                        stderr=subprocess.STDOUT, env=environment, start_new_session=True)
        Process.running.add(self)

    def status(self):
        return self.process.poll()

    def wait(self, limit):
        try:
            return self.process.wait(limit)
        except subprocess.TimeoutExpired:
            return None
        finally:
            self.end()

    def end(self):
        """Ends it and what it started."""
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()
        Process.running.discard(self)

    def failed_test(self):
        self.output.seek(0)
        found = re.search(rb"\[  FAILED  \] ([\w./]+)", self.output.read())
        return found.group(1).decode() if found else None


def read(path):
    with open(path, "rb") as file:
        return file.read()


def digest(program):
    return hashlib.sha256(read(program)).hexdigest()


def read_results():
    if not os.path.exists(RESULTS):
        return {}
    with open(RESULTS, encoding="utf-8") as file:
        return dict(line.rstrip("\n").rsplit("\t", 1) for line in file)


def report(tried, total):
    print("| file | changes | do not compile | killed | same program | survived |\n|---|---|---|---|---|---|")
    rows = {}
    for mutant, verdict in tried:
        row = rows.setdefault(mutant.path, [0, 0, 0, 0])
        row[{"compiler": 0, "SAME": 2, "SURVIVED": 3}.get(verdict, 1)] += 1
    rows["all"] = [sum(row[i] for row in rows.values()) for i in range(4)]
    for path, row in rows.items():
        print(f"| {path} | {sum(row)} | " + " | ".join(map(str, row)) + " |")
    _, killed, same, survived = rows["all"]
    of_compiled = 100 * killed / max(1, killed + same + survived)
    of_changed = 100 * killed / max(1, killed + survived)
    print(f"\n{len(tried)} of {total} changes tried; of those that compile {of_compiled:.1f} % killed, of those that "
          f"change a program {of_changed:.1f} %.\n")
    for mutant, verdict in tried:
        if verdict in ("SAME", "SURVIVED"):
            print(f"{verdict}\t{mutant}")


def main():
    parser = argparse.ArgumentParser(usage="tests/mutation/run --help tells", add_help=False)
    parser.add_argument("--minutes", type=float, default=float("inf"))
    parser.add_argument("--only", default="")
    parser.add_argument("--workers", type=int, default=3)
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--fresh", action="store_true")
    parser.add_argument("--list", action="store_true")
    options = parser.parse_args()
    begin = time.monotonic()

    everything = list(mutants(options.only))
    if options.list:
        print(*everything, f"{len(everything)} changes", sep="\n")
        return 0

    # A changed loop must not use up all memory.
    resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))
    resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda number, _: sys.exit(128 + number))
    atexit.register(lambda: [process.end() for process in list(Process.running)])

    os.makedirs(FOLDER, exist_ok=True)
    if options.fresh and os.path.exists(RESULTS):
        os.remove(RESULTS)
    results = read_results()
    left = [mutant for mutant in everything if mutant.key not in results or
            (options.again and results[mutant.key] == "SURVIVED")]

    if left:
        sources = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=TREE, capture_output=True,
                                 text=True, check=True).stdout.splitlines()
        workers = [Worker(i) for i in range(min(options.workers, len(left)))]
        for worker in workers:
            worker.prepare(sources)
        if workers[0].fails_unchanged():
            sys.exit("a test fails without a change")
        lock = threading.Lock()

        def work(worker):
            while time.monotonic() < begin + 60 * options.minutes:
                with lock:
                    if not left:
                        return
                    mutant = left.pop(0)
                verdict = worker.verdict(mutant)
                with lock:
                    results[mutant.key] = verdict
                    with open(RESULTS, "a", encoding="utf-8") as file:
                        file.write(f"{mutant.key}\t{verdict}\n")

        threads = [threading.Thread(target=work, args=[worker], daemon=True) for worker in workers]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    tried = [(mutant, results[mutant.key]) for mutant in everything if mutant.key in results]
    report(tried, len(everything))
    return 0 if len(tried) == len(everything) else 1


if __name__ == "__main__":
    sys.exit(main())
