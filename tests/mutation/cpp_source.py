"""Reads C++ as far as making mutants needs it: tokens, and statements with their siblings.

It knows the language as this project writes and formats it, no more: binary operators stand between
blanks, pointers and references stick to their type. What it takes wrongly makes a mutant that does
not compile, which the report counts apart.
"""
import bisect
import re
from dataclasses import dataclass

_TOKEN = re.compile(
    r"""
    (?P<blank>\s+|//[^\n]*|/\*.*?\*/)
  | (?P<directive>\#(?:[^\n\\]|\\.)*)
  | (?P<string>R"(?P<mark>[^(]*)\(.*?\)(?P=mark)"|(?:u8|[uUL])?"(?:[^"\\\n]|\\.)*")
  | (?P<char>'(?:[^'\\\n]|\\.)+')
  | (?P<number>(?:0[xXbB][0-9a-fA-F']+|(?:\d[\d']*)?\.?\d[\d']*\.?(?:[eE][+-]?\d+)?)[a-zA-Z]*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<operator><=>|<<=|>>=|\.\.\.|->\*|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||
      \+=|-=|\*=|/=|%=|&=|\|=|\^=|[-+*/%&|^~!=<>?:;,.(){}\[\]])
    """,
    re.VERBOSE | re.DOTALL,
)

_KINDS = ("blank", "directive", "string", "char", "number", "word", "operator")
_CLOSING = {"(": ")", "[": "]", "{": "}"}
_TYPE_WORDS = set(
    "const constexpr static extern auto unsigned signed int char bool float double long short void "
    "struct class enum using typedef typename".split()
)
_LEAVING = {"return", "break", "continue", "throw", "goto"}


@dataclass
class Token:
    kind: str  # string, char, number, word or operator
    text: str
    start: int
    end: int


@dataclass
class Statement:
    """`tokens` are the indexes of its first token and of the one behind its last."""

    kind: str  # block, if, loop, switch, try, label, declaration, expression or a word of leaving
    tokens: tuple
    head: tuple = ()  # of one without braces: the tokens of the `if (...)` in front of it


@dataclass
class Function:
    """A function with a body, or a lambda outside of functions. Indexes of tokens."""

    first: int  # of its declaration
    opening: int
    closing: int
    is_constant: bool  # may be run by the compiler


