"""Runs programs of which nobody knows whether they end: limits count work done, not time passed."""
import math
import os
import resource
import shutil
import signal
import subprocess
import threading
import time
from dataclasses import dataclass
from pathlib import Path

MAX_OUTPUT_BYTES = 64 << 20
MAX_MEMORY_KB = 3 << 20
MAX_DISK_BYTES = 2 << 30  # really taken; tests have sparse files of many gibibytes
STANDSTILL_SECONDS = 30  # in which no process of a program ran or could have run
LAST_RESORT_SECONDS = 1200

_TICKS = os.sysconf("SC_CLK_TCK")
_PAGE = os.sysconf("SC_PAGE_SIZE")


class Stopped(Exception):
    """The run was interrupted."""


stop = threading.Event()


@dataclass
class Ended:
    status: object  # the exit status, minus a signal's number, or in words which limit was exceeded
    cpu_seconds: float  # of the program and the children that it waited for


@dataclass
class _Session:
    memory_kb: int = 0
    cpu_seconds: float = 0
    is_awake: bool = False  # something runs, wants to run or waits for a disk


def _look_at(session):
    seen = _Session()
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            fields = Path("/proc", name, "stat").read_text().rpartition(")")[2].split()
            if int(fields[3]) != session:
                continue
            tasks = Path("/proc", name, "task").iterdir()
            states = [(task / "stat").read_text().rpartition(")")[2].split()[0] for task in tasks]
        except OSError:
            continue  # has ended meanwhile
        seen.memory_kb += int(fields[21]) * _PAGE // 1024
        seen.cpu_seconds += sum(map(int, fields[11:15])) / _TICKS
        seen.is_awake = seen.is_awake or any(state in "RD" for state in states)
    return seen


def _disk_bytes(folder):
    """What the files of a folder take on the disk."""
    blocks = 0
    for parent, _, names in os.walk(folder):
        for name in names:
            try:
                blocks += os.lstat(os.path.join(parent, name)).st_blocks
            except OSError:
                continue  # is gone meanwhile
    return blocks * 512


class _Guard:
    """Says what a running program exceeds, if anything."""

    def __init__(self, session, cpu_seconds, most_seconds, log, temporary):
        self.session, self.cpu_seconds, self.most_seconds = session, cpu_seconds, most_seconds
        self.log, self.temporary = log, temporary
        self.begin = self.awake_at = time.monotonic()
        self.last_cpu = 0

    def excess(self):
        now = time.monotonic()
        seen = _look_at(self.session)
        if seen.is_awake or seen.cpu_seconds != self.last_cpu:
            self.awake_at, self.last_cpu = now, seen.cpu_seconds
        if seen.cpu_seconds > 2 * self.cpu_seconds or now - self.begin > self.most_seconds:
            return "does not end"
        if now - self.awake_at > STANDSTILL_SECONDS:
            return "stands still"
        if seen.memory_kb > MAX_MEMORY_KB:
            return "endless memory"
        if os.path.getsize(self.log) > MAX_OUTPUT_BYTES:
            return "endless output"
        return "endless files" if _disk_bytes(self.temporary) > MAX_DISK_BYTES else None


def _read_autogroup():
    """How nice the scheduler's group is that this session is in; nothing where there are none."""
    try:
        return Path("/proc/self/autogroup").read_text().split()[-1]
    except OSError:
        return ""


def _be_as_nice_as(autogroup):
    """A session is a group of its own, and as such not nice at all, whatever its processes are."""
    try:
        if autogroup:
            Path("/proc/self/autogroup").write_text(autogroup)
    except OSError:
        pass  # asked for too often


def run_limited(command, cpu_seconds, log, temporary, environment=None, folder=None,
                most_seconds=LAST_RESORT_SECONDS):
    """Runs a program to its end or its limits. `temporary` is emptied and takes its own files."""
    shutil.rmtree(temporary, ignore_errors=True)
    temporary.mkdir(parents=True)
    most = math.ceil(cpu_seconds)
    autogroup = _read_autogroup()

    def prepare():
        # No core, but room for a test of what sees to it.
        resource.setrlimit(resource.RLIMIT_CORE, (0, resource.getrlimit(resource.RLIMIT_CORE)[1]))
        resource.setrlimit(resource.RLIMIT_CPU, (most, most + 1))
        os.nice(5)
        _be_as_nice_as(autogroup)

    all_variables = {**os.environ, **(environment or {}), "TMPDIR": str(temporary)}
    all_variables.pop("VORN_RUN", None)  # would name another command to the tests
    with open(log, "wb") as out:
        process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT, cwd=folder,
            env=all_variables, start_new_session=True, preexec_fn=prepare,
        )
    guard = _Guard(process.pid, most, most_seconds, log, temporary)
    pause, looked_at, excess = 0.002, time.monotonic(), None
    while True:
        ended, status, usage = os.wait4(process.pid, os.WNOHANG)
        if ended:
            break
        time.sleep(pause)
        pause = min(pause * 1.5, 0.05)
        if time.monotonic() - looked_at > 1 or stop.is_set():
            looked_at = time.monotonic()
            excess = excess or guard.excess()
            if excess or stop.is_set():
                _end_session(process.pid)
    process.returncode = os.waitstatus_to_exitcode(status)
    _end_session(process.pid)  # children that outlived it
    if stop.is_set() and not excess:
        raise Stopped()
    if process.returncode == -signal.SIGXCPU:
        excess = "does not end"
    return Ended(excess or process.returncode, usage.ru_utime + usage.ru_stime)


def _end_session(session):
    """Ends a program that we started as the leader of a session, with its children."""
    try:
        os.killpg(session, signal.SIGKILL)
    except ProcessLookupError:
        pass
