#!/usr/bin/env python3
"""Mutation testing: changes src/ in one small place at a time and looks whether a test notices.

    tests/mutation/mutate.py --sample 60          a sample that spreads over all files
    tests/mutation/mutate.py --jobs 2             all mutants, two at a time
    tests/mutation/mutate.py --jobs 2 --resume    the rest of a run that was interrupted
    tests/mutation/mutate.py --survivors --thorough    what survived, against all tests and new ones
    tests/mutation/mutate.py --files 'src/output/*'
    tests/mutation/mutate.py --list               what would be made
    tests/mutation/mutate.py --report             the report on the results that are there

A mutant is built in a copy of the tree (build/mutation/tree<N>, never in the checkout). Then the
test program of its folder runs, then the end-to-end tests; the first failure ends it:

    killed      a test failed, crashed or did not come to an end
    survived    all of them passed: a gap in the tests, or a change without effect
    stillborn   does not compile
    same code   survived, but is compiled to the unchanged machine code: the same program
    explained   is listed in equivalent.txt; not run

Results are appended to build/mutation/results.jsonl, the report is build/mutation/report.md. The
exit status is 0 if nothing survived, 1 if something did, 2 if the tests fail without any change or
the run was interrupted.
"""
import argparse
import collections
import fnmatch
import json
import os
import queue
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

sys.dont_write_bytecode = True  # nothing of a run stays in the checkout
sys.path.insert(0, str(Path(__file__).resolve().parent))
from mutants import make_mutants  # noqa: E402
from same_code import find_same_code  # noqa: E402

ROOT = Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutation"
RESULTS = WORK / "results.jsonl"
REPORT = WORK / "report.md"
EQUIVALENT = Path(__file__).resolve().with_name("equivalent.txt")

BUILD_SECONDS = 300
MAX_OUTPUT_BYTES = 64 << 20
MAX_MEMORY_KB = 3 << 20
MAX_DISK_BYTES = 2 << 30  # really taken; tests have sparse files of many gibibytes
KILLERS_KEPT = 4  # tests that are tried first, for each file
SLOW_SHARE = 0.1  # of its program's time makes a test slow
RANDOM_RUNS = 100  # of the command against its model
THOROUGH_TESTS = "FailEveryCall.*"  # minutes long; with --thorough only


# --- which mutants --------------------------------------------------------------------------------


def read_equivalent():
    """The entries of equivalent.txt as dictionaries."""
    entries = []
    for block in EQUIVALENT.read_text().split("\n\n"):
        lines = [line for line in block.splitlines() if line and not line.startswith("#")]
        entry = dict(line.split(": ", 1) for line in lines)
        if not entry:
            continue
        if set(entry) - {"which"} != {"file", "code", "change", "reason"}:
            sys.exit(f"{EQUIVALENT.name}: file, code, change and reason make an entry:\n{block}")
        entries.append(entry)
    return entries


def explains(entry, mutant):
    return (
        entry["file"] == mutant.file
        and entry["change"] in (mutant.change, "*")
        and entry["code"] in mutant.code
        and int(entry.get("which", mutant.ordinal + 1)) == mutant.ordinal + 1
    )


def check_equivalent(entries, mutants):
    """Complains of entries that explain nothing, or more than one change of the same words."""
    for entry in entries:
        found = collections.Counter(m.code for m in mutants if explains(entry, m))
        trouble = ""
        if not found:
            trouble = "there is no such mutant"
        elif entry["change"] != "*" and max(found.values()) > 1:
            trouble = "there are several; say which"
        if trouble:
            name = f"{entry['file']}: {entry['code']}: {entry['change']}"
            print(f"{EQUIVALENT.name}: {trouble}: {name}", file=sys.stderr)


def make_all_mutants(patterns):
    mutants, texts = [], {}
    for path in sorted((ROOT / "src").rglob("*")):
        name = path.relative_to(ROOT).as_posix()
        if path.suffix not in (".cpp", ".h"):
            continue
        if patterns and not any(fnmatch.fnmatch(name, pattern) for pattern in patterns):
            continue
        texts[name] = path.read_text()
        try:
            mutants += make_mutants(name, texts[name])
        except (ValueError, IndexError, KeyError) as error:
            sys.exit(f"{name} cannot be read: {error!r}. cpp_source.py has to learn it.")
    return mutants, texts


