"""Copies of the checkout with a build of their own: one with all mutants in it, one for others."""
import collections
import json
import re
import shutil
import subprocess
import sys

from cpp_source import Source
from processes import run_limited
from programs import find_programs
from switched import can_be_switched, switch_file

BUILD_CPU_SECONDS = 1800  # of one compilation
BUILD_SECONDS = 12 * 3600  # of all of them, beside whatever else the machine does
PLACES_OF_A_FILE = 1024


class Tree:
    """A copy of the checkout, always at the same place so that a second run has little to build."""

    failures_taken = 1  # of compilations, before a build ends

    def __init__(self, root, folder):
        self.root = root
        self.folder = folder
        self.build = folder / "build" / "mutation"
        self.log = folder.with_suffix(".log")
        self.temporary = folder.with_suffix(".tmp")

    def copy_checkout(self, changed):
        """`changed` has the texts of files that are not as in the checkout."""
        listed = subprocess.run(
            ["git", "-C", str(self.root), "ls-files", "-z", "--cached", "--others",
             "--exclude-standard"],
            check=True, capture_output=True, text=True,
        )
        names = {name for name in listed.stdout.split("\0") if (self.root / name).is_file()}
        for name in names:
            if name in changed:
                self.write(name, changed[name])
                continue
            source, target = self.root / name, self.folder / name
            if target.exists() and target.read_bytes() == source.read_bytes():
                continue
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)
        for target in self.folder.rglob("*"):
            name = target.relative_to(self.folder).as_posix()
            if target.is_file() and not name.startswith((".deps", "build/")) and name not in names:
                target.unlink()
        if not (self.folder / ".deps").exists():
            (self.folder / ".deps").symlink_to(self.root / ".deps")

    def write(self, name, text):
        target = self.folder / name
        if not target.exists() or target.read_text() != text:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_text(text)

    def configure(self):
        self._run(["cmake", "-S", str(self.folder), "--preset", "mutation"])

    def make(self, targets):
        """True if they build; else what the compiler says is in the log."""
        command = ["ninja", "-C", str(self.build), "-k", str(self.failures_taken), "-j", "2",
                   *targets]
        return run_limited(command, BUILD_CPU_SECONDS, self.log, self.temporary,
                           most_seconds=BUILD_SECONDS).status == 0

    def complaints(self):
        """The errors of the log, as (file below the tree, line, words)."""
        for line in self.log.read_text(errors="replace").splitlines():
            match = re.match(r"(\S+?):(\d+):\d+: (?:fatal )?error: (.*)", line)
            if match:
                path = (self.build / match.group(1)).resolve()
                if path.is_relative_to(self.folder):
                    file = path.relative_to(self.folder).as_posix()
                    yield file, int(match.group(2)), match.group(3)

    def has_target(self, name):
        listed = subprocess.run(["ninja", "-C", str(self.build), "-t", "targets", "all"],
                                check=True, capture_output=True, text=True)
        return f"\n{name}: " in f"\n{listed.stdout}"

    def die(self, words):
        print("\n".join(self.log.read_text(errors="replace").splitlines()[-60:]), file=sys.stderr)
        sys.exit(f"{words}; the whole log is {self.log}")

    def _run(self, command):
        if run_limited(command, BUILD_CPU_SECONDS, self.log, self.temporary).status != 0:
            self.die(f"failed: {' '.join(command)}")


class SwitchedTree(Tree):
    """All mutants that can be chosen when a program runs, in one build."""

    failures_taken = 0  # as many as there are: each tells of mutants

    def __init__(self, root, folder, mutants, texts):
        super().__init__(root, folder)
        self.texts = texts
        self.by_file = collections.defaultdict(list)
        for mutant in mutants:
            self.by_file[mutant.file].append(mutant)
        self.numbers = {}  # by id, of those that can be chosen
        for file, of_file in self.by_file.items():
            source = Source(texts[file])
            self.numbers.update((mutant.id, int(mutant.id, 16)) for mutant in of_file
                                if can_be_switched(source, mutant))
        self.switched = {}
        self._first_places = self._assign_places()
        self.places = {}  # the place of a mutant's statement, by id
        self._refused = folder.with_suffix(".refused")  # ids that a build found out earlier
        if self._refused.exists():
            for id in self._refused.read_text().split():
                self.numbers.pop(id, None)

    @property
    def place_count(self):
        return len(self._first_places) * PLACES_OF_A_FILE

    def _assign_places(self):
        """The first place by file, as in earlier builds: no file is compiled for another's sake."""
        kept = self.folder.with_suffix(".places")
        first = json.loads(kept.read_text()) if kept.exists() else {}
        for file in self.by_file:
            first.setdefault(file, len(first) * PLACES_OF_A_FILE)
        kept.write_text(json.dumps(first))
        return first

    def write_all(self):
        self._switch()
        self.copy_checkout({file: switched.text for file, switched in self.switched.items()})
        self.configure()

    def build_all(self, targets, names):
        """Builds and returns the programs of tests; drops the mutants that do not compile so."""
        while not self.make(targets):
            lines = collections.defaultdict(list)
            for file, line, _ in self.complaints():
                if file in self.switched:
                    lines[file].append(line)
            refused = {mutant.id for file, of_file in lines.items()
                       for mutant in self.switched[file].to_blame(of_file)}
            if not refused:
                self.die("the mutants do not build, and none of them is to blame")
            print(f"{len(refused)} mutants do not compile beside the others", flush=True)
            for id in refused:
                del self.numbers[id]
            with open(self._refused, "a") as file:
                file.write("\n".join(refused) + "\n")
            self._switch()
            for file, switched in self.switched.items():
                self.write(file, switched.text)
        return find_programs(self.build, names)

    def _switch(self):
        self.places = {}
        for file, mutants in self.by_file.items():
            switched = switch_file(file, self.texts[file], mutants, self.numbers,
                                   self._first_places[file])
            if len(switched.all_places) > PLACES_OF_A_FILE:
                sys.exit(f"{file} has {len(switched.all_places)} places: raise PLACES_OF_A_FILE")
            self.switched[file] = switched
            self.places.update(switched.places)

    def places_of(self, mutant):
        """Where a test has to come by to notice it; None where nobody knows.

        A constant has no place, and of a sample a test that notices it may come by none of another.
        """
        place = self.places.get(mutant.id)
        return {place} if place is not None else None


class PlainTree(Tree):
    """One mutant at a time, built like any other change."""

    def __init__(self, root, folder):
        super().__init__(root, folder)
        self.changed = None

    def change(self, mutant, text):
        if self.changed not in (None, mutant.file):
            self.restore()
        self.changed = mutant.file
        self.write(mutant.file, mutant.apply(text))

    def restore(self):
        if self.changed:
            self.write(self.changed, (self.root / self.changed).read_text())
        self.changed = None
