"""Runs a command once and says how long it took."""
import os
import sys
import time
from dataclasses import dataclass


@dataclass(frozen=True)
class Sample:
    wall: float  # seconds from before the start to after the end
    cpu: float   # seconds of processor time, in the system's calls too


def run(command, environment):
    """Standard output goes to /dev/null. A command that fails ends the benchmark."""
    words = [str(word) for word in command]
    quiet = [(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)]
    start = time.perf_counter()
    child = os.posix_spawn(words[0], words, environment, file_actions=quiet)
    _, status, usage = os.wait4(child, 0)
    wall = time.perf_counter() - start
    code = os.waitstatus_to_exitcode(status)
    if code != 0:
        sys.exit(f"bench: {' '.join(words)} ended with status {code}.")
    return Sample(wall, usage.ru_utime + usage.ru_stime)