def sample(mutants, count, seed):
    """`count` mutants: one of each file, then a second of each, until there are enough."""
    rng = random.Random(seed)
    by_file = collections.defaultdict(list)
    for mutant in mutants:
        by_file[mutant.file].append(mutant)
    rounds = []
    for file_mutants in by_file.values():
        rng.shuffle(file_mutants)
        rounds += [(turn, rng.random(), mutant) for turn, mutant in enumerate(file_mutants)]
    chosen = {id(mutant) for _, _, mutant in sorted(rounds, key=lambda r: r[:2])[:count]}
    return [mutant for mutant in mutants if id(mutant) in chosen]


# --- running a program ----------------------------------------------------------------------------


class Stopped(Exception):
    """The run was interrupted."""


stop = threading.Event()
thorough = threading.Event()


def forbid_core_files():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def session_memory_kb(session):
    """Resident memory of all processes of a session."""
    pages = 0
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            fields = Path("/proc", name, "stat").read_text().rpartition(")")[2].split()
        except OSError:
            continue  # has ended meanwhile
        if int(fields[3]) == session:
            pages += int(fields[21])
    return pages * os.sysconf("SC_PAGE_SIZE") // 1024


def disk_bytes(folder):
    """What the files of a folder take on the disk."""
    blocks = 0
    for parent, _, names in os.walk(folder):
        for name in names:
            try:
                blocks += os.lstat(os.path.join(parent, name)).st_blocks
            except OSError:
                continue  # is gone meanwhile
    return blocks * 512


