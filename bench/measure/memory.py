"""How much memory a process took. What wait4 tells of it begins with the memory of the process that
made it, which is this program; GNU time is small."""
import tempfile
from pathlib import Path


class PeakMemory:
    """Of one command, which is to be called by `words`; it ends with its own status."""

    def __init__(self, *words):
        with tempfile.NamedTemporaryFile(prefix="vorn-bench.", delete=False) as report:
            self._report = Path(report.name)
        self.words = ["/usr/bin/time", "--quiet", "--format=%M", f"--output={self._report}",
                      *map(str, words)]

    def bytes(self):
        """To be called once, after it ended."""
        kibibytes = int(self._report.read_text())
        self._report.unlink()
        return 1024 * kibibytes
