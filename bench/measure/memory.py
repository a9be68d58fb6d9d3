"""How much memory a process took. What wait4 tells of it begins with the memory of the process that
made it, which is this program."""
import re
import threading
import time
from pathlib import Path


class PeakMemory(threading.Thread):
    """Looks at a process until it has ended, two hundred times a second."""

    def __init__(self, process):
        super().__init__(daemon=True)
        self._status = Path(f"/proc/{process}/status")
        self._peak = 0
        self.start()

    def run(self):
        while (found := re.search(r"^VmHWM:\s*(\d+) kB", self._read(), re.MULTILINE)) is not None:
            self._peak = 1024 * int(found[1])
            time.sleep(0.005)

    def _read(self):
        try:
            return self._status.read_text()
        except OSError:
            return ""

    def bytes(self):
        """Of a process that has ended."""
        self.join()
        return self._peak