def end_session(process):
    """Ends a program that we started as the leader of a session, with its children."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


def run_limited(command, seconds, log, temporary):
    """Runs a program to its end or its limits; returns its status, or in words what it exceeded.

    `temporary` is the folder for its temporary files.
    """
    environment = dict(os.environ, TMPDIR=str(temporary))
    environment.pop("VORN_RUN", None)
    if not thorough.is_set():
        environment["VORN_RANDOM_RUNS"] = str(RANDOM_RUNS)
    with open(log, "wb") as out:
        process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT,
            env=environment, start_new_session=True, preexec_fn=forbid_core_files,
        )
    deadline, rounds = time.monotonic() + seconds, 0
    while True:
        try:
            status = process.wait(timeout=0.1)
            end_session(process)  # children that outlived it
            return status
        except subprocess.TimeoutExpired:
            rounds += 1
        excess = None
        if time.monotonic() > deadline:
            excess = "time-out"
        elif os.path.getsize(log) > MAX_OUTPUT_BYTES:
            excess = "endless output"
        elif rounds % 5 == 0 and session_memory_kb(process.pid) > MAX_MEMORY_KB:
            excess = "endless memory"
        elif rounds % 5 == 0 and disk_bytes(temporary) > MAX_DISK_BYTES:
            excess = "endless files"
        if excess or stop.is_set():
            end_session(process)
            if excess:
                return excess
            raise Stopped()


# --- a copy of the tree, its build and its tests --------------------------------------------------


def programs_of(tests_folder):
    lists = ROOT / "tests" / tests_folder / "CMakeLists.txt"
    return re.findall(r"\bvorn_test\((\w+)", lists.read_text()) if lists.exists() else []


class Tree:
    """A copy of the checkout with a build of its own, in which one worker changes files."""

    def __init__(self, number):
        self.folder = WORK / f"tree{number}"
        self.build = self.folder / "build" / "mutation"
        self.temporary = WORK / f"tmp{number}"
        self.log = WORK / f"tree{number}.log"
        self.seconds = {}  # that a program takes unchanged
        self.slow = {}  # its tests that take long, which run last
        self.changed = None  # the file that is not as in the checkout
        self.killers = collections.defaultdict(list)

    def copy_checkout(self):
        """Copies what has changed only, so that a second run has little to build."""
        listed = subprocess.run(
            ["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others",
             "--exclude-standard"],
            check=True, capture_output=True, text=True,
        )
        names = {name for name in listed.stdout.split("\0") if (ROOT / name).is_file()}
        for name in names:
            source, target = ROOT / name, self.folder / name
            if target.exists() and target.read_bytes() == source.read_bytes():
                continue
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)
        for target in self.folder.rglob("*"):
            name = target.relative_to(self.folder).as_posix()
            if target.is_file() and not name.startswith((".deps", "build/")) and name not in names:
                target.unlink()
        if not (self.folder / ".deps").exists():
            (self.folder / ".deps").symlink_to(ROOT / ".deps")

    def configure(self):
        self.temporary.mkdir(exist_ok=True)
        self._run_or_die(["cmake", "-S", str(self.folder), "--preset", "mutation"])

    def build_everything(self):
        targets = {p for folder in (ROOT / "src").iterdir() for p in programs_of(folder.name)}
        self._run_or_die(["ninja", "-C", str(self.build), *sorted(targets), *programs_of("e2e")])

    def check_unchanged(self):
        """The tests have to pass as things are; takes the time of each program."""
        folders = [folder.name for folder in (ROOT / "src").iterdir() if folder.is_dir()]
        for folder in [*folders, "e2e"]:
            for program in programs_of(folder):
                start = time.monotonic()
                if self._run_program(folder, program, BUILD_SECONDS, "*") != 0:
                    print(self._tail(), file=sys.stderr)
                    sys.exit(2)
                self.seconds[program] = time.monotonic() - start
                self.slow[program] = self._find_slow()

    def try_mutant(self, mutant, text):
        """Returns the result and who killed it."""
        if self.changed not in (None, mutant.file):
            shutil.copy(ROOT / self.changed, self.folder / self.changed)
        self.changed = mutant.file
        (self.folder / mutant.file).write_text(mutant.apply(text))
        folder = mutant.file.split("/")[1]
        for tests, targets in ((folder, programs_of(folder)), ("e2e", ["vorn-run"])):
            if not targets:
                continue
            command = ["ninja", "-C", str(self.build), *targets]
            if run_limited(command, BUILD_SECONDS, self.log, self.temporary) != 0:
                return "stillborn", self._first_error()
            for program in programs_of(tests):
                by = self._kill(mutant.file, tests, program)
                if by:
                    return "killed", by
        return "survived", ""

    def _find_slow(self):
        """The tests of the log that took much of the time of all."""
        passed = re.findall(r"^\[ +OK \] ([\w./]+).*\((\d+) ms\)$", self.log.read_text(), re.M)
        limit = SLOW_SHARE * sum(int(ms) for _, ms in passed)
        return [test for test, ms in passed if int(ms) > max(limit, 500)]

    def _kill(self, file, tests, program):
        """The test of a program that fails; none if it passes. Likely ones run first."""
        seconds = 10 + 5 * self.seconds[program]
        likely, slow = ":".join(self.killers[file, program]), ":".join(self.slow[program])
        for tried in [likely] * bool(likely) + (["-" + slow, slow] if slow else ["*"]):
            status = self._run_program(tests, program, seconds, tried)
            if status != 0:
                return self._blame(file, program, status)
        return ""

    def _blame(self, file, program, status):
        failed, running = None, None
        with open(self.log, errors="replace") as log:
            for line in log:
                match = re.match(r"\[( +RUN +|  FAILED  )\] ([\w./]+)", line)
                if match and "RUN" in match.group(1):
                    running = match.group(2)
                elif match and failed is None:
                    failed = match.group(2)
        test = failed or running
        if test:
            likely = self.killers[file, program]
            if test in likely:
                likely.remove(test)
            likely.insert(0, test)
            del likely[KILLERS_KEPT:]
        if status == 1:
            return f"{program}: {test}"
        how = status if isinstance(status, str) else f"status {status}"
        return f"{program}: {test} ({how})"

    def _run_program(self, tests, program, seconds, tried):
        """Runs the tests of a filter: names, or a minus and names to be left out."""
        if not thorough.is_set():
            tried += (":" if "-" in tried else "-") + THOROUGH_TESTS
        shutil.rmtree(self.temporary, ignore_errors=True)
        self.temporary.mkdir()
        path = self.build / "tests" / tests / program
        command = [str(path), "--gtest_fail_fast", "--gtest_color=no", f"--gtest_filter={tried}"]
        return run_limited(command, seconds, self.log, self.temporary)

    def _run_or_die(self, command):
        if run_limited(command, 3600, self.log, self.temporary) != 0:
            print(self._tail(), file=sys.stderr)
            print(f"failed: {' '.join(command)}", file=sys.stderr)
            sys.exit(2)

    def _tail(self):
        return "\n".join(self.log.read_text(errors="replace").splitlines()[-60:])

    def _first_error(self):
        for line in self.log.read_text(errors="replace").splitlines():
            if "error:" in line:
                return line.partition("error:")[2].strip()
        return "does not build"


# --- all of them ----------------------------------------------------------------------------------


class FileQueue:
    """Hands out mutants; a worker stays with a file, whose neighbours then need not be rebuilt."""

    def __init__(self, mutants):
        self.lock = threading.Lock()
        self.by_file = collections.defaultdict(collections.deque)
        for mutant in mutants:
            self.by_file[mutant.file].append(mutant)
        self.taken = {}  # file by worker

    def next(self, worker):
        with self.lock:
            left = [file for file, waiting in self.by_file.items() if waiting]
            if not left:
                return None
            file = self.taken.get(worker)
            if file not in left:
                free = [file for file in left if file not in self.taken.values()]
                file = max(free or left, key=lambda name: len(self.by_file[name]))
                self.taken[worker] = file
            return self.by_file[file].popleft()


def run_mutants(mutants, texts, jobs):
    """Runs them and appends each result to the file of results; False if interrupted."""
    waiting, lock = FileQueue(mutants), threading.Lock()
    done, start, troubles = [0], time.monotonic(), queue.Queue()

    def work(number):
        tree = Tree(number)
        tree.copy_checkout()
        tree.configure()
        tree.build_everything()
        tree.check_unchanged()
        while not stop.is_set():
            mutant = waiting.next(number)
            if mutant is None:
                return
            begin = time.monotonic()
            result, by = tree.try_mutant(mutant, texts[mutant.file])
            record = {
                "id": mutant.id, "result": result, "by": by,
                "seconds": round(time.monotonic() - begin, 2), "file": mutant.file,
                "line": mutant.line, "kind": mutant.kind, "change": mutant.change,
                "code": mutant.code,
            }
            with lock:
                with open(RESULTS, "a") as results:
                    results.write(json.dumps(record) + "\n")
                done[0] += 1
                print(f"{done[0]}/{len(mutants)} {result:9} {record['seconds']:5.1f} s  "
                      f"{mutant.file}:{mutant.line}: {mutant.change}", flush=True)

    def guard(number):
        try:
            work(number)
        except Stopped:
            pass
        except BaseException as error:  # a thread's own exit would go unheard
            troubles.put(error)
            stop.set()

    workers = [threading.Thread(target=guard, args=(n,)) for n in range(jobs)]
    for worker in workers:
        worker.start()
    try:
        for worker in workers:
            worker.join()
    except KeyboardInterrupt:
        stop.set()
        for worker in workers:
            worker.join()
        print("interrupted; go on with --resume", file=sys.stderr)
    if not troubles.empty():
        raise troubles.get()
    print(f"{done[0]} mutants in {time.monotonic() - start:.0f} s, builds of the trees included")
    return not stop.is_set()


def read_results():
    results = {}
    if RESULTS.exists():
        for line in RESULTS.read_text().splitlines():
            try:
                record = json.loads(line)
            except json.JSONDecodeError:
                continue  # cut off by an interruption
            results[record["id"]] = record
    return results


def note_same_code(mutants, texts, explained, jobs):
    """Marks the survivors that are the unchanged program."""
    results = read_results()
    survivors = [m for m in mutants if m.id not in explained and m.id in results
                 and results[m.id]["result"] == "survived"]
    same = find_same_code(ROOT, WORK / "code", survivors, texts, jobs)
    with open(RESULTS, "a") as lines:
        for mutant in same:
            record = {**results[mutant.id], "result": "same code", "by": "the compiler"}
            lines.write(json.dumps(record) + "\n")
    print(f"{len(same)} of {len(survivors)} survivors are compiled to the unchanged code")


# --- the report -----------------------------------------------------------------------------------

_COLUMNS = ("made", "stillborn", "killed", "survived", "same code", "explained", "not run")


def table_rows(mutants, outcome):
    counts = collections.defaultdict(collections.Counter)
    for mutant in mutants:
        for row in (mutant.file, "all"):
            counts[row]["made"] += 1
            counts[row][outcome[mutant.id]] += 1
    rows = [("file", *_COLUMNS, "killed %")]
    for name in [*sorted(row for row in counts if row != "all"), "all"]:
        count = counts[name]
        judged = count["killed"] + count["survived"]
        share = f"{100 * count['killed'] / judged:.1f}" if judged else "-"
        rows.append((name, *(str(count[column]) for column in _COLUMNS), share))
    return rows


def format_table(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    lines = []
    for row in rows:
        cells = [row[0].ljust(widths[0])] + [c.rjust(w) for c, w in zip(row[1:], widths[1:])]
        lines.append("| " + " | ".join(cells) + " |")
    rule = ["-" * widths[0]] + ["-" * (width - 1) + ":" for width in widths[1:]]
    lines.insert(1, "| " + " | ".join(rule) + " |")
    return lines


def report(mutants, texts, explained, results):
    """Prints the table, writes it with the survivors to the report file; returns the survivors."""
    outcome = {}
    for mutant in mutants:
        known = results.get(mutant.id)
        outcome[mutant.id] = known["result"] if known else "not run"
        if mutant.id in explained and outcome[mutant.id] != "killed":
            outcome[mutant.id] = "explained"
    lines = ["# Mutants", "", *format_table(table_rows(mutants, outcome))]
    print("\n".join(lines[2:]))

    survivors = [m for m in mutants if outcome[m.id] == "survived"]
    refuted = [m for m in mutants if m.id in explained and outcome[m.id] == "killed"]
    hung = [m for m in mutants if outcome[m.id] == "killed" and "time-out" in results[m.id]["by"]]
    for title, chosen in (
        ("Survivors", survivors), ("Explained, and killed after all", refuted),
        ("Killed by the time-out", hung),
    ):
        lines += ["", f"## {title}: {len(chosen)}"]
        for mutant in chosen:
            lines += ["", f"{mutant.id} {mutant.file}:{mutant.line} {mutant.kind}: {mutant.change}"]
            lines += ["", "```diff", mutant.diff(texts[mutant.file]), "```"]
    REPORT.write_text("\n".join(lines) + "\n")
    for mutant in survivors:
        print(f"\nsurvived: {mutant.file}:{mutant.line} {mutant.kind}: {mutant.change}")
        print(mutant.diff(texts[mutant.file]))
    print(f"\n{len(survivors)} survived, {len(hung)} ended by the time-out; the report: {REPORT}")
    return survivors


def parse_arguments():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--files", nargs="+", metavar="GLOB", help="of these files only")
    parser.add_argument("--kinds", nargs="+", metavar="KIND", help="of these kinds, see --list")
    parser.add_argument("--ids", nargs="+", metavar="ID", help="these only, run before or not")
    parser.add_argument("--sample", type=int, metavar="N", help="so many, spread over the files")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="of the sample (1)")
    parser.add_argument("--jobs", type=int, default=1, metavar="N", help="trees to work in (1)")
    parser.add_argument("--resume", action="store_true", help="keep results, run what has none")
    parser.add_argument("--survivors", action="store_true",
                        help="with the results kept, run again what survived")
    parser.add_argument("--compare-code", action="store_true",
                        help="only look which survivors compile to the unchanged code")
    parser.add_argument("--thorough", action="store_true", help="with the tests of minutes, too")
    parser.add_argument("--check-explained", action="store_true", help="run what is explained, too")
    parser.add_argument("--list", action="store_true", help="list the mutants and run nothing")
    parser.add_argument("--report", action="store_true", help="report on what there is alone")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    if arguments.thorough:
        thorough.set()
    mutants, texts = make_all_mutants(arguments.files)
    equivalent = read_equivalent()
    if not arguments.files:
        check_equivalent(equivalent, mutants)
    if arguments.kinds:
        mutants = [m for m in mutants if m.kind in arguments.kinds]
    if arguments.ids:
        mutants = [m for m in mutants if m.id in arguments.ids]
    if arguments.sample:
        mutants = sample(mutants, arguments.sample, arguments.seed)
    explained = {m.id for m in mutants if any(explains(entry, m) for entry in equivalent)}
    if arguments.list:
        for m in mutants:
            mark = " (explained)" if m.id in explained else ""
            print(f"{m.id} {m.file}:{m.line} {m.kind}: {m.change}{mark}\n    {m.code}")
        print(len(mutants), "mutants")
        return 0

    WORK.mkdir(parents=True, exist_ok=True)
    if not arguments.report:
        keep = any((arguments.resume, arguments.survivors, arguments.ids, arguments.compare_code))
        if not keep and RESULTS.exists():
            RESULTS.replace(RESULTS.with_suffix(".previous.jsonl"))
        results = read_results()
        waiting = [m for m in mutants if arguments.check_explained or m.id not in explained]
        if arguments.survivors:
            again = {id for id, record in results.items() if record["result"] == "survived"}
            waiting = [m for m in waiting if m.id in again]
        elif not arguments.ids:
            waiting = [m for m in waiting if m.id not in results]
        if waiting and not arguments.compare_code:
            jobs = max(1, min(arguments.jobs, len(waiting)))
            if not run_mutants(waiting, texts, jobs):
                return 2
        note_same_code(mutants, texts, explained, max(1, arguments.jobs))
    return 1 if report(mutants, texts, explained, read_results()) else 0


if __name__ == "__main__":
    sys.exit(main())
