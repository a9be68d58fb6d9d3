#!/usr/bin/env python3
"""Mutation testing: changes the sources in one small place at a time; does a test notice?

    tests/mutation/mutate.py --rooms runtime/host shared --sample 800
    tests/mutation/mutate.py --jobs 2             all mutants of all rooms, two at a time
    tests/mutation/mutate.py --jobs 2 --resume    the rest of a run that was interrupted
    tests/mutation/mutate.py --survivors --thorough    what survived, against all tests and new ones
    tests/mutation/mutate.py --files 'src/output/*'
    tests/mutation/mutate.py --list               what would be made
    tests/mutation/mutate.py --report             the report on the results that are there
    tests/mutation/mutate.py --check-explained    what explained.txt explains has to survive
    tests/mutation/mutate.py --compare 30         so many both ways: chosen at run time, and built

All mutants (of a sample: its own) are compiled into one build (switched.py), in a copy of the tree
(build/mutation, never in the checkout); an environment variable chooses. Those that only the
compiler could choose are built one by one. For each mutant the tests run that reach its statement,
likely ones first; the first failure ends it:

    killed      a test failed, crashed or did not come to an end
    survived    all of them passed: a gap in the tests, or a change without effect
    stillborn   does not compile
    same code   survived, but is compiled to the unchanged machine code: the same program
    explained   is listed in explained.txt; not run

Results are appended to build/mutation/results.jsonl, the report is build/mutation/report.md. The
exit status is 0 if nothing survived, 1 if something did, 2 if the tests fail without any change or
the run was interrupted.
"""
import argparse
import collections
import fnmatch
import hashlib
import json
import queue
import random
import signal
import sys
import threading
import time
from pathlib import Path

sys.dont_write_bytecode = True  # nothing of a run stays in the checkout
sys.path.insert(0, str(Path(__file__).resolve().parent))
from explained import find_unfounded, format_entry, read_explained  # noqa: E402
from mutants import make_mutants  # noqa: E402
from processes import Stopped, stop  # noqa: E402
from programs import all_tests, blame, take_baseline  # noqa: E402
from same_code import find_same_code  # noqa: E402
from trees import PlainTree, SwitchedTree  # noqa: E402

ROOT = Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutation"  # main() may choose another
EXPLAINED = Path(__file__).resolve().with_name("explained.txt")

KILLERS_KEPT = 5  # tests that are tried first, for each file
LEAST_CPU_SECONDS = 10  # that a program of tests may take
CPU_FACTOR = 5  # of what its tests take unchanged
QUICK_SECONDS = 0.3

# The rooms, and the programs of tests that hold them to what they say.
_COMMAND_TESTS = ("app_test", "common_test", "model_test", "output_test", "sample_test", "e2e_test",
                  "e2e_model_test")
_HOST_TESTS = ("vorn_host_test", "vorn_host_allocation_test", "vorn_host_interface_test",
               "vorn_host_recovery_test", "vorn_host_command_test",
               "vorn_host_missing_engine_test", "vorn-conformance",
               "digits_run_test", "digit_finder_test", "docs_test", "fuzz_replay_image_test")
_LAYER_TESTS = ("layers_common_test", "layers_test", "kit_trace_test", "kit_verbs_test")
ROOMS = {
    "src": _COMMAND_TESTS,
    "runtime/host": _HOST_TESTS,
    "shared": ("rows_test", "text_test", *_HOST_TESTS, *_LAYER_TESTS),
    "layers": _LAYER_TESTS,
    "kit": ("kit_common_test", "kit_model_test", "kit_run_test", "kit_tensor_test",
            "kit_judge_test", "kit_timing_test", "kit_trace_test", "kit_convert_test",
            "kit_launch_test", "kit_verbs_test", "kit_launch_verb_test", "kit_picture_test",
            "kit_prepare_test", "kit_qualify_test", "kit_calibrate_test", "fuzz_replay_kit_test"),
}
FURTHER_TARGETS = ("conformance-models", "vorn-run", "board", "vorn_caller")  # that tests start


def results_file():
    return WORK / "results.jsonl"


def report_file():
    return WORK / "report.md"


# --- which mutants --------------------------------------------------------------------------------


