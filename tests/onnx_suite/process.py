"""Runs a program for one case; nothing that it does ends the suite."""
import subprocess
from dataclasses import dataclass


@dataclass(frozen=True)
class Ended:
    """How a program ended: `problem` is "" for the status 0."""
    problem: str
    out: str
    error: str


def run(words, seconds, environment):
    """Runs to its end, or until the seconds are over."""
    try:
        done = subprocess.run([str(word) for word in words], capture_output=True, timeout=seconds,
                              env=environment, stdin=subprocess.DEVNULL, check=False)
    except subprocess.TimeoutExpired:
        return Ended(f"still running after {seconds} s", "", "")
    problem = ""
    if done.returncode < 0:
        problem = f"ended by signal {-done.returncode}"
    elif done.returncode != 0:
        problem = f"ended with status {done.returncode}"
    return Ended(problem, done.stdout.decode(errors="replace"),
                 done.stderr.decode(errors="replace"))
