"""Follows what is handed to the log's helpers back to the literals that it is made of."""
import itertools
import re

from cppsource import split

WILD = "\u2026"
LINE_HELPERS = {"logOut", "logErr"}  # they add the line end
TEXT_HELPERS = {"writeOut", "writeErr"}
FORMAT_HELPERS = {"mppLog", "mppErr"}
HELPERS = LINE_HELPERS | TEXT_HELPERS | FORMAT_HELPERS
# Where they are made, and what else is there.
HELPER_FILES = {"control/task/logline.h", "control/task/logline.cpp",
                "control/decode/mpplog.h", "control/decode/mpplog.cpp"}
HELPER_PARTS = {"writeTo", "composeLine", "compose"}
# The software engine prints two lists, each when a program asks for it.
ENGINE_HELPERS = {"fputs"}

TEXT_TYPES = {"char", "string", "string_view"}
FORMAT = re.compile(r"%(?:%|[-+ #0]*[\d*]*(?:\.[\d*]+)?(?:hh|h|ll|l|z|j|t|L)?[a-zA-Z])")
DEEPEST = 6  # functions that hand a text on


def joined(text):
    """Neighbouring wildcards are one."""
    return re.sub(WILD + "+", WILD, text)


def combined(alternatives):
    """Every way to put one alternative of each piece side by side."""
    return list(dict.fromkeys(joined("".join(choice)) for choice in itertools.product(*alternatives)))


def unformatted(text):
    return FORMAT.sub(lambda found: "%" if found.group() == "%%" else WILD, text)


class Print:
    """One line that some statement prints. whole: else it is a part of a line that another
    function ends; general: the line without what the function was handed."""

    def __init__(self, text, general, place, whole=True):
        self.text, self.general, self.place, self.whole = text, general, place, whole


