"""Makes the mutants of one file: small changes, each of which a test should notice."""
import collections
import difflib
import hashlib
import re
from dataclasses import dataclass

from cpp_source import Source

_COMPARISONS = {
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<"), ">=": (">", "<"),
    "==": ("!=",), "!=": ("==",),
}
_ARITHMETIC = {
    "+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "<<": ">>", ">>": "<<", "|": "&", "&": "|",
    "^": "|", "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "<<=": ">>=", ">>=": "<<=",
    "|=": "&=", "&=": "|=",
}
_LOGICAL = {"&&": "||", "||": "&&"}
_STEPS = {"++": "--", "--": "++"}
_WIDTHS = {
    "int32_t": "int64_t", "uint32_t": "uint64_t", "int64_t": "int32_t", "uint64_t": "uint32_t",
    "size_t": "uint32_t", "int": "int64_t",
}
_TAGS = {"[INFO]": "[WARN]", "[WARN]": "[ERROR]", "[ERROR]": "[INFO]"}
_CONVERSION = re.compile(r"%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z|j|t)?[diuoxXeEfgGcsp]")


@dataclass
class Mutant:
    """A change of one extent of one file. Its key names it, whatever line it stands on."""

    file: str
    line: int
    kind: str
    statement: str  # as it reads; outside of functions the lines that it stands on
    change: str  # in words
    edits: list  # (start, end, new text), from the front to the back
    ordinal: int = 1  # among those of the same file, statement and change
    count: int = 1  # how many of them there are

    @property
    def key(self):
        return (self.file, self.statement, self.change, self.ordinal, self.count)

    @property
    def id(self):
        name = "\0".join((self.file, self.statement, self.change, str(self.ordinal)))
        return hashlib.sha1(name.encode()).hexdigest()[:12]

    def apply(self, text):
        for start, end, new in reversed(self.edits):
            text = text[:start] + new + text[end:]
        return text

    def diff(self, text):
        lines = difflib.unified_diff(
            text.splitlines(), self.apply(text).splitlines(),
            f"a/{self.file}", f"b/{self.file}", n=2, lineterm="",
        )
        return "\n".join(lines)


def make_mutants(file, text):
    """All mutants of a file, in the order in which they stand."""
    maker = _Maker(file, Source(text))
    maker.mutate_tokens()
    maker.mutate_conditions()
    maker.mutate_statements()
    mutants = sorted(maker.mutants, key=lambda m: (m.edits[0][0], m.kind, m.change))
    alike = collections.defaultdict(list)
    for mutant in mutants:
        alike[mutant.statement, mutant.change].append(mutant)
    for group in alike.values():
        for ordinal, mutant in enumerate(group, 1):
            mutant.ordinal, mutant.count = ordinal, len(group)
    return mutants


