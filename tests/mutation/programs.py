"""The test programs of a build as ctest knows them, and which tests reach which places."""
import json
import os
import re
import subprocess
from dataclasses import dataclass, field

from processes import run_limited

RANDOM_RUNS = 100  # of the command against its model
THOROUGH_TESTS = ("FailEveryCall.*",)  # minutes long; with --thorough only
# What a program may write is their subject, and here it writes what it reaches.
LEFT_OUT_TESTS = ("*ReachesNoNetworkAndWritesIntoItsOutputFolderOnly",
                  "*ThatIsNotNamedMeansTheRoot")
BASELINE_CPU_SECONDS = 900


@dataclass
class Program:
    """A program of tests as it is started, and what is known of its tests by name."""

    name: str
    command: list
    environment: dict
    folder: str
    filter: str = "*"
    seconds: dict = field(default_factory=dict)  # that a test takes
    reached: dict = field(default_factory=dict)  # sets of places by test
    cpu_seconds: float = 0  # of all its tests

    @property
    def tests(self):
        return list(self.seconds)

    def run(self, tests, cpu_seconds, log, temporary, environment):
        """Runs tests until one fails; `tests` is a filter."""
        command = [*self.command, f"--gtest_filter={tests}", "--gtest_fail_fast",
                   "--gtest_color=no"]
        return run_limited(
            command, cpu_seconds, log, temporary,
            {**self.environment, "VORN_RANDOM_RUNS": str(RANDOM_RUNS), **environment}, self.folder)


def find_programs(build, names):
    """The programs with these names that ctest runs: once for each set of arguments."""
    listed = subprocess.run(["ctest", "--test-dir", str(build), "--show-only=json-v1"],
                            check=True, capture_output=True, text=True)
    programs = {}
    for test in json.loads(listed.stdout)["tests"]:
        command = test.get("command")
        if not command or os.path.basename(command[0]) not in names:
            continue
        properties = {p["name"]: p["value"] for p in test.get("properties", ())}
        arguments = [a for a in command[1:] if not a.startswith("--gtest")]
        filters = [a.partition("=")[2] for a in command if a.startswith("--gtest_filter=")]
        environment = dict(e.split("=", 1) for e in properties.get("ENVIRONMENT", ()))
        if any(a.startswith("--gtest_repeat") for a in command):
            continue
        # A test that ctest was told by the program: all of them are one program here.
        is_one = bool(filters) and test["name"].endswith(filters[0])
        key = (command[0], *arguments, *sorted(environment.items()))
        if key not in programs:
            programs[key] = Program(
                os.path.basename(command[0]), [command[0], *arguments], environment,
                properties.get("WORKING_DIRECTORY"),
                "*" if is_one or not filters else filters[0])
    return list(programs.values())


def all_tests(program, is_thorough):
    """A filter."""
    left_out = LEFT_OUT_TESTS if is_thorough else LEFT_OUT_TESTS + THOROUGH_TESTS
    return program.filter + (":" if "-" in program.filter else "-") + ":".join(left_out)


def take_baseline(program, places, work, is_thorough):
    """Runs all tests of a program unchanged and notes what each reaches; false if one fails."""
    shared, log = work.with_suffix(".places"), work.with_suffix(".log")
    tests = work.with_suffix(".places.tests")
    shared.write_bytes(bytes(places))
    tests.unlink(missing_ok=True)
    ended = program.run(all_tests(program, is_thorough), BASELINE_CPU_SECONDS, log,
                        work.with_suffix(".tmp"), {"VORN_REACHED": str(shared)})
    program.cpu_seconds = ended.cpu_seconds
    program.seconds, program.reached = {}, {}
    if tests.exists():
        for line in tests.read_text().splitlines():
            name, milliseconds, *reached = line.split()
            program.seconds[name] = program.seconds.get(name, 0) + int(milliseconds) / 1000
            program.reached.setdefault(name, set()).update(map(int, reached))
    late = [place for place, byte in enumerate(shared.read_bytes()) if byte]  # when it ended
    for name in program.tests[:1]:
        program.reached[name].update(late)
    shared.unlink()
    return ended.status == 0


def blame(log):
    """The test that failed or was running, as the output of a program tells."""
    failed, running = None, None
    with open(log, errors="replace") as lines:
        for line in lines:
            match = re.match(r"\[( +RUN +|  FAILED  )\] ([\w./]+)", line)
            if match and "RUN" in match.group(1):
                running = match.group(2)
            elif match and failed is None:
                failed = match.group(2)
    return failed or running
