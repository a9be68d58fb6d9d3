"""Fleets on this machine: boards that are an sshd each, and a device that sleeps for an inference,
since eight boards of one machine have no more processors than one."""
import contextlib
import json
import os
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path

from measure.memory import PeakMemory
from measure.vorn_run import Shapes

HERE = Path(__file__).resolve().parent
BED = HERE.parents[1] / "tests/beds/sshd.sh"
SMALL = Shapes(input=(1, 8), output=(1, 8))


def call(*words, environment=None):
    """Ends the benchmark where the command fails; returns seconds and the peak of memory."""
    memory = PeakMemory(*words)
    start = time.perf_counter()
    ended = subprocess.run(memory.words, env=environment, stdout=subprocess.DEVNULL,
                           stderr=subprocess.PIPE)
    seconds = time.perf_counter() - start
    if ended.returncode != 0:
        sys.exit(f"bench: {' '.join(map(str, words))} ended with status {ended.returncode}: "
                 f"{ended.stderr.decode(errors='replace')}")
    return seconds, memory.bytes()


@contextlib.contextmanager
def boards(build, folder, count, sample_seconds):
    """A file of boards that are there meanwhile."""
    bed = folder / "bed"
    subprocess.run(["bash", BED, "start", bed, str(count)], check=True,
                   stdout=subprocess.DEVNULL)
    pause = {"VORN_IDLE_EXECUTE_US": str(round(sample_seconds * 1e6))} if sample_seconds else {}
    try:
        path = folder / f"boards{count}.json"
        path.write_text(json.dumps({"schema": 1, "boards": [
            {"name": f"b{n}", "host": f"b{n}", "ssh": ["-F", str(bed / "ssh_config")],
             "work": str(folder / f"work{n}"), "runtime": str(build.idle / "libvorn.so"),
             "environment": pause} for n in range(1, count + 1)]}))
        yield path
    finally:
        subprocess.run(["bash", BED, "stop", bed], check=True, stdout=subprocess.DEVNULL)


@dataclass(frozen=True)
class Network:
    """A model of the idle runtime, a configuration, and lists of inputs."""
    folder: Path

    def make(self, samples):
        self.folder.mkdir()
        (self.folder / "model").write_text(SMALL.model())
        (self.folder / "config.json").write_text("{}\n")
        (self.folder / "inputs").mkdir()
        lines = []
        for number in range(samples):
            name = f"inputs/{number}.bin"
            (self.folder / name).write_bytes(number.to_bytes(SMALL.input_bytes, "little"))
            lines.append(name + "\n")
        (self.folder / "list.txt").write_text("".join(lines))
        return self

    def words(self):
        return ["-m", self.folder / "model", "-j", self.folder / "config.json",
                "-i", self.folder / "list.txt"]


def plan(build, network, fleet, chunk):
    return call(build.folder / "vorn", "fleet", "plan", *network.words(), "--chunk", chunk,
                "-o", fleet, environment={**os.environ, **build.environment})


def run(build, fleet, path):
    """The seconds, and what its journals tell of each chunk: seconds of its phases, "launch"
    without "vorn-run", which is that process."""
    seconds, _ = call(build.folder / "vorn", "fleet", "run", fleet, "--boards", path)
    ends = [record for journal in (fleet / "journal").glob("board-*.jsonl")
            for record in map(json.loads, journal.read_text().splitlines())
            if record["event"] == "end" and "chunk" in record]
    chunks = []
    for end in ends:
        chunk = {phase: end["phasesNs"].get(phase, 0) / 1e9
                 for phase in ("connect", "send", "launch", "fetch")}
        attempt = fleet / "chunks" / str(end["chunk"]) / str(end["attempt"])
        phases = json.loads((attempt / "run.json").read_text())["phases"]
        chunk["vorn-run"] = phases["wholeNs"] / 1e9
        chunk["launch"] -= chunk["vorn-run"]
        chunks.append(chunk)
    return seconds, chunks