def make_all_mutants(rooms, patterns):
    mutants, texts = [], {}
    for room in rooms:
        for path in sorted((ROOT / room).rglob("*")):
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
    """`count` mutants: one of each file, then a second of each, until there are enough.

    Each has its rank by the seed and its id: a change of the sources takes along what it concerns
    and leaves the others chosen, with the results that they have.
    """
    rank = {m.id: hashlib.sha1(f"{seed} {m.id}".encode()).digest() for m in mutants}
    by_file = collections.defaultdict(list)
    for mutant in mutants:
        by_file[mutant.file].append(mutant)
    rounds = []
    for file_mutants in by_file.values():
        file_mutants.sort(key=lambda m: rank[m.id])
        rounds += [(turn, rank[m.id], m.id) for turn, m in enumerate(file_mutants)]
    chosen = {id for _, _, id in sorted(rounds)[:count]}
    return [mutant for mutant in mutants if mutant.id in chosen]


# --- running the tests on one ---------------------------------------------------------------------


class Bench:
    """The builds, the programs of tests and what is known of them."""

    def __init__(self, rooms, mutants, texts, is_thorough, is_quick):
        self.is_quick = is_quick
        self.texts = texts
        self.is_thorough = is_thorough
        self.names = list(dict.fromkeys(name for room in rooms for name in ROOMS[room]))
        self.switched = SwitchedTree(ROOT, WORK / "switched", mutants, texts)
        self.plain = PlainTree(ROOT, WORK / "plain")
        self.plain_lock = threading.Lock()
        self.is_plain_there = False
        self.killers = collections.defaultdict(list)  # (program, test) by file
        self.programs = []

    def prepare(self):
        self.switched.write_all()
        targets = [n for n in (*self.names, *FURTHER_TARGETS) if self.switched.has_target(n)]
        self.targets = targets
        self.programs = self.switched.build_all(targets, self.names)
        for number, program in enumerate(self.programs):
            if not take_baseline(program, self.switched.place_count, WORK / f"baseline{number}",
                                 self.is_thorough):
                self.switched.log = WORK / f"baseline{number}.log"
                self.switched.die(f"{program.name} fails without any change")
        reached = set().union(*(r for p in self.programs for r in p.reached.values()))
        count = sum(len(program.tests) for program in self.programs)
        places = sum(len(file.all_places) for file in self.switched.switched.values())
        print(f"{len(self.switched.numbers)} mutants in one build; {count} tests of "
              f"{len(self.programs)} programs reach {len(reached)} of {places} places",
              flush=True)

    def prepare_plain(self):
        """The tree for mutants that have to be built; call with its lock held."""
        if not self.is_plain_there:
            self.plain.copy_checkout({})
            self.plain.configure()
            if not self.plain.make(self.targets):
                self.plain.die("the unchanged tree does not build")
            self.is_plain_there = True

    def try_mutant(self, mutant, worker, one_by_one=False):
        """Returns the result and who killed it."""
        number = self.switched.numbers.get(mutant.id)
        if number is None or one_by_one:
            with self.plain_lock:
                return self._try_built(mutant)
        by = self._kill(mutant, self.programs, {"VORN_MUTANT": str(number)},
                        WORK / f"worker{worker}")
        return ("killed", by) if by else ("survived", "")

    def _try_built(self, mutant):
        """The first program before the others: what it kills, the others are not built for."""
        self.prepare_plain()
        self.plain.change(mutant, self.texts[mutant.file])
        programs = [self._in_plain(program) for program in self.programs]
        first, others = self.names[:1], self.names[1:]
        for targets, names in ((first, first), (self.targets, others)):
            if not self.plain.make([target for target in targets if target in self.targets]):
                words = next((words for _, _, words in self.plain.complaints()), "does not build")
                return "stillborn", words
            by = self._kill(mutant, programs, {}, WORK / "worker-plain", names)
            if by:
                return "killed", by
        return "survived", ""

    def _in_plain(self, program):
        text = json.dumps([program.command, program.environment, program.folder])
        text = text.replace(f"{self.switched.folder}/", f"{self.plain.folder}/")
        command, environment, folder = json.loads(text)
        return type(program)(program.name, command, environment, folder, program.filter,
                             program.seconds, program.reached, program.cpu_seconds)

    def _kill(self, mutant, programs, environment, work, names=None):
        """The test that fails; none if all pass that come by the place. Likely ones run first.

        `names` says which programs, all of them by default.
        """
        places = self.switched.places_of(mutant)
        coming = []
        for index, program in enumerate(programs):
            if names is not None and program.name not in names:
                continue
            tests = [test for test in program.tests
                     if (places is None or program.reached[test] & places)
                     and not (self.is_quick and program.seconds[test] > QUICK_SECONDS)]
            if tests:
                coming.append((sum(program.seconds[test] for test in tests), index, tests))
        tried = collections.defaultdict(set)
        for index, test in list(self.killers[mutant.file]):
            if any(index == at and test in tests for _, at, tests in coming):
                tried[index].add(test)
        steps = [(index, sorted(tests)) for index, tests in tried.items()]
        steps += [(index, [t for t in tests if t not in tried[index]])
                  for _, index, tests in sorted(coming)]
        # What a program does once shows in the test that comes first only: then all, at last.
        steps += [(index, None) for _, index, tests in sorted(coming)
                  if len(tests) == 1 < len(programs[index].tests) and not self.is_quick]
        for index, tests in steps:
            by = self._run(mutant, index, programs[index], tests, environment, work)
            if by:
                return by
        return ""

    def _run(self, mutant, index, program, tests, environment, work):
        if tests == []:
            return ""
        if tests is None or len(tests) == len(program.tests):
            chosen, tests = all_tests(program, self.is_thorough), program.tests
        else:
            chosen = ":".join(tests)
        seconds = LEAST_CPU_SECONDS + CPU_FACTOR * sum(program.seconds[test] for test in tests)
        log = work.with_suffix(".log")
        status = program.run(chosen, seconds, log, work.with_suffix(".tmp"), environment).status
        if status == 0:
            return ""
        test = blame(log)
        if test in program.seconds:
            likely = self.killers[mutant.file]
            if (index, test) in likely:
                likely.remove((index, test))
            likely.insert(0, (index, test))
            del likely[KILLERS_KEPT:]
        if status == 1:
            return f"{program.name}: {test}"
        how = status if isinstance(status, str) else f"status {status}"
        return f"{program.name}: {test} ({how})"


