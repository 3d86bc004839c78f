#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Implements tests/mutation/run."""
import argparse
import atexit
import concurrent.futures
import hashlib
import json
import math
import os
import random
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True
import switches
from changes import FOLDERS, TREE, all_changes

FOLDER = os.path.join(TREE, "build", "mutation")
RESULTS = os.path.join(FOLDER, "results.tsv")
DROPPED = os.path.join(FOLDER, "dropped")

# The programs that contain a folder's code, and the test programs that run it.
PROGRAMS = {
    "filter": ["filter/commandtobrenvellis"],
    "files": ["monitor/brenvellis-monitor", "raster/brenvellis-rasterdump"],
    "command_line": ["simulator/brenvellis-simulator"],
    "raster": ["raster/brenvellis-rasterdump"],
    "simulator": ["simulator/brenvellis-simulator"],
    "monitor": ["monitor/brenvellis-monitor"],
}
TESTS = {
    "filter": ["unit/unit_filter", "unit/unit_exchange", "unit/unit_state_cleanup", "channel/channel"],
    "files": ["unit/unit_monitor", "raster/rasterdump"],
    "command_line": ["unit/unit_command_line", "simulator/simulator_process_test"],
    "raster": ["unit/unit_raster", "raster/rasterdump", "raster/rasterdump_memory"],
    "simulator": ["simulator/simulator_unit_test", "simulator/simulator_process_test"],
    "monitor": ["unit/unit_monitor", "monitor/monitor", "monitor/monitor_server"],
}
# Test programs that contain the code. The others start the programs.
UNIT_TESTS = ("unit/unit_filter", "unit/unit_exchange", "unit/unit_state_cleanup", "unit/unit_raster",
              "unit/unit_command_line", "unit/unit_monitor", "simulator/simulator_unit_test")
# Seconds. Unit tests up to FAST run together, in one process per program. Tests above SLOWEST are left out.
FAST, SLOWEST = 4, 30
# Seconds that the other tests of one change may take, measured without a change.
SLOW_BUDGET = 60
# Seconds after which the other tests of a program are split into several processes.
BATCH = 3
BUILD_LIMIT = 600

# Each run has its own process ids, its own /tmp and a read-only /dev, since a change may kill processes and remove files.
SANDBOX = ["unshare", "--pid", "--fork", "--kill-child", "--mount", "--mount-proc", "sh", "-c",
           'mount -t tmpfs -o size=3g tmpfs /tmp && mount -o remount,bind,ro /dev || exit 99; '
           'while [ "$1" != -- ]; do mount --bind "$1" "$2" || exit 99; shift 2; done; shift; exec "$@"', "sh"]


class Process:
    """A process group that is killed when this program exits."""
    running = set()

    def __init__(self, words, environment=None):
        self.output = tempfile.TemporaryFile()
        self.process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=self.output,
                                        stderr=subprocess.STDOUT, env=environment, start_new_session=True)
        Process.running.add(self)

    def wait(self, limit):
        """The exit status; None at the time limit."""
        try:
            return self.process.wait(limit)
        except subprocess.TimeoutExpired:
            return None
        finally:
            self.end()

    def end(self):
        """Kills the process group."""
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()
        Process.running.discard(self)

    def text(self):
        self.output.seek(0)
        return self.output.read().decode(errors="replace")

    def failed_test(self):
        found = re.search(r"\[  FAILED  \] ([\w./]+)", self.text())
        return found.group(1) if found else None


def call(words, limit=BUILD_LIMIT):
    return Process(words).wait(limit)


def read(path):
    with open(path, "rb") as file:
        return file.read()


def digest(*paths):
    return hashlib.sha256(b"".join(hashlib.sha256(read(path)).digest() for path in paths)).hexdigest()


def write_if_new(path, data):
    if not os.path.exists(path) or read(path) != data:
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(data)


