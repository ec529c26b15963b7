"""Just enough C++ to follow a text from its literals to the log: tokens, functions, calls."""
import re

TOKEN = re.compile(
    r'(?P<space>\s+|//[^\n]*|/\*.*?\*/|\#\s*include[^\n]*)'
    r'|(?P<str>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")'
    r"|(?P<chr>[uUL]?'(?:\\.|[^'\\\n])+')"
    r"|(?P<num>\.?\d(?:'?[\w.])*)"
    r'|(?P<id>[A-Za-z_]\w*)'
    r'|(?P<op>::|->|<<=|<<|==|!=|<=|>=|&&|\|\||\+\+|--|\+=|-=|.)',
    re.S)
ESCAPE = re.compile(r'\\(x[0-9a-fA-F]+|[0-7]{1,3}|.)', re.S)
ESCAPED = {"n": "\n", "t": "\t", "r": "\r", "a": "\a", "b": "\b", "f": "\f", "v": "\v"}
OPENING = {"(": ")", "[": "]", "{": "}"}
# What may stand in front of a bracket without being a function's name.
NOT_NAMES = {"if", "for", "while", "switch", "catch", "return", "sizeof", "decltype", "noexcept",
             "alignof", "static_assert", "__attribute__"}


class Token:
    """kind: str, chr, num, id or op; text: of literals what they stand for."""

    def __init__(self, kind, text, line):
        self.kind, self.text, self.line = kind, text, line

    def __repr__(self):
        return f"{self.kind}:{self.text!r}"


def unescaped(literal):
    def char(found):
        code = found.group(1)
        if code[0] == "x":
            return chr(int(code[1:], 16))
        if code[0] in "01234567":
            return chr(int(code, 8))
        return ESCAPED.get(code, code)
    quote = literal.index(literal[-1])
    return ESCAPE.sub(char, literal[quote + 1:-1])


def tokens_of(text):
    tokens, line = [], 1
    for found in TOKEN.finditer(text):
        kind, piece = found.lastgroup, found.group()
        if kind in ("str", "chr"):
            if kind == "str" and tokens and tokens[-1].kind == "str":
                tokens[-1].text += unescaped(piece)
            else:
                tokens.append(Token(kind, unescaped(piece), line))
        elif kind != "space":
            tokens.append(Token(kind, piece, line))
        line += piece.count("\n")
    return tokens


def matching(tokens, opening):
    """Index of the bracket that closes the one at `opening`."""
    depth = 0
    for index in range(opening, len(tokens)):
        if tokens[index].kind == "op":
            depth += tokens[index].text in OPENING
            depth -= tokens[index].text in OPENING.values()
            if depth == 0:
                return index
    return len(tokens) - 1


def split(tokens, separator):
    """Parts between separators that stand outside all brackets; none for nothing."""
    parts, depth = [[]], 0
    for token in tokens:
        if token.kind == "op":
            depth += token.text in OPENING
            depth -= token.text in OPENING.values()
            if token.text == separator and depth == 0:
                parts.append([])
                continue
        parts[-1].append(token)
    return parts if tokens else []


class Function:
    def __init__(self, source, name, parameters, begin, end):
        self.source, self.name = source, name
        self.parameters = parameters  # (words of the type, name)
        self.begin, self.end = begin, end  # of the body, in the source's tokens

    @property
    def body(self):
        return self.source.tokens[self.begin:self.end]

    def parameter(self, name):
        """Position and type's words of a parameter, or None."""
        for position, (words, parameter) in enumerate(self.parameters):
            if parameter == name:
                return position, words
        return None


class Call:
    def __init__(self, source, index):
        tokens = source.tokens
        self.source, self.index = source, index
        self.name, self.line = tokens[index].text, tokens[index].line
        self.end = matching(tokens, index + 1)
        self.arguments = split(tokens[index + 2:self.end], ",")

    def __str__(self):
        return f"{self.source.name}:{self.line}"


class Source:
    """A file with its function definitions and its calls (declarations look like calls: they have
    no literals)."""

    def __init__(self, name, text):
        self.name = name
        self.tokens = tokens_of(text)
        self.functions = list(self._functions())
        self.calls = [Call(self, i) for i in range(len(self.tokens) - 1) if self._is_call(i)]

    def _is_call(self, index):
        token, following = self.tokens[index], self.tokens[index + 1]
        return token.kind == "id" and following.text == "(" and following.kind == "op"

    def _functions(self):
        tokens = self.tokens
        for index, token in enumerate(tokens):
            if token.kind != "op" or token.text != "{":
                continue
            head = self._parameter_list(index)
            if head is not None:
                opening, closing = head
                name = tokens[opening - 1].text
                if tokens[opening - 2].text == "operator":
                    name = "operator" + name
                parameters = [self._parameter(part)
                              for part in split(tokens[opening + 1:closing], ",")]
                yield Function(self, name, parameters, index + 1, matching(tokens, index))

    def _parameter_list(self, brace):
        """Brackets of the parameter list in front of a body; None for other braces."""
        tokens, index = self.tokens, brace - 1
        while index > 0 and tokens[index].text in ("const", "override", "final", "noexcept"):
            index -= 1
        if tokens[index].text != ")" or tokens[index].kind != "op":
            return None
        closing, depth = index, 0
        while index >= 0:
            if tokens[index].kind == "op":
                depth += tokens[index].text == ")"
                depth -= tokens[index].text == "("
            if depth == 0:
                break
            index -= 1
        name = tokens[index - 1]
        is_operator = name.text == "<<" and tokens[index - 2].text == "operator"
        if not is_operator and (name.kind != "id" or name.text in NOT_NAMES):
            return None
        return index, closing

    @staticmethod
    def _parameter(part):
        words = [token.text for token in split(part, "=")[0]] if part else []
        return (words[:-1], words[-1]) if words else ([], "")

    def function_at(self, index):
        """The innermost function around a token."""
        around = [f for f in self.functions if f.begin <= index < f.end]
        return max(around, key=lambda f: f.begin) if around else None