class _Maker:
    def __init__(self, file, source):
        self.file = file
        self.source = source
        self.tokens = source.tokens
        self.mutants = []
        self.skipped = self._find_skipped()

    def _add(self, kind, change, start, end, new):
        source = self.source
        if source.text[start:end] == new:
            return
        statement = source.innermost(source.token_at(start))
        words = source.words_of(statement) if statement else source.lines(start, end)
        self.mutants.append(
            Mutant(self.file, source.line_of(start), kind, words, change, [(start, end, new)])
        )

    def _replace(self, kind, token, new):
        self._add(kind, f"{token.text} -> {new}", token.start, token.end, new)

    def _find_skipped(self):
        """Tokens that only the compiler hears: attributes, asserted constants, instantiations."""
        skipped, i = set(), 0
        while i < len(self.tokens):
            text = self.tokens[i].text
            end = i
            if text == "[" and self.tokens[i + 1].text == "[":
                end = self.source.partner[i]
            elif text in ("static_assert", "using", "extern"):
                while self.tokens[end].text not in (";", "{"):  # what a linkage holds is code
                    end += 1
            elif text == "template" and self.tokens[i + 1].text != "<":
                while self.tokens[end].text != ";":
                    end += 1
            elif text == "operator":
                end += 1
            if end > i:
                skipped.update(range(i, end + 1))
            i = end + 1
        # What makes a function pure is no number.
        for i in range(2, len(self.tokens) - 1):
            if [t.text for t in self.tokens[i - 1 : i + 2]] == ["=", "0", ";"]:
                if self.tokens[i - 2].text in (")", "const", "noexcept", "override"):
                    skipped.add(i)
        # A returned status of 0 or 1 has a change of its own.
        for statement in self.source.all_statements():
            first, behind = statement.tokens
            if statement.kind == "return" and behind - first == 3:
                if self.tokens[first + 1].text in ("0", "1"):
                    skipped.add(first + 1)
        return skipped

    # --- tokens -----------------------------------------------------------------------------------

    def mutate_tokens(self):
        for i, token in enumerate(self.tokens):
            if i in self.skipped:
                continue
            if token.kind == "operator":
                self._mutate_operator(i, token)
            elif token.kind == "number":
                self._mutate_number(token)
            elif token.kind == "string":
                self._mutate_string(token)
            elif token.kind == "char":
                self._mutate_char(token)
            elif token.text in ("true", "false"):
                self._replace("bool", token, "false" if token.text == "true" else "true")
            elif token.text in _WIDTHS:
                self._mutate_cast(i, token)

    def _is_binary(self, i):
        text = self.source.text
        token = self.tokens[i]
        return text[token.start - 1].isspace() and text[token.end].isspace()

    def _mutate_operator(self, i, token):
        text = token.text
        if text in _STEPS:
            self._replace("step", token, _STEPS[text])
        elif text == "!":
            self._add("logical", "! dropped", token.start, token.end, "")
        elif text == "-" and not self._is_binary(i):
            if self.tokens[i + 1].kind == "number":
                self._add("arithmetic", "- dropped", token.start, token.end, "")
        elif not self._is_binary(i):
            return
        elif text in _COMPARISONS:
            for new in _COMPARISONS[text]:
                self._replace("comparison", token, new)
        elif text in _LOGICAL:
            self._replace("logical", token, _LOGICAL[text])
        elif text == "|" and self._is_flag(i + 1):
            end = self.tokens[i + 1].end
            change = f"| {self.tokens[i + 1].text} dropped"
            self._add("arithmetic", change, self.tokens[i - 1].end, end, "")
        elif text in _ARITHMETIC:
            self._replace("arithmetic", token, _ARITHMETIC[text])

    def _is_flag(self, i):
        """True for a constant that stands alone: the operator behind it binds no tighter."""
        return self.tokens[i].text.isupper() and self.tokens[i + 1].text in ("|", ")", ",", ";")

    def _mutate_number(self, token):
        match = re.fullmatch(r"(0[xX][0-9a-fA-F']+|[\d.']+)([a-zA-Z]*)", token.text)
        if match is None:
            return
        digits, suffix = match.group(1).replace("'", ""), match.group(2)
        if "." in digits:
            self._replace("constant", token, f"{float(digits) + 1!r}{suffix}")
            return
        is_octal = digits.startswith("0") and digits.isdigit() and len(digits) > 1
        base = 16 if digits[:2] in ("0x", "0X") else 8 if is_octal else 10
        value, form = int(digits, base), {16: "{:#x}", 8: "0{:o}", 10: "{}"}[base]
        self._replace("constant", token, form.format(value + 1) + suffix)
        if value >= 2:
            self._replace("constant", token, form.format(value - 1) + suffix)

    def _mutate_char(self, token):
        inner = token.text[1:-1]
        if inner.startswith("\\"):
            self._replace("text", token, "'x'")
        else:
            self._replace("text", token, f"'{chr(ord(inner) + 1)}'")

    def _mutate_cast(self, i, token):
        if self.tokens[i - 1].text == "<" and self.tokens[i - 2].text == "static_cast":
            if self.tokens[i + 1].text == ">":
                self._replace("cast", token, _WIDTHS[token.text])

    def _mutate_string(self, token):
        quote = token.text.index('"') + 1
        inner = token.text[quote:-1]
        if token.text.startswith("R"):
            quote = token.text.index("(") + 1
            inner = token.text[quote : token.text.rindex(")")]
        start = token.start + quote

        def change(name, begin, end, new):
            self._add("text", name, start + begin, start + end, new)

        if not inner:
            change("a text in place of none", 0, 0, "x")
            return
        if inner.endswith("\\n"):
            change("no line feed", len(inner) - 2, len(inner), "")
        for tag, other in _TAGS.items():
            if inner.startswith(tag):
                change(f"{tag} -> {other}", 0, len(tag), other)
        taken = [m.span() for m in _CONVERSION.finditer(inner)]
        taken += [m.span() for m in re.finditer(r"\\.|^\[[A-Z]+\]", inner)]
        self._mutate_conversions(inner, change)
        words = [
            m for m in re.finditer(r"[A-Za-z_]+", inner)
            if not any(begin <= m.start() < end for begin, end in taken)
        ]
        if words:
            word = max(words, key=lambda m: len(m.group()))
            new = word.group()[:-1] + ("y" if word.group()[-1] == "x" else "x")
            change(f"{word.group()} -> {new}", *word.span(), new)
        elif not taken:
            change(f'"{inner}" -> "#"', 0, len(inner), "#")
        blanks = re.search(r"(?<=\S)  +(?=\S)", inner)
        if blanks:
            change("one blank less", blanks.start(), blanks.start() + 1, "")

    def _mutate_conversions(self, inner, change):
        for match in _CONVERSION.finditer(inner):
            old = match.group()
            if old[-1] == "f":
                new = re.sub(r"\d(?=f$)", lambda m: str(int(m.group()) + 1), old)
            else:
                new = {"%u": "%d", "%d": "%u", "%zu": "%u", "%lu": "%u"}.get(old, old)
            if new != old:
                change(f"{old} -> {new}", *match.span(), new)

    # --- conditions and statements ----------------------------------------------------------------

    def mutate_conditions(self):
        """Turns round a condition in which no operator does."""
        turning = set(_COMPARISONS) | set(_LOGICAL) | {"!"}
        for first, behind in self.source.conditions:
            if not any(self.tokens[i].text in turning and
                       (self.tokens[i].text == "!" or self._is_binary(i))
                       for i in range(first, behind)):
                start, end = self.tokens[first].start, self.tokens[behind - 1].end
                new = f"!({self.source.text[start:end]})"
                self._add("logical", "condition turned round", start, end, new)

    def mutate_statements(self):
        for siblings in self.source.siblings:
            for statement in siblings:
                self._drop(statement)
            for first, second in zip(siblings, siblings[1:]):
                self._swap(first, second)

    def _drop(self, statement):
        start, end = self.source.extent(statement)
        if statement.tokens[0] in self.skipped and statement.kind != "return":
            return
        if statement.kind in ("expression", "break", "continue", "throw"):
            what = "statement" if statement.kind == "expression" else statement.kind
            self._add("statement", f"{what} dropped", start, end, ";")
        elif statement.kind == "return":
            old = "".join(self.source.statement_text(statement).split())
            if old == "return;":
                self._add("statement", "return dropped", start, end, ";")
            elif old in ("return0;", "return1;"):
                new = "return 1;" if old == "return0;" else "return 0;"
                self._add("statement", f"returns {new[-2]}", start, end, new)

    def _swap(self, first, second):
        source = self.source
        movable = ("expression", "declaration", "if", "loop")
        if first.kind not in movable or second.kind not in movable:
            return
        shared = source.words(first) & source.words(second)
        if first.kind == "declaration" and source.declared_name(first) in shared:
            return  # would not compile
        if not shared and not (source.has_call(first) and source.has_call(second)):
            return  # cannot be noticed
        (start, end), (next_start, next_end) = source.extent(first), source.extent(second)
        old, new = source.text[start:end], source.text[next_start:next_end]
        if old == new:
            return
        mutant = Mutant(
            self.file, source.line_of(start), "swap", source.words_of(first),
            f"swapped with: {source.words_of(second)}",
            [(start, end, new), (next_start, next_end, old)],
        )
        self.mutants.append(mutant)