# --- all of them ----------------------------------------------------------------------------------


def run_mutants(bench, mutants, jobs, one_by_one=False):
    """Runs them and yields each result as it comes; ends early if interrupted."""
    chosen, built, done = queue.Queue(), queue.Queue(), queue.Queue()
    # Headers last: all that includes them is built.
    for mutant in sorted(mutants, key=lambda m: m.file.endswith(".h")):
        is_chosen = mutant.id in bench.switched.numbers and not one_by_one
        (chosen if is_chosen else built).put(mutant)

    def work(number):
        try:
            while not stop.is_set():
                # One worker builds, as soon as there is no other work.
                waiting = built if number == 0 and chosen.empty() else chosen
                mutant = waiting.get_nowait()
                begin = time.monotonic()
                result, by = bench.try_mutant(mutant, number, one_by_one)
                done.put((mutant, result, by, time.monotonic() - begin))
        except (queue.Empty, Stopped):
            pass
        except BaseException as error:  # a thread's own exit would go unheard
            done.put(error)
            stop.set()
        done.put(None)

    for number in range(jobs):
        threading.Thread(target=work, args=(number,), daemon=True).start()
    working = jobs
    while working:
        try:
            ended = done.get()
        except KeyboardInterrupt:
            stop.set()
            continue
        if isinstance(ended, BaseException):
            raise ended
        if ended is None:
            working -= 1
        else:
            yield ended


def run_and_record(bench, mutants, jobs):
    """Appends each result to the file of results; False if interrupted."""
    start, count = time.monotonic(), 0
    for mutant, result, by, seconds in run_mutants(bench, mutants, jobs):
        count += 1
        record = {
            "id": mutant.id, "result": result, "by": by, "seconds": round(seconds, 2),
            "file": mutant.file, "line": mutant.line, "kind": mutant.kind, "change": mutant.change,
            "statement": mutant.statement,
        }
        with open(results_file(), "a") as results:
            results.write(json.dumps(record) + "\n")
        print(f"{count}/{len(mutants)} {result:9} {seconds:5.1f} s  "
              f"{mutant.file}:{mutant.line}: {mutant.change}", flush=True)
    if stop.is_set():
        print("interrupted; go on with --resume", file=sys.stderr)
    print(f"{count} mutants in {time.monotonic() - start:.0f} s")
    return not stop.is_set()


