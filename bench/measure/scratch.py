"""A folder for inputs and dumps, in the folder that TMPDIR names (/tmp without)."""
import contextlib
import shutil
import tempfile
from pathlib import Path


@contextlib.contextmanager
def scratch_folder():
    with tempfile.TemporaryDirectory(prefix="vorn-bench.") as name:
        yield Path(name)


def has_room(folder, needed, what):
    """Whether `needed` bytes and a tenth more are free; says so where they are not."""
    free = shutil.disk_usage(folder).free
    if free >= 1.1 * needed:
        return True
    print(f"bench: {what} left out: it needs {needed / 1e9:.1f} GB in {folder.parent}, "
          f"{free / 1e9:.1f} GB are free. Set TMPDIR to a folder with more.", flush=True)
    return False


def empty(folder):
    """Makes the folder anew."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
