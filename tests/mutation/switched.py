"""Puts the mutants of a file into one source: an environment variable says which of them it is.

A function with mutants becomes a choice of whole bodies, the unchanged one by default:

    int Count(int last) {
    switch (::mutation::chosen) {
    case 7: {
      return last - 1;
    } break;
    default: {
    ::mutation::Reach(3);
      return last + 1;
    } }
    }

So one build serves all of them, and a mutant costs no more than running tests. Outside of functions
a literal becomes a choice of literals. What cannot be chosen when the program runs (constants of
the compiler, other declarations) is left to a build of its own; so is what does not compile here,
as the compiler's complaints tell.

The unchanged body also notes which statements are reached, to know which tests a mutant concerns.
"""
import bisect
from dataclasses import dataclass, field

from cpp_source import Source

_LITERALS = ("constant", "bool", "text")


@dataclass
class Region:
    """Lines of a switched source, and who is to blame if they do not compile."""

    first: int
    last: int
    mutants: list


@dataclass
class Switched:
    text: str
    regions: list  # of mutants, in order
    places: dict = field(default_factory=dict)  # the place of a mutant's statement, by id
    all_places: range = range(0)
    literals: list = field(default_factory=list)  # mutants outside of functions

    def mutants_at(self, line):
        """The mutants that a complaint about a line is due to."""
        at = bisect.bisect_right([region.first for region in self.regions], line) - 1
        if at >= 0 and line <= self.regions[at].last:
            return self.regions[at].mutants
        return []

    def to_blame(self, lines):
        """The mutants that complaints about these lines are due to. A literal outside of functions
        may be what the compiler needs elsewhere: where one is complained of, the rest may follow
        from it, and where nothing else is, any of them may be the one.
        """
        blamed = [mutant for line in lines for mutant in self.mutants_at(line)]
        literals = [mutant for mutant in blamed if mutant in self.literals]
        return literals or blamed or (self.literals if lines else [])


def switch_file(name, text, mutants, number_of, first_place):
    """`mutants` are those of this file; those that `number_of` has a number for can be chosen."""
    return _Writer(name, text, mutants, number_of, first_place).write()


class _Writer:
    def __init__(self, name, text, mutants, number_of, first_place):
        self.to_root = "../" * name.count("/")
        self.source = Source(text)
        self.mutants = [mutant for mutant in mutants if mutant.id in number_of]
        self.others = [mutant for mutant in mutants if mutant.id not in number_of]
        self.number_of = number_of
        self.first_place = self.next_place = first_place
        self.places = {}
        self.pieces = []
        self.lines = 1  # the one that is being written
        self.regions = []

    def write(self):
        self._put(f'#include "{self.to_root}tests/mutation/switch.h"\n')
        by_function, by_token = self._sort_mutants()
        changes = sorted([(self.source.tokens[f.opening].end, f, of) for f, of in by_function]
                         + [(self.source.tokens[i].start, i, of) for i, of in by_token.items()],
                         key=lambda change: change[0])
        at = 0
        for start, where, mutants in changes:
            self._put(self.source.text[at:start])
            at = (self._put_literals(where, mutants) if isinstance(where, int)
                  else self._put_bodies(where, mutants))
        self._put(self.source.text[at:])
        return Switched("".join(self.pieces), sorted(self.regions, key=lambda r: r.first),
                        self.places, range(self.first_place, self.next_place),
                        [mutant for of in by_token.values() for mutant in of])

    def _put(self, text):
        self.pieces.append(text)
        self.lines += text.count("\n")

    def _sort_mutants(self):
        functions, tokens = {}, {}
        for mutant in self.mutants:
            function = switching_function(self.source, mutant)
            if function:
                functions.setdefault(function.opening, (function, []))[1].append(mutant)
            else:
                index = self.source.token_at(mutant.edits[0][0])
                tokens.setdefault(index, []).append(mutant)
        return list(functions.values()), tokens

    # --- functions --------------------------------------------------------------------------------

    def _put_bodies(self, function, mutants):
        tokens, text = self.source.tokens, self.source.text
        start, end = tokens[function.opening].end, tokens[function.closing].start
        self._put("\nswitch (::mutation::chosen) {\n")
        for mutant in mutants:
            first = self.lines
            body = text[start:end]
            for edit_start, edit_end, new in reversed(mutant.edits):
                body = body[: edit_start - start] + new + body[edit_end - start :]
            self._put(f"case {self.number_of[mutant.id]}: {{\n{body}\n}} break;\n")
            self.regions.append(Region(first, self.lines - 1, [mutant]))
        first = self.lines
        self._put("default: {\n")
        self._put_marked(function, mutants)
        self._put("\n} }\n")
        self.regions.append(Region(first, self.lines - 1, list(mutants)))
        return end

    def _put_marked(self, function, mutants):
        tokens, text = self.source.tokens, self.source.text
        place_of = {}  # by a statement's first token
        entry = self._new_place()
        marks = []
        for opening, siblings in self.source.blocks:
            if not function.opening <= opening < function.closing:
                continue
            for statement in siblings:
                if statement.kind != "label":
                    first = statement.tokens[0]
                    place_of[first] = (self._new_place(), statement.tokens[1])
                    marks.append((tokens[first].start, place_of[first][0]))
        self._put(f"::mutation::Reach({entry});\n")
        at = tokens[function.opening].end
        for start, place in sorted(marks):
            self._put(f"{text[at:start]}::mutation::Reach({place}); ")
            at = start
        self._put(text[at : tokens[function.closing].start])
        for mutant in [*mutants, *self.others]:
            index = self.source.token_at(mutant.edits[0][0])
            if not function.opening < index < function.closing:
                continue
            around = [(first, place) for first, (place, behind) in place_of.items()
                      if first <= index < behind]
            self.places[mutant.id] = max(around)[1] if around else entry

    def _new_place(self):
        self.next_place += 1
        return self.next_place - 1

    # --- literals ---------------------------------------------------------------------------------

    def _put_literals(self, index, mutants):
        token = self.source.tokens[index]
        words = token.text
        for mutant in mutants:
            (start, end, new), = mutant.edits
            changed = token.text[: start - token.start] + new + token.text[end - token.start :]
            number = self.number_of[mutant.id]
            words = f"(::mutation::chosen == {number} ? {changed} : {words})"
        self.regions.append(Region(self.lines, self.lines, list(mutants)))
        self._put(words)
        return token.end


def switching_function(source, mutant):
    """The function whose body has all of a mutant's edits and runs with the program only."""
    functions = [source.function_around(start, end) for start, end, _ in mutant.edits]
    if functions[0] is None or any(function is not functions[0] for function in functions):
        return None
    return None if functions[0].is_constant else functions[0]


def can_be_switched(source, mutant):
    if switching_function(source, mutant):
        return True
    if any(source.function_around(start, end) for start, end, _ in mutant.edits):
        return False  # run by the compiler
    if mutant.file.startswith("layers/"):
        return False  # it runs as it is loaded, and what is chosen would be set behind that
    start, end, _ = mutant.edits[0]
    index = source.token_at(start)
    if any(first <= index < behind for first, behind in source.constants):
        return False
    token = source.tokens[index]
    return (mutant.kind in _LITERALS and token.kind in ("number", "string", "char", "word")
            and token.start <= start and end <= token.end
            and "enum" not in mutant.statement.split())