def compare_ways(bench, mutants, count, seed, jobs):
    """Whether chosen mutants come to the same end when each is built; the number of differences."""
    able = sorted((m for m in mutants if m.id in bench.switched.numbers), key=lambda m: m.id)
    chosen = random.Random(seed).sample(able, min(count, len(able)))
    ends = {m.id: (result, by) for m, result, by, _ in run_mutants(bench, chosen, jobs)}
    built = {m.id: (result, by) for m, result, by, _ in run_mutants(bench, chosen, 1, True)}
    differences = 0
    for mutant in chosen:
        is_same = ends[mutant.id][0] == built[mutant.id][0]
        differences += not is_same
        print(f"{'same     ' if is_same else 'DIFFERENT'} {mutant.file}:{mutant.line}: "
              f"{mutant.change}: {ends[mutant.id]}, built {built[mutant.id]}")
    print(f"{len(chosen)} mutants both ways, {differences} with different results")
    return differences


def read_results():
    results = {}
    if results_file().exists():
        for line in results_file().read_text().splitlines():
            try:
                record = json.loads(line)
            except json.JSONDecodeError:
                continue  # cut off by an interruption
            results[record["id"]] = record
    return results


def note_same_code(bench, mutants, explained, jobs):
    """Marks the survivors that are the unchanged program."""
    results = read_results()
    survivors = [m for m in mutants if m.id not in explained and m.id in results
                 and results[m.id]["result"] == "survived"]
    bench.plain.copy_checkout({})
    bench.plain.configure()
    same = find_same_code(bench.plain, WORK / "code", survivors, bench.texts, jobs)
    with open(results_file(), "a") as lines:
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
    endless = ("does not end", "stands still", "endless")
    hung = [m for m in mutants if outcome[m.id] == "killed"
            and any(words in results[m.id]["by"] for words in endless)]
    for title, chosen in (
        ("Survivors", survivors), ("Explained, and killed after all", refuted),
        ("Killed since they came to no end", hung),
    ):
        lines += ["", f"## {title}: {len(chosen)}"]
        for mutant in chosen:
            lines += ["", f"{mutant.id} {mutant.file}:{mutant.line} {mutant.kind}: {mutant.change}"]
            if mutant in survivors:
                lines += ["", format_entry(mutant.key, "")]
            lines += ["", "```diff", mutant.diff(texts[mutant.file]), "```"]
    report_file().write_text("\n".join(lines) + "\n")
    for mutant in survivors:
        print(f"\nsurvived: {mutant.file}:{mutant.line} {mutant.kind}: {mutant.change}")
        print(mutant.diff(texts[mutant.file]))
    print(f"\n{len(survivors)} survived, {len(hung)} came to no end; the report: {report_file()}")
    return survivors


def parse_arguments():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--rooms", nargs="+", metavar="ROOM", choices=ROOMS, default=list(ROOMS),
                        help=f"of these only: {', '.join(ROOMS)}")
    parser.add_argument("--files", nargs="+", metavar="GLOB", help="of these files only")
    parser.add_argument("--kinds", nargs="+", metavar="KIND",
                        help="of these kinds only (see --list)")
    parser.add_argument("--ids", nargs="+", metavar="ID",
                        help="these only, whether run before or not")
    parser.add_argument("--sample", type=int, metavar="N", help="so many, spread over the files")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="of the sample (1)")
    parser.add_argument("--jobs", type=int, default=1, metavar="N", help="tests at a time (1)")
    parser.add_argument("--resume", action="store_true", help="keep results, run what has none")
    parser.add_argument("--survivors", action="store_true",
                        help="with the results kept, run again what survived")
    parser.add_argument("--compare-code", action="store_true",
                        help="only look which survivors compile to the unchanged code")
    parser.add_argument("--thorough", action="store_true", help="with the tests of minutes, too")
    parser.add_argument("--quick", action="store_true",
                        help="without tests that take long; --survivors then takes the rest")
    parser.add_argument("--check-explained", action="store_true",
                        help="run what is explained and nothing else; each has to survive")
    parser.add_argument("--compare", type=int, metavar="N",
                        help="run N mutants chosen at run time and built, and compare")
    parser.add_argument("--work", type=Path, default=WORK, metavar="FOLDER",
                        help="for builds and results (build/mutation); one run at a time in each")
    parser.add_argument("--list", action="store_true", help="list the mutants and run nothing")
    parser.add_argument("--report", action="store_true",
                        help="report on what there is, run nothing")
    return parser.parse_args()