class Texts:
    def __init__(self, sources):
        self.sources = sources
        self.calls, self.streamed, self.literals, self.known = {}, {}, set(), {}
        for source in sources:
            self.literals.update(t.text for t in source.tokens if t.kind == "str")
            for call in source.calls:
                self.calls.setdefault(call.name, []).append(call)
            for function in source.functions:
                if function.name == "operator<<" and len(function.parameters) == 2:
                    self.streamed[function.parameters[1][0][-2]] = function

    def contexts(self, function, depth=0):
        """What a function's text parameters are at each of its calls."""
        if function is None or depth > DEEPEST:
            return [{}]
        if (function, depth) not in self.known:
            self.known[function, depth] = self._contexts(function, depth)
        return self.known[function, depth]

    def _contexts(self, function, depth):
        wanted = [(position, name) for position, (words, name) in enumerate(function.parameters)
                  if TEXT_TYPES & set(words)]
        if not wanted:
            return [{}]
        found = []
        for call in self.calls.get(function.name, []):
            caller = call.source.function_at(call.index)
            own = any(f.name == function.name for f in call.source.functions)
            if caller is None or own and call.source is not function.source:
                continue  # no call, or one of that file's function of the same name
            for context in self.contexts(caller, depth + 1):
                texts = [self.of(call.arguments[position], caller, context, depth + 1)
                         if position < len(call.arguments) else [WILD] for position, _ in wanted]
                found += [dict(zip([name for _, name in wanted], choice))
                          for choice in itertools.product(*texts)]
        return [dict(items) for items in dict.fromkeys(tuple(c.items()) for c in found)] or [{}]

    def of(self, tokens, function, context, depth=0):
        """All that an expression can be as a text."""
        if len(tokens) == 1:
            return self._of_word(tokens[0], function, context, depth)
        parts = split(tokens, "?")
        if len(parts) == 2:
            return [text for part in split(parts[1], ":")
                    for text in self.of(part, function, context, depth)]
        parts = split(tokens, "+")
        if len(parts) > 1:
            return combined([self.of(part, function, context, depth) for part in parts])
        words = [token.text for token in tokens]
        if len(words) == 5 and words[2:] == ["str", "(", ")"]:
            return self.composed(words[0], function, context, depth)
        if words[:4] == ["std", "::", "string", "("] and words[-1] == ")":
            return self.of(tokens[4:-1], function, context, depth)
        if tokens and tokens[0].kind == "id" and words[1:2] == ["("] and words[-1] == ")":
            return self._of_call(tokens[0].text, depth)
        return [WILD]

    def _of_word(self, token, function, context, depth):
        if token.kind in ("str", "chr"):
            return [token.text]
        if token.kind != "id":
            return [WILD]
        if token.text in context:
            return [context[token.text]]
        return self._assigned(function.body, token.text) \
            or self._of_object(token.text, function, depth) \
            or self._constant(function.source.tokens, token.text) or [WILD]

    @staticmethod
    def _assigned(body, name):
        return [body[i + 2].text for i in range(len(body) - 2) if body[i].text == name
                and body[i + 1].text == "=" and body[i + 2].kind == "str"]

    @staticmethod
    def _constant(tokens, name):
        """constexpr char name[] = "..."; """
        return [tokens[i + 4].text for i in range(1, len(tokens) - 4) if tokens[i].text == name
                and tokens[i - 1].text == "char" and tokens[i + 1].text == "["
                and tokens[i + 4].kind == "str"]

    def _of_object(self, name, function, depth):
        """Objects with an operator<< of ours."""
        around = function.source.tokens[max(0, function.begin - 40):function.end]
        for i in range(len(around) - 2):
            type_name = around[i].text
            if type_name in self.streamed and around[i + 1].text == "&" and around[i + 2].text == name:
                operator = self.streamed[type_name]
                return self.composed(operator.parameters[0][1], operator, {}, depth + 1)
        return []

    def _of_call(self, name, depth):
        """Functions that return what they composed in a stream."""
        for source in self.sources:
            for function in source.functions:
                if function.name != name:
                    continue
                body = [token.text for token in function.body]
                if body[-7:-6] == ["return"] and body[-4:-1] == ["str", "(", ")"]:
                    return self.composed(body[-6], function, {}, depth + 1)
        return [WILD]

    def composed(self, stream, function, context, depth):
        """The text that a function puts into a stream, in the order of its statements."""
        pieces, body, index = [], function.body, 0
        while index < len(body):
            before = body[index - 1].text if index else ";"
            after = body[index + 1].text if index + 1 < len(body) else ";"
            if body[index].text == stream and after == "<<" and before in (";", "{", "}"):
                statement = split(body[index:], ";")[0]
                pieces += [self.of(part, function, context, depth)
                           for part in split(statement, "<<")[1:]]
                index += len(statement)
            elif body[index].text == stream and before in ("(", ",") and after in (")", ","):
                pieces.append([WILD])  # another function puts something in
            index += 1
        return combined(pieces)

    def prints(self):
        """Everything that is printed through the helpers."""
        for source in self.sources:
            for call in source.calls:
                helper = call.name
                engine = source.name.startswith("engine/") and helper in ENGINE_HELPERS
                if source.name in HELPER_FILES or not (helper in HELPERS or engine):
                    continue
                yield from self._prints_of(call, source.function_at(call.index))

    def _prints_of(self, call, function):
        if function is None:
            yield Print("", "", f"{call}: {call.name} outside a function")
            return
        arguments = call.arguments
        if call.name in FORMAT_HELPERS | ENGINE_HELPERS:
            arguments = arguments[:1]

        def lines(context):
            for text in combined([self.of(part, function, context) for part in arguments]):
                yield lines_of(text, call.name)

        names = [name for _, name in function.parameters]
        general = next(lines(dict.fromkeys(names, WILD)))
        for context in self.contexts(function):
            for choice in lines(context):
                for index, text in enumerate(choice):
                    yield Print(text, general[min(index, len(general) - 1)], str(call))

    def parts(self):
        """Texts that functions put into a stream of their caller's."""
        for source in self.sources:
            for function in source.functions:
                streams = {name for words, name in function.parameters if "ostream" in words}
                if function.name == "operator<<" or not streams:
                    continue
                body = function.body
                for i in range(len(body) - 1):
                    if body[i].text not in streams or body[i + 1].text != "<<":
                        continue
                    pieces = split(split(body[i:], ";")[0], "<<")[1:]
                    for text in combined([self.of(piece, function, {}) for piece in pieces]):
                        place = f"{source.name}:{body[i].line}"
                        yield Print(text, text, place, whole=False)

    def commands(self):
        """Shell commands, each with its place."""
        for call in self.calls.get("runShell", []):
            function = call.source.function_at(call.index)
            if function is not None:
                for text in combined([self.of(part, function, {}) for part in call.arguments]):
                    yield text.strip(), str(call)


def lines_of(text, helper):
    """The lines that a helper makes of a text."""
    if helper in FORMAT_HELPERS:
        text = unformatted(text)
    text = joined(text)
    if helper not in LINE_HELPERS:
        if helper in TEXT_HELPERS and not text.endswith(("\n", WILD)):
            text += WILD  # without its end: the next line follows on the same one
        text = text[:-1] if text.endswith("\n") else text
    return text.split("\n")