class Tree:
    """A copy of the sources with a build folder of its own."""

    def __init__(self, name, flags):
        self.path = os.path.join(FOLDER, name)
        self.build = os.path.join(self.path, "build")
        self.flags = flags

    def prepare(self, sources, kept=()):
        """Copies `sources`, {path: bytes}. Existing files whose path begins with one of `kept` are not overwritten."""
        for path, data in sources.items():
            target = os.path.join(self.path, path)
            if not (kept and path.startswith(kept)) or not os.path.exists(target):
                write_if_new(target, data)
                os.chmod(target, os.stat(os.path.join(TREE, path)).st_mode)
        for folder, _, names in os.walk(self.path):
            if not folder.startswith(self.build):
                for name in names:
                    path = os.path.relpath(os.path.join(folder, name), self.path)
                    if path not in sources:
                        os.remove(os.path.join(folder, name))
        configure = Process(["cmake", "-G", "Ninja", "-S", self.path, "-B", self.build, "-DBUILD_TESTING=ON",
                             "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON",
                             "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST", *self.flags])
        if configure.wait(BUILD_LIMIT) != 0:
            sys.exit("cmake failed:\n" + configure.text())

    def ninja(self, targets, jobs=1, keep_going=False):
        """(success, output)"""
        process = Process([*os.environ.get("NINJA", "ninja").split(), "-C", self.build, "-j", str(jobs), *(["-k", "0"] if keep_going else []), *targets])
        return process.wait(3600) == 0, process.text()

    def file(self, name):
        return os.path.join(self.build, name)


class Test:
    """A test, its duration, and the numbers of the changes that it reaches."""

    def __init__(self, program, name, seconds, reached):
        self.program, self.name, self.seconds, self.reached = program, name, seconds, reached
        self.unit = program in UNIT_TESTS
        self.fast = self.unit and seconds < FAST


class Change:
    """A numbered change. `switched`: it can be made at run time."""

    def __init__(self, number, change):
        self.number, self.change = number, change
        self.switched = False

    @property
    def folder(self):
        return self.change.path.split("/")[0]


