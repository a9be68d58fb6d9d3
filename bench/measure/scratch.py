"""Folders for inputs and dumps, and whether they have the room."""
import contextlib
import os
import re
import shutil
import tempfile
from pathlib import Path

MEMORY = Path("/dev/shm")


def on_disk():
    """The folder that TMPDIR names, /tmp without."""
    return Path(tempfile.gettempdir())


def in_memory():
    """A file system that has next to no time of its own; that of `on_disk` where there is none."""
    return MEMORY if os.access(MEMORY, os.W_OK) else on_disk()


@contextlib.contextmanager
def scratch_folder(place):
    with tempfile.TemporaryDirectory(prefix="vorn-bench.", dir=place) as name:
        yield Path(name)


def free_bytes(place):
    free = shutil.disk_usage(place).free
    if not place.is_relative_to(MEMORY):
        return free
    # Files in memory are taken off what programs can have, so half of that is left alone.
    available = re.search(r"MemAvailable: +(\d+) kB", Path("/proc/meminfo").read_text())
    return min(free, int(available[1]) * 1024 // 2)


def has_room(folder, needed, what):
    """Whether `needed` bytes and a tenth more are free; says so where they are not."""
    free = free_bytes(folder)
    if free >= 1.1 * needed:
        return True
    print(f"bench: {what} left out: it needs {1.1 * needed / 1e9:.1f} GB in {folder.parent}, "
          f"{free / 1e9:.1f} GB are free", flush=True)
    return False


def empty(folder):
    """Makes the folder anew."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
