#!/usr/bin/env python3
"""What makes and explains mutants, judged itself."""
import contextlib
import io
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))
from cpp_source import Source  # noqa: E402
from explained import find_unfounded, format_entry, read_explained  # noqa: E402
from mutants import make_mutants  # noqa: E402
from mutate import sample  # noqa: E402
from switched import can_be_switched, switch_file  # noqa: E402

TESTS = Path(__file__).resolve().parents[1]

PROGRAM = """\
extern "C" int printf(const char*, ...);
extern "C" int atoi(const char*);
constexpr int kLimit = 3;
int first = 5;
struct Point {
  explicit Point(int start) : x(start + 1) {}
  int x;
  int y = 2;
};
static int Count(int last) {
  int sum = 0;
  for (int i = 0; i < last; ++i) {
    if (i == 2 || i == 9) continue;
    sum += i;
  }
  if (sum > kLimit) {
    printf("more than %d words\\n", kLimit);
  }
  printf("sum\\n");
  return sum;
}
int main() {
  const auto twice = [](int value) { return value * 2; };
  const Point point(first);
  printf("%d %d %d %d\\n", Count(4), twice(3), point.x, point.y);
  return 0;
}
"""


def run(program, environment=None):
    ended = subprocess.run([program], capture_output=True, env=environment or {}, timeout=60)
    return ended.returncode, ended.stdout


class Mutants(unittest.TestCase):
    def test_are_named_by_their_statement_and_nothing_around_it(self):
        text = "void F() {\n  if (a > 1) {\n    G(2);\n    return;\n  }\n  if (b) return;\n}\n"
        named = {(m.statement, m.change) for m in make_mutants("f.cpp", text)}
        self.assertIn(("if (a > 1)", "> -> >="), named)
        self.assertIn(("G(2);", "2 -> 3"), named)
        self.assertIn(("return;", "return dropped"), named)
        self.assertIn(("if (b) return;", "return dropped"), named)

    def test_of_the_same_words_are_counted(self):
        text = "void F() {\n  G(1);\n}\nvoid H() {\n  G(1);\n}\n"
        keys = [m.key[1:] for m in make_mutants("f.cpp", text) if m.change == "1 -> 2"]
        self.assertEqual(keys, [("G(1);", "1 -> 2", 1, 2), ("G(1);", "1 -> 2", 2, 2)])

    def test_swap_names_both_statements(self):
        text = "void F() {\n  A(x);\n  if (x) {\n    B();\n  }\n}\n"
        changes = [m.change for m in make_mutants("f.cpp", text) if m.kind == "swap"]
        self.assertEqual(changes, ["swapped with: if (x)"])

    def test_leave_alone_what_makes_a_function_pure(self):
        text = "struct S {\n  virtual int F() const = 0;\n  int count = 0;\n};\n"
        self.assertEqual([m.line for m in make_mutants("f.h", text)], [3])

    def test_change_what_a_linkage_holds(self):
        made = make_mutants("f.cpp", 'extern "C" {\nint F() { return 1; }\nLISTED(F, G)\n}\n')
        self.assertEqual({m.line for m in made}, {2})


class Sample(unittest.TestCase):
    def test_is_spread_over_the_files(self):
        long = make_mutants("long.cpp", PROGRAM)
        short = make_mutants("short.cpp", "void F() {\n  G(1);\n}\n")
        chosen = sample(long + short, 9, seed=1)
        self.assertEqual(len(chosen), 9)
        self.assertEqual([m for m in chosen if m.file == "short.cpp"], short)
        self.assertEqual(chosen, sample(long + short, 9, seed=1))
        self.assertNotEqual(chosen, sample(long + short, 9, seed=2))

    def test_stays_where_a_file_changes(self):
        """Else the results of a run would be worth nothing after the next change."""
        other = make_mutants("other.cpp", PROGRAM)
        before = make_mutants("file.cpp", PROGRAM)
        after = make_mutants("file.cpp", PROGRAM.replace("  int y = 2;\n", "  int y;\n"))
        self.assertLess(len(after), len(before))
        kept = [m.id for m in sample(before + other, 20, seed=1) if m.file == "other.cpp"]
        chosen = {m.id for m in sample(after + other, 20, seed=1)}
        self.assertGreater(len(kept), 5)
        self.assertLessEqual(set(kept), chosen)


class Explained(unittest.TestCase):
    def read(self, text):
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder, "explained.txt")
            path.write_text(text)
            return read_explained(path)

    def test_entry_explains_one_mutant(self):
        mutants = make_mutants("f.cpp", "void F() {\n  G(1);\n  G(1);\n  G(2, 1);\n}\n")
        for mutant in mutants:
            reasons = self.read("# a word\n\n" + format_entry(mutant.key, "why") + "\n")
            self.assertEqual([m for m in mutants if m.key in reasons], [mutant])
            self.assertEqual(list(reasons.values()), ["why"])

    def test_entry_without_its_mutant_is_told(self):
        entry = "file: f.cpp\nstatement: G(1);\nchange: 1 -> 2\nreason: why\n"
        one = make_mutants("f.cpp", "void F() {\n  G(1);\n}\n")
        two = make_mutants("f.cpp", "void F() {\n  G(1);\n  G(1);\n}\n")
        other = make_mutants("f.cpp", "void F() {\n  G(1, 2);\n}\n")
        reasons = self.read(entry)
        self.assertEqual(find_unfounded(reasons, one, {"f.cpp"}), [])
        self.assertEqual(len(find_unfounded(reasons, two, {"f.cpp"})), 1)
        self.assertEqual(len(find_unfounded(reasons, other, {"f.cpp"})), 1)
        self.assertEqual(find_unfounded(reasons, other, {"g.cpp"}), [])

    def test_refuses_what_is_no_entry(self):
        entry = "file: f.cpp\nstatement: G(1);\nchange: 1 -> 2\n"
        for text in (entry, entry + "reason: why\nwhich: 2\n", entry + "reason: a\nreason: b\n",
                     (entry + "reason: why\n\n") * 2):
            with self.assertRaises(SystemExit), contextlib.redirect_stderr(io.StringIO()):
                self.read(text)