class Switched:
    """The build that contains all changes, each made at run time, and its tests."""

    def __init__(self, folders, jobs, unit):
        self.tree = Tree("switched-" + "-".join(folders), ["-DCMAKE_BUILD_TYPE=Debug", "-DBRENVELLIS_STATIC_RUNTIME=OFF",
                                      f"-DCMAKE_CXX_FLAGS=-w -O0 -include {TREE}/tests/mutation/switches.h"])
        self.folders, self.jobs, self.unit = folders, jobs, unit
        self.tests = []
        self.invalid = set()

    def known(self, paths, texts):
        """Returns the syntax of the files: see switches.expressions. The results are cached."""
        cache = {path: os.path.join(FOLDER, "known", f"{path.replace('/', '-')}.{hashlib.sha256(texts[path]).hexdigest()[:16]}")
                 for path in paths}
        missing = [path for path in paths if not os.path.exists(cache[path])]
        if missing:
            # The sources are those of this tree, but generated headers are in the build folder.
            text = read(self.tree.file("compile_commands.json")).decode()
            commands = json.loads(re.sub(re.escape(self.tree.path) + r"(?!/build\b|[^/ ])", TREE, text))
            folders = {os.path.dirname(path) for path in missing if path.endswith(".h")}
            wanted = [command for command in commands if (path := os.path.relpath(command["file"], TREE)) in missing or
                      os.path.dirname(path) in folders]
            for command in wanted:
                command["command"] = re.sub(r"-include \S+", "", command["command"])
            seen = set()
            wanted = [command for command in wanted if not (command["file"] in seen or seen.add(command["file"]))]
            found = switches.expressions(wanted, TREE)
            os.makedirs(os.path.join(FOLDER, "known"), exist_ok=True)
            for path in missing:
                with open(cache[path], "w", encoding="utf-8") as file:
                    json.dump([[key, value] for key, value in found.get(path, {}).items()], file)
        return {path: {tuple(key) if isinstance(key, list) else key: value
                       for key, value in json.loads(read(cache[path]))} for path in paths}

    def prepare(self, sources, changes):
        self.tree.prepare(sources, tuple(folder + "/" for folder in FOLDERS))
        by_path = {}
        for change in changes:
            by_path.setdefault(change.change.path, []).append(change)
        known = self.known(list(by_path), sources)
        dropped = set(read(DROPPED).decode().split("\n")) if os.path.exists(DROPPED) else set()
        files = {}
        keys = {change.number: change.change.key for change in changes}
        for path, group in by_path.items():
            text = sources[path].decode("latin-1")
            sites = switches.sites_of(text, [(change.number, change.change) for change in group], known[path])
            sites = [site for site in sites if not any(keys[number] in dropped for number in site.changes)]
            files[path] = [text, sites]
        programs = sorted({program for folder in self.folders for program in PROGRAMS[folder]})
        while True:
            written = {}
            for path, (text, sites) in files.items():
                written[path] = (switches.write(text, sites), sites)
            self.tree.prepare(sources | {path: text.encode("latin-1") for path, (text, _) in written.items()})
            good, log = self.tree.ninja([os.path.basename(name) for name in programs], self.jobs, True)
            if good:
                break
            before = {number for _, sites in files.values() for site in sites for number in site.changes}
            count = switches.without_errors(log, self.tree.path, self.tree.build, written)
            after = {number for _, sites in files.values() for site in sites for number in site.changes}
            if count == 0:
                sys.exit("the switched programs do not build:\n" + log[-5000:])
            with open(DROPPED, "a", encoding="utf-8") as file:
                file.writelines(keys[number] + "\n" for number in before - after)
            print(f"{count} places cannot be switched", file=sys.stderr)
        switched = {number for _, sites in files.values() for site in sites for number in site.changes}
        for change in changes:
            change.switched = change.number in switched
        tests = sorted({test for folder in self.folders for test in TESTS[folder] if test in UNIT_TESTS or not self.unit})
        good, log = self.tree.ninja([os.path.basename(test) for test in tests], self.jobs)
        if not good:
            sys.exit("the tests do not build with switches:\n" + log[-5000:])
        print(f"{len(switched)} of {len(changes)} changes are switched", file=sys.stderr)
        self.record(tests, programs, max(change.number for change in changes) + 1)

    def record(self, tests, programs, size):
        """Runs every test once without a change and records which changes it reaches."""
        os.makedirs(os.path.join(FOLDER, "reached"), exist_ok=True)

        def one(program, name, key):
            kept = os.path.join(FOLDER, "reached", key)
            if not os.path.exists(kept):
                file = kept + ".new"
                with open(file, "wb") as out:
                    out.truncate(size)
                os.chmod(file, 0o666)
                begin = time.monotonic()
                status, process = self.run(program, [name], 180, {"BRENVELLIS_REACHED": file})
                seconds = time.monotonic() - begin
                if status != 0:
                    os.remove(file)
                    print(f"fails without a change: {program} {name}: {status}\n{process.text()[-1500:]}", file=sys.stderr)
                    return None
                bytes_ = read(file)
                with open(kept + ".t", "w", encoding="utf-8") as out:
                    json.dump({"seconds": seconds,
                               "reached": [i for i, b in enumerate(bytes_) if b == 1],
                               "invalid": [i for i, b in enumerate(bytes_) if b == 2]}, out)
                os.remove(file)
                os.rename(kept + ".t", kept)
            data = json.loads(read(kept))
            self.invalid |= set(data["invalid"])
            return Test(program, name, data["seconds"], frozenset(data["reached"]))

        jobs = []
        for test in tests:
            own = digest(*(self.tree.file("tests/" + test if name is None else name) for name in [None, *(
                [] if test in UNIT_TESTS else programs)]))[:16]
            for name in self.names(test):
                jobs.append((test, name, hashlib.sha256(f"{own} {test} {name}".encode()).hexdigest()[:24]))
        with concurrent.futures.ThreadPoolExecutor(max(4, self.jobs)) as pool:
            self.tests = [test for test in pool.map(lambda job: one(*job), jobs) if test]
        left_out = [test.program + " " + test.name for test in self.tests if test.seconds > SLOWEST]
        if left_out:
            print("left out because of their duration:", *left_out, sep="\n  ", file=sys.stderr)
        self.tests = [test for test in self.tests if test.seconds <= SLOWEST]

    def names(self, test):
        process = Process([self.tree.file("tests/" + test), "--gtest_list_tests"])
        process.wait(60)
        suite = ""
        for line in process.text().split("\n"):
            if line.startswith("  "):
                yield suite + line.split("#")[0].strip()
            elif line.split("#")[0].strip().endswith("."):
                suite = line.split("#")[0].strip()

    def run(self, program, names, limit, environment, bound=()):
        """Runs some tests of a program. Returns the exit status, None at the time limit, and the process."""
        words = [self.tree.file("tests/" + program), "--gtest_brief=1", "--gtest_fail_fast",
                 "--gtest_filter=" + ":".join(names)]
        process = Process([*SANDBOX, *bound, "--", *words], os.environ | {"TMPDIR": "/tmp"} | environment)
        return process.wait(limit), process

    def first_failure(self, tests, environment, bound=()):
        """Returns the first test that fails; None if none fails."""
        programs = {}
        for test in tests:
            if test.fast:
                programs.setdefault(test.program, []).append(test)
        for program, group in programs.items():
            limit = 15 + 20 * sum(test.seconds for test in group)
            status, process = self.run(program, [test.name for test in group], limit, environment, bound)
            if status != 0:
                return os.path.basename(program) + (": " + (process.failed_test() or "ends") if status is not None else ": time")
        for program, group in batches(sorted((test for test in tests if not test.fast), key=lambda test: test.seconds)):
            names = [test.name for test in group]
            limit = 20 + 10 * sum(test.seconds for test in group)
            # On a busy machine a test may fail because it is late, so a failure must be repeatable.
            for _ in range(2):
                status, process = self.run(program, names, limit, environment, bound)
                if status == 0:
                    break
                failed = process.failed_test()
                if self.run(program, [failed] if failed else names, limit, environment, bound)[0] != 0:
                    return os.path.basename(program) + ": " + (failed or names[0])
        return None

    def verdict(self, change):
        """Returns the test that fails, SURVIVED if none does, and None if the change must be compiled separately."""
        if not change.switched or change.number in self.invalid:
            return None
        tests = [test for test in self.tests if change.number in test.reached]
        if not tests:
            return None
        return self.first_failure(tests, {"BRENVELLIS_CHANGE": str(change.number)}) or "SURVIVED"