class Source:
    """A file, its tokens (without blanks and directives) and the sibling lists of its functions."""

    def __init__(self, text):
        self.text = text
        self.tokens = []
        at = 0
        while at < len(text):
            match = _TOKEN.match(text, at)
            if match is None:
                raise ValueError(f"no token at offset {at}: {text[at:at + 20]!r}")
            at = match.end()
            kind = next(kind for kind in _KINDS if match.group(kind) is not None)
            if kind not in ("blank", "directive"):
                self.tokens.append(Token(kind, match.group(), match.start(), at))
        self._token_starts = [token.start for token in self.tokens]
        self._line_starts = [0] + [m.end() for m in re.finditer("\n", text)]
        self.partner = self._match_brackets()
        self.siblings = []  # lists of statements that stand in a row
        self.blocks = []  # those between braces: (token of the brace, siblings)
        self.functions = []
        self.constants = []  # tokens of declarations that the compiler works out
        self.conditions = []  # token ranges of what an `if` or a `while` asks
        self._owners = None
        self._scan_declarations(0, len(self.tokens))

    def line_of(self, offset):
        return bisect.bisect_right(self._line_starts, offset)

    def lines(self, start, end):
        """The whole lines that an extent touches, blanks squeezed."""
        first = self.text.rfind("\n", 0, start) + 1
        last = self.text.find("\n", max(start, end - 1))
        return " ".join(self.text[first : last if last >= 0 else None].split())

    def words_of(self, statement):
        """A statement as it reads, on one line: what stands in braces below it is `{...}`, of an
        `if` or a loop only the head is given, which stands before what follows it without braces.
        """
        first, behind = statement.tokens
        if statement.kind in ("if", "loop", "switch") and self.tokens[first].text != "do":
            opening = next(i for i in range(first, behind) if self.tokens[i].text == "(")
            behind = self.partner[opening] + 1
        own = self._join(first, behind)
        return f"{self._join(*statement.head)} {own}" if statement.head else own

    def innermost(self, index):
        """The innermost statement that a token belongs to; none outside of functions."""
        if self._owners is None:
            self._owners = {}
            for statement in sorted(self.all_statements(), reverse=True,
                                    key=lambda s: s.tokens[1] - s.tokens[0]):
                for i in range(*statement.tokens):
                    self._owners[i] = statement
        return self._owners.get(index)

    def token_at(self, offset):
        """The token that an offset lies in, or the last one in front of it."""
        return bisect.bisect_right(self._token_starts, offset) - 1

    def function_around(self, start, end):
        """The function whose body an extent lies in."""
        for function in self.functions:
            if (self.tokens[function.opening].end <= start
                    and end <= self.tokens[function.closing].start):
                return function
        return None

    def _join(self, first, behind):
        inner = {opening for opening, _ in self.blocks}
        pieces, i = [], first
        while i < behind:
            token = self.tokens[i]
            if pieces and token.start > self.tokens[i - 1].end:
                pieces.append(" ")
            if i in inner:
                pieces.append("{...}")
                i = self.partner[i]
            else:
                pieces.append(token.text)
            i += 1
        return "".join(pieces)

    def extent(self, statement):
        first, behind = statement.tokens
        return self.tokens[first].start, self.tokens[behind - 1].end

    def statement_text(self, statement):
        start, end = self.extent(statement)
        return self.text[start:end]

    def words(self, statement):
        return {t.text for t in self.tokens[slice(*statement.tokens)] if t.kind == "word"}

    def has_call(self, statement):
        """True if anything but a cast to a type is called in it."""
        first, behind = statement.tokens
        for i in range(first + 1, behind):
            if self.tokens[i].text == "(":
                before = self.tokens[i - 1]
                if before.kind == "word" and before.text not in ("if", "for", "while", "switch"):
                    return True
                if before.text == ">":
                    opening = max(j for j in range(first, i) if self.tokens[j].text == "<")
                    if not self.tokens[opening - 1].text.endswith("_cast"):
                        return True
        return False

    def declared_name(self, statement):
        """The name that a declaration brings in; None for structured bindings and the like."""
        first, behind = statement.tokens
        for i in range(first, behind):
            if self.tokens[i].text in ("=", "{", ";", "(", "["):
                return self.tokens[i - 1].text if self.tokens[i - 1].kind == "word" else None
        return None

    def all_statements(self):
        for siblings in self.siblings:
            yield from siblings

    # ----------------------------------------------------------------------------------------------

    def _match_brackets(self):
        partner, open_at = {}, []
        for i, token in enumerate(self.tokens):
            if token.kind != "operator":
                continue
            if token.text in _CLOSING:
                open_at.append(i)
            elif token.text in _CLOSING.values():
                opening = open_at.pop()
                partner[opening], partner[i] = i, opening
        return partner

    def _is(self, i, *texts):
        return i < len(self.tokens) and self.tokens[i].text in texts

    def _scan_declarations(self, i, end):
        """Namespaces and classes from token `i` on: finds the functions' bodies."""
        while i < end:
            i = self._scan_declaration(i, end)

    def _scan_declaration(self, i, end):
        first, seen_call, in_initializers = i, False, False
        scope = next((t.text for t in self.tokens[first:end] if t.text in "{;("), "")
        words = set()
        while i < end:
            text = self.tokens[i].text
            if text == ";":
                if "constexpr" in words:
                    self.constants.append((first, i))
                return i + 1
            if text == ":" and self.tokens[first].text in ("public", "private", "protected"):
                return i + 1
            if text == ":" and seen_call:
                in_initializers = True
            elif text == "(":
                seen_call = True
                i = self.partner[i]
            elif text == "[":
                i = self.partner[i]
            elif text == "{":
                close = self.partner[i]
                before = self.tokens[i - 1]
                if scope == "{" and words & {"namespace", "class", "struct"} and "=" not in words:
                    self._scan_declarations(i + 1, close)
                    if "namespace" in words:
                        return close + 1
                elif seen_call and "=" not in words and not (
                    in_initializers and before.kind == "word" and before.text != "noexcept"
                ):
                    is_constant = bool(words & {"constexpr", "consteval"})
                    self.functions.append(Function(first, i, close, is_constant))
                    self._parse_block(i)
                    return close + 1
                self._scan_lambdas(i + 1, close, "constexpr" in words)
                i = close
            else:
                words.add(text)
            i += 1
        return end

    def _scan_lambdas(self, i, end, is_constant):
        """Lambdas within what a declaration is set to: tables of functions."""
        while i < end:
            if self.tokens[i].text == "{" and self._begins_lambda(i):
                is_called = self._is(self.partner[i] + 1, "(")
                self.functions.append(Function(i, i, self.partner[i], is_constant and is_called))
                i = self._parse_block(i)
            else:
                i += 1

    def _parse_block(self, opening):
        """The statements between braces; returns the token behind them."""
        close = self.partner[opening]
        siblings, i = [], opening + 1
        while i < close:
            statement = self._parse_statement(i)
            siblings.append(statement)
            i = statement.tokens[1]
        self.siblings.append(siblings)
        self.blocks.append((opening, siblings))
        return close + 1

    def _parse_substatement(self, i, head):
        if self._is(i, "{"):
            return self._parse_block(i)
        statement = self._parse_statement(i)
        statement.head = (head, i)
        self.siblings.append([statement])
        return statement.tokens[1]

    def _parse_statement(self, i):
        first, text = i, self.tokens[i].text
        if text == "{":
            return Statement("block", (first, self._parse_block(i)))
        if text in ("if", "while", "for", "switch"):
            while not self._is(i, "("):
                i += 1
            if text in ("if", "while") and not self._is(first + 1, "constexpr"):
                self.conditions.append((i + 1, self.partner[i]))
            i = self._parse_substatement(self.partner[i] + 1, first)
            if text == "if" and self._is(i, "else"):
                i = self._parse_substatement(i + 1, i)
            kind = {"if": "if", "switch": "switch"}.get(text, "loop")
            return Statement(kind, (first, i))
        if text == "do":
            i = self._parse_substatement(i + 1, first)
            return Statement("loop", (first, self._end_of_expression(i)))
        if text == "try":
            i = self._parse_block(i + 1)
            while self._is(i, "catch"):
                i = self._parse_block(self.partner[i + 1] + 1)
            return Statement("try", (first, i))
        if text in ("case", "default"):
            while not self._is(i, ":"):
                i += 1
            return Statement("label", (first, i + 1))
        if text in _LEAVING:
            return Statement(text, (first, self._end_of_expression(i)))
        kind = "declaration" if self._is_declaration(i) else "expression"
        return Statement(kind, (first, self._end_of_expression(i)))

    def _end_of_expression(self, i):
        """The token behind the semicolon; enters the bodies of lambdas on the way."""
        behind = i
        while not self._is(behind, ";"):
            is_closing = self.tokens[behind].text in _CLOSING
            behind = self.partner[behind] + 1 if is_closing else behind + 1
        while i < behind:
            is_lambda = self.tokens[i].text == "{" and self._begins_lambda(i)
            i = self._parse_block(i) if is_lambda else i + 1
        return behind + 1

    def _begins_lambda(self, brace):
        before = brace - 1
        return (
            self._is(before, ")") and self._is(self.partner[before] - 1, "]")
        ) or (self._is(before, "]") and not self._is(self.partner[before] - 1, "]", ")"))

    def _is_declaration(self, i):
        if self.tokens[i].text in _TYPE_WORDS:
            return True
        if self.tokens[i].kind != "word":
            return False
        i += 1
        while True:
            if self._is(i, "::"):
                i += 2
            elif self._is(i, "<") and self.tokens[i].start == self.tokens[i - 1].end:
                depth = 0
                while True:
                    depth += {"<": 1, ">": -1, ">>": -2}.get(self.tokens[i].text, 0)
                    i += 1
                    if depth <= 0:
                        break
            else:
                break
        follows = self.tokens[i]
        if follows.text in ("*", "&", "&&"):
            return follows.start == self.tokens[i - 1].end
        return follows.kind == "word"