def choose(mutants, arguments):
    if arguments.kinds:
        mutants = [m for m in mutants if m.kind in arguments.kinds]
    if arguments.ids:
        mutants = [m for m in mutants if m.id in arguments.ids]
    if arguments.sample:
        mutants = sample(mutants, arguments.sample, arguments.seed)
    return mutants


def check_explained(bench, mutants, reasons, jobs):
    """Each explained mutant has to compile and to survive; returns how many do not."""
    explained = [m for m in mutants if m.key in reasons]
    troubles, count = 0, 0
    for mutant, result, by, seconds in run_mutants(bench, explained, jobs):
        count += 1
        print(f"{count}/{len(explained)} {result:9} {seconds:5.1f} s  "
              f"{mutant.file}:{mutant.line}: {mutant.change}", flush=True)
        if result != "survived":
            troubles += 1
            print(f"\n{result}, {by}:\n{format_entry(mutant.key, reasons[mutant.key])}", flush=True)
    print(f"{len(explained)} explained mutants, {troubles} of them killed or not compiling")
    return troubles


def is_run_needed(arguments, results, mutant):
    if arguments.ids:
        return True
    if arguments.survivors:
        return results.get(mutant.id, {}).get("result") == "survived"
    return mutant.id not in results


def main():
    global WORK
    arguments = parse_arguments()
    # Of a run in the background some are ignored, and the programs under test would inherit that.
    for ignored in (signal.SIGHUP, signal.SIGQUIT, signal.SIGTERM):
        signal.signal(ignored, signal.SIG_DFL)
    signal.signal(signal.SIGINT, signal.default_int_handler)
    WORK = arguments.work.resolve()
    everything, texts = make_all_mutants(arguments.rooms, arguments.files)
    reasons = read_explained(EXPLAINED)
    unfounded = find_unfounded(reasons, everything, arguments.files or arguments.rooms)
    for key in unfounded:
        print(f"{EXPLAINED.name}: there is no such mutant:\n{format_entry(key, reasons[key])}\n",
              file=sys.stderr)
    mutants = choose(everything, arguments)
    explained = {m.id for m in mutants if m.key in reasons}
    if arguments.list:
        for m in mutants:
            mark = " (explained)" if m.id in explained else ""
            print(f"{m.id} {m.file}:{m.line} {m.kind}: {m.change}{mark}\n    {m.statement}")
        print(len(mutants), "mutants")
        return 0

    WORK.mkdir(parents=True, exist_ok=True)
    # Those of a sample come without the thousands of others, which would take long to compile.
    built = mutants if arguments.sample else everything
    bench = Bench(arguments.rooms, built, texts, arguments.thorough, arguments.quick)
    jobs = max(1, arguments.jobs)
    if arguments.check_explained:
        bench.prepare()
        return 1 if check_explained(bench, mutants, reasons, jobs) or unfounded else 0
    if arguments.compare:
        bench.prepare()
        return 1 if compare_ways(bench, mutants, arguments.compare, arguments.seed, jobs) else 0
    if not arguments.report:
        keep = any((arguments.resume, arguments.survivors, arguments.ids, arguments.compare_code))
        if not keep and results_file().exists():
            results_file().replace(results_file().with_suffix(".previous.jsonl"))
        results = read_results()
        waiting = [m for m in mutants
                   if m.id not in explained and is_run_needed(arguments, results, m)]
        if waiting and not arguments.compare_code:
            bench.prepare()
            if not run_and_record(bench, waiting, jobs):
                return 2
        note_same_code(bench, mutants, explained, jobs)
    return 1 if report(mutants, texts, explained, read_results()) or unfounded else 0


if __name__ == "__main__":
    sys.exit(main())