def batches(tests):
    """Yields programs with a few of their tests that run together, the shortest first, within the budget."""
    left = SLOW_BUDGET
    groups = {}
    for test in tests:
        left -= test.seconds
        if left < 0:
            break
        group = groups.setdefault(test.program, [])
        group.append(test)
        if sum(one.seconds for one in group) > BATCH:
            yield test.program, groups.pop(test.program)
    yield from groups.items()


class Alone:
    """Compiles one change at a time, in a copy of the switched build that is mounted over the original."""

    def __init__(self, switched):
        self.switched = switched
        # With the release options, a change without effect produces the same object file.
        self.shipped = Tree("shipped-" + "-".join(switched.folders), ["-DCMAKE_BUILD_TYPE=Release", "-DBUILD_TESTING=OFF", "-DCMAKE_CXX_FLAGS=-w"])
        self.copy = os.path.join(FOLDER, "alone-" + "-".join(switched.folders))
        self.bound = (self.copy, switched.tree.path)
        self.commands = {}
        self.objects = {}

    def prepare(self, sources):
        self.shipped.prepare(sources)
        for command in switches.read_commands(self.shipped.build):
            self.commands.setdefault(os.path.relpath(command["file"], self.shipped.path), command["command"])
        shutil.rmtree(self.copy, ignore_errors=True)
        if call(["cp", "-a", self.switched.tree.path, self.copy]) != 0:
            sys.exit("the switched build cannot be copied")

    def object_of(self, path):
        """Returns the digest of a source file's object file, None if it does not compile, "" for a header."""
        if path not in self.commands:
            return ""
        output = os.path.join(self.copy, "object.o")
        words = shlex.split(self.commands[path])
        words[words.index("-o") + 1] = output
        words = [word for word in words if word not in ("ccache", "-MD")]
        process = Process(words)
        return digest(output) if process.wait(BUILD_LIMIT) == 0 else None

    def verdict(self, change, numbers):
        """Returns the test that fails, SAME if the object file is the same, SURVIVED if no test fails. `numbers` are those
        of all changes of the same file."""
        path = change.change.path
        if path not in self.objects:
            self.objects[path] = self.object_of(path)
        target = os.path.join(self.shipped.path, path)
        write_if_new(target, change.change.changed().encode("latin-1"))
        try:
            compiled = self.object_of(path)
        finally:
            write_if_new(target, change.change.text.encode("latin-1"))
        if compiled is None:
            return "compiler"
        if compiled and compiled == self.objects[path]:
            return "SAME"
        switched = self.switched
        if change.number not in switched.invalid and any(change.number in test.reached for test in switched.tests):
            return "SURVIVED"
        target = os.path.join(self.copy, path)
        before = read(target)
        write_if_new(target, change.change.changed().encode("latin-1"))
        try:
            return self.noticed(change, numbers)
        finally:
            write_if_new(target, before)

    def noticed(self, change, numbers):
        reaching = [test for test in self.switched.tests if not test.reached.isdisjoint(numbers)]
        reaching = reaching or [test for test in self.switched.tests if test.program in TESTS[change.folder]]
        targets = [os.path.basename(name) for name in PROGRAMS[change.folder]]
        targets += sorted({os.path.basename(test.program) for test in reaching if test.unit})
        build = Process([*SANDBOX, *self.bound, "--", "ninja", "-C", self.switched.tree.build, "-j", "1", *targets],
                        os.environ | {"TMPDIR": "/tmp"})
        if build.wait(BUILD_LIMIT) != 0:
            return "compiler"
        return self.switched.first_failure(reaching, {}, self.bound) or "SURVIVED"