class Switched(unittest.TestCase):
    def test_program_is_each_of_its_mutants(self):
        """Every mutant that can be chosen, against the same change compiled by itself."""
        mutants = make_mutants("tests/program.cpp", PROGRAM)
        source = Source(PROGRAM)
        able = [m for m in mutants if can_be_switched(source, m)]
        self.assertEqual({m.statement for m in mutants if m not in able},
                         {"constexpr int kLimit = 3;",
                          "explicit Point(int start) : x(start + 1) {}"})
        with tempfile.TemporaryDirectory() as folder:
            numbers = {m.id: number for number, m in enumerate(able, 1)}
            switched = switch_file("tests/program.cpp", PROGRAM, mutants, numbers, 0)
            self.compile(folder, "all", switched.text)
            unchanged = run(f"{folder}/all")
            self.assertEqual(unchanged, (0, b"more than 3 words\nsum\n4 6 6 2\n"))
            ends = set()
            for mutant in able:
                if mutant.statement.startswith("for"):
                    continue  # some of those do not end
                self.compile(folder, "one", mutant.apply(PROGRAM))
                chosen = run(f"{folder}/all", {"VORN_MUTANT": str(numbers[mutant.id])})
                self.assertEqual(chosen, run(f"{folder}/one"), mutant)
                ends.add(chosen)
            self.assertGreater(len(ends), 10)

    def test_variable_of_a_layer_is_not_chosen(self):
        text = "int limit = 3;\nint F() {\n  return limit + 1;\n}\n"
        for file, lines in (("kit/f.cpp", {1, 3}), ("layers/f.cpp", {3})):
            mutants = make_mutants(file, text)
            self.assertEqual({m.line for m in mutants}, {1, 3})
            able = {m.line for m in mutants if can_be_switched(Source(text), m)}
            self.assertEqual(able, lines)

    def test_program_notes_the_statements_that_it_reaches(self):
        mutants = make_mutants("tests/program.cpp", PROGRAM)
        numbers = {m.id: number for number, m in enumerate(mutants, 1)
                   if m.statement in ("sum += i;", "return 0;")}  # a function of each
        switched = switch_file("tests/program.cpp", PROGRAM, mutants, numbers, 0)
        place_of = {m.statement: switched.places[m.id] for m in mutants if m.id in switched.places}
        with tempfile.TemporaryDirectory() as folder:
            self.compile(folder, "all", switched.text.replace("sum > kLimit", "sum > 99"))
            places = Path(folder, "places")
            places.write_bytes(bytes(switched.all_places.stop))
            run(f"{folder}/all", {"VORN_REACHED": str(places)})
            reached = places.read_bytes()
        self.assertEqual(reached[place_of['printf("sum\\n");']], 1)
        self.assertEqual(reached[place_of["sum += i;"]], 1)
        self.assertEqual(reached[place_of['printf("more than %d words\\n", kLimit);']], 0)

    def test_complaint_about_a_line_is_due_to_its_mutant(self):
        mutants = make_mutants("f.cpp", "int F() {\n  return G(1) + 2;\n}\n")
        numbers = {m.id: number for number, m in enumerate(mutants, 7)}
        switched = switch_file("f.cpp", "int F() {\n  return G(1) + 2;\n}\n", mutants, numbers, 0)
        lines = switched.text.split("\n")
        for mutant in mutants:
            at = lines.index(f"case {numbers[mutant.id]}: {{") + 1
            self.assertEqual(switched.mutants_at(at + 2), [mutant])

    def test_literal_that_the_compiler_needs_is_blamed_first(self):
        text = "struct S {\n  char text[4];\n};\nint F(S s) {\n  return s.text[1];\n}\n"
        mutants = make_mutants("f.cpp", text)
        numbers = {m.id: number for number, m in enumerate(mutants, 7)}
        switched = switch_file("f.cpp", text, mutants, numbers, 0)
        of_literal = [m for m in mutants if m.line == 2]
        of_body = [m for m in mutants if m.line == 5]
        lines = switched.text.split("\n")
        literal = next(i for i, line in enumerate(lines, 1) if "char text" in line)
        body = [i for i, line in enumerate(lines, 1) if "return s.text" in line]
        self.assertEqual(len(body), len(of_body) + 1)
        self.assertEqual(switched.to_blame([*body, literal]), of_literal)
        self.assertEqual(switched.to_blame(body[:1]), of_body[:1])
        self.assertEqual(switched.to_blame([1]), of_literal)  # somewhere else
        self.assertEqual(switched.to_blame([]), [])

    def compile(self, folder, name, text):
        """Headers are found as from the folder tests/."""
        made = subprocess.run(
            ["c++", "-std=c++20", "-w", "-x", "c++", "-", f"-I{TESTS}", "-o", f"{folder}/{name}"],
            input=text.encode(), cwd=TESTS)
        self.assertEqual(made.returncode, 0)


if __name__ == "__main__":
    unittest.main()