def read_results():
    if not os.path.exists(RESULTS):
        return {}
    with open(RESULTS, encoding="utf-8") as file:
        return dict(line.rstrip("\n").rsplit("\t", 1) for line in file)


def interval(part, whole):
    """Returns the Wilson 95 % interval of a share, in percent."""
    if whole == 0:
        return 0, 100
    z, share = 1.96, part / whole
    middle = share + z * z / (2 * whole)
    width = z * math.sqrt(share * (1 - share) / whole + z * z / (4 * whole * whole))
    scale = 100 / (1 + z * z / whole)
    return scale * (middle - width), scale * (middle + width)


def report(tried, total):
    """Prints the tables and the survivors. `total` is {path: number of changes}."""
    print("| file | changes | tried | do not compile | killed | same program | survived |\n|---|---|---|---|---|---|---|")
    rows = {}
    for change, verdict in tried:
        row = rows.setdefault(change.path, [0, 0, 0, 0])
        row[{"compiler": 0, "SAME": 2, "SURVIVED": 3}.get(verdict, 1)] += 1
    groups = {}
    for path, row in rows.items():
        group = groups.setdefault(path.split("/")[0] + "/", [0, 0, 0, 0, 0])
        for i, value in enumerate([total[path], *row]):
            group[i] += value
    for path, row in rows.items():
        print(f"| {path} | {total[path]} | {sum(row)} | " + " | ".join(map(str, row)) + " |")
    groups["all"] = [sum(group[i] for group in groups.values()) for i in range(5)]
    for name, (changes, *row) in groups.items():
        print(f"| {name} | {changes} | {sum(row)} | " + " | ".join(map(str, row)) + " |")
    print()
    for name, (changes, refused, killed, same, survived) in groups.items():
        tried_here = refused + killed + same + survived
        of_compiled = 100 * killed / max(1, killed + same + survived)
        of_changed = 100 * killed / max(1, killed + survived)
        low, high = interval(killed, killed + survived)
        between = "" if tried_here == changes else f" (95 % interval {low:.1f} to {high:.1f})"
        print(f"{name}: {tried_here} of {changes} changes tried; of those that compile {of_compiled:.1f} % killed, of those "
              f"that change a program {of_changed:.1f} %{between}.")
    print()
    for change, verdict in tried:
        if verdict in ("SAME", "SURVIVED"):
            print(f"{verdict}\t{change}")


def sample_of(changes, count, seed):
    """Returns at most `count` changes of each file, chosen by `seed`."""
    by_path = {}
    for change in changes:
        by_path.setdefault(change.change.path, []).append(change)
    chosen = set()
    for path, group in by_path.items():
        numbers = [change.number for change in group]
        chosen.update(random.Random(f"{seed} {path}").sample(numbers, min(count, len(numbers))))
    return [change for change in changes if change.number in chosen]


def stop(number, _):
    """Handles a signal: kills all tests, then exits."""
    for process in list(Process.running):
        process.end()
    os._exit(128 + number)


def main():
    parser = argparse.ArgumentParser(usage="tests/mutation/run [OPTION...] (see --help)", add_help=False)
    parser.add_argument("--minutes", type=float, default=float("inf"))
    parser.add_argument("--only", default="")
    parser.add_argument("--sample", type=int)
    parser.add_argument("--seed", default="1")
    parser.add_argument("--workers", type=int, default=3)
    parser.add_argument("--unit", action="store_true")
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--fresh", action="store_true")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--report", action="store_true")
    options = parser.parse_args()
    begin = time.monotonic()

    # Each file has its own range of numbers, so that a change of one file does not renumber the others.
    counts, everything, total = {}, [], {}
    for change in all_changes(""):
        counts.setdefault(change.path, [len(counts) * 1000, 0])
        everything.append(Change(counts[change.path][0] + counts[change.path][1], change))
        counts[change.path][1] += 1
    assert all(count < 1000 for _, count in counts.values())
    numbered = everything
    everything = [change for change in everything if options.only in change.change.path]
    for change in everything:
        total[change.change.path] = total.get(change.change.path, 0) + 1
    if options.list:
        print(*(change.change for change in everything), f"{len(everything)} changes", sep="\n")
        return 0
    chosen = sample_of(everything, options.sample, options.seed) if options.sample else everything

    # A change may turn a loop into an endless one.
    resource.setrlimit(resource.RLIMIT_FSIZE, (4 << 30, 4 << 30))
    resource.setrlimit(resource.RLIMIT_AS, (6 << 30, 6 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, stop)
    atexit.register(lambda: [process.end() for process in list(Process.running)])

    os.makedirs(FOLDER, exist_ok=True)
    if options.fresh and os.path.exists(RESULTS):
        os.remove(RESULTS)
    results = read_results()
    left = [change for change in chosen if change.change.key not in results or
            (options.again and results[change.change.key] == "SURVIVED")]

    if left and not options.report:
        sources = {path: read(os.path.join(TREE, path)) for path in subprocess.run(
            ["git", "ls-files", "-co", "--exclude-standard"], cwd=TREE, capture_output=True, text=True,
            check=True).stdout.splitlines() if os.path.isfile(os.path.join(TREE, path))}
        folders = sorted({change.folder for change in everything})
        switched = Switched(folders, options.workers, options.unit)
        switched.prepare(sources, [change for change in numbered if change.folder in folders])
        alone = Alone(switched)
        lock = threading.Lock()
        numbers = {}
        for change in everything:
            numbers.setdefault(change.change.path, set()).add(change.number)
        end = begin + 60 * options.minutes
        compiled = []
        random.Random(options.seed).shuffle(left)
        left.sort(key=lambda change: change.change.key not in results)  # survivors first
        waiting = list(left)

        def note(change, verdict):
            with lock:
                results[change.change.key] = verdict
                with open(RESULTS, "a", encoding="utf-8") as file:
                    file.write(f"{change.change.key}\t{verdict}\n")

        def work():
            while time.monotonic() < end:
                with lock:
                    if not waiting:
                        return
                    change = waiting.pop(0)
                if options.unit and not any(numbers[change.change.path] & test.reached for test in switched.tests):
                    continue
                verdict = switched.verdict(change)
                if verdict:
                    note(change, verdict)
                # A survivor is compiled too, because it may have no effect on the program.
                if not verdict or verdict == "SURVIVED":
                    with lock:
                        compiled.append(change)

        def compile_alone():
            while not compiled:
                if not any(thread.is_alive() for thread in threads):
                    return
                time.sleep(0.2)
            alone.prepare(sources)
            while time.monotonic() < end:
                with lock:
                    compiled.sort(key=lambda change: results.get(change.change.key) == "SURVIVED")
                    change = compiled.pop(0) if compiled else None
                if change is None:
                    if not any(thread.is_alive() for thread in threads):
                        with lock:
                            if not compiled:
                                return
                    time.sleep(0.2)
                    continue
                note(change, alone.verdict(change, numbers[change.change.path]))

        threads = [threading.Thread(target=work, daemon=True) for _ in range(options.workers)]
        compiler = threading.Thread(target=compile_alone, daemon=True)
        for thread in [*threads, compiler]:
            thread.start()
        for thread in [*threads, compiler]:
            thread.join()

    tried = [(change.change, results[change.change.key]) for change in everything if change.change.key in results]
    report(tried, total)
    return 0 if all(change.change.key in results for change in chosen) else 1


if __name__ == "__main__":
    sys.exit(main())
