"""
What the programs can say at the levels Fatal and Error, read from the sources: each line as "function: Level: text",
with a * for what is filled in. A line whose text cannot be told is refused rather than left out.
"""
import re
from collections.abc import Iterator
from dataclasses import dataclass

from tree import TOP, files, name_of

TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|\w+|\S', re.DOTALL)
CONVERSION = re.compile(r"%[-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*))?(?:hh|h|ll|l|z|j)?[a-zA-Z]")
FUNCTION = re.compile(r"^(?!//|#|static_assert)(?=[A-Za-z\[])(?:\[\[.*?\]\] *|__attribute__\(\(.*\)\) *)*[^(\n]*?(\w+)\("
                      r"(?!.*;$)", re.MULTILINE)
CONSTANT = re.compile(r'constexpr char (\w+)\[\] = ("[^"]*")')
MACROS = {"KOLT_FATAL": "Fatal", "KOLT_FATAL_AS": "Fatal", "KOLT_FATAL_ERRNO_AS": "Fatal(*)", "KOLT_ERROR": "Error",
          "KOLT_ERROR_AS": "Error"}
LOG_HEADER = "src/core/log.h"
FLUSHES = "src/probes/table_flush"  # logs what its callers hand it


class Unreadable(Exception):
    """A log line that this reader does not understand, with where it is."""


@dataclass
class Call:
    """A call in a source: its name, where it begins, and its arguments as lists of tokens."""
    name: str
    at: int
    arguments: list[list[str]]


@dataclass
class Source:
    name: str
    text: str

    def __post_init__(self) -> None:
        found = [(match.group(), match.start()) for match in TOKEN.finditer(self.text)]
        self.tokens = [(text, at) for text, at in found if not text.startswith(("//", "/*"))]

    def calls(self, *names: str) -> Iterator[Call]:
        for number, (text, at) in enumerate(self.tokens[:-1]):
            if text in names and self.tokens[number + 1][0] == "(" and not self._is_defined_at(at):
                yield Call(text, at, self._arguments(number + 2))

    def function_around(self, at: int) -> str:
        *_, last = FUNCTION.finditer(self.text, 0, at)
        return last[1]

    def parameters_of(self, function: str) -> list[str]:
        """The names of a function's parameters."""
        match = re.search(rf"^\S[^\n]*\b{function}\((.*?)\) (?:const )?\{{$", self.text, re.MULTILINE | re.DOTALL)
        return [re.findall(r"\w+", part)[-1] for part in match[1].split(",")] if match and match[1] else []

    def constant(self, name: str) -> str | None:
        """A text constant of the file, or of a function: one name has one value in a file."""
        values = {value for found, value in CONSTANT.findall(self.text) if found == name}
        if len(values) > 1:
            raise Unreadable(f"{self.name}: {name} has several values")
        return literal([values.pop()]) if values else None

    def line_of(self, at: int) -> str:
        return f"{self.name}:{self.text.count(chr(10), 0, at) + 1}"

    def macro_around(self, at: int) -> str | None:
        """The macro whose definition holds this place."""
        begin = self.text.rfind("#define ", 0, at)
        if begin < 0 or re.search(r"(?<!\\)\n", self.text[begin:at]):
            return None
        return re.match(r"#define (\w+)", self.text[begin:])[1]

    def parameters_of_macro(self, macro: str) -> list[str]:
        return re.findall(r"[\w.]+", re.search(rf"#define {macro}\(([^)]*)\)", self.text)[1])

    def _is_defined_at(self, at: int) -> bool:
        return re.search(r"#\s*define +$", self.text[max(0, at - 40):at]) is not None

    def _arguments(self, number: int) -> list[list[str]]:
        arguments: list[list[str]] = [[]]
        depth = 0
        for text, _ in self.tokens[number:]:
            if text in ")]}":
                if depth == 0:
                    return arguments
                depth -= 1
            if text in "([{":
                depth += 1
            if text == "," and depth == 0:
                arguments.append([])
            elif text != "\\":
                arguments[-1].append(text)
        raise Unreadable(f"{self.name}: a call that does not end")


def literal(argument: list[str]) -> str | None:
    """The text of an argument that is nothing but string literals."""
    if not argument or not all(token.startswith('"') for token in argument):
        return None
    return "".join(token[1:-1] for token in argument).encode().decode("unicode_escape")


def pattern(text: str) -> str:
    """A format with a * for each run of what is filled in."""
    return re.sub(r"\*+", "*", CONVERSION.sub("*", text)).strip()


def texts_of(source: Source, call: Call, arguments: list[list[str]]) -> set[str]:
    """What a log call can say, from its format and the arguments behind it."""
    first = arguments[0]
    if first[0] == "#":  # a macro that says the name that it was given
        macro = source.macro_around(call.at)
        place = source.parameters_of_macro(macro).index(first[1]) if macro else -1
        return {"".join(use.arguments[place]) for use in source.calls(macro)} if macro else set()
    text = literal(first)
    if text is None:
        raise Unreadable(f"{source.line_of(call.at)}: the text is not written there")
    if CONVERSION.sub("", text) or len(arguments) != 2:
        return {pattern(text)}
    return handed_texts(source, call, arguments[1]) or {"*"}


def handed_texts(source: Source, call: Call, argument: list[str]) -> set[str]:
    """The texts that a lone "%s" can stand for: written there, or by the callers of the function around."""
    text = literal(argument)
    if text is not None:
        return {pattern(text)}
    function = source.function_around(call.at)
    parameters = source.parameters_of(function)
    if len(argument) != 1 or argument[0] not in parameters:
        return set()
    place = parameters.index(argument[0])
    handed = [use.arguments[place] for use in source.calls(function) if len(use.arguments) == len(parameters)]
    return {pattern(text) for text in map(literal, handed) if text is not None}


def functions_of(source: Source, call: Call) -> set[str]:
    """What a log call names as its function."""
    if not call.name.endswith("_AS"):
        return {source.function_around(call.at)}
    named = call.arguments[0]
    text = literal(named) or (source.constant(named[0]) if len(named) == 1 else None)
    if text is not None:
        return {text}
    if named[-2:-1] == ["."]:  # a member that is filled with the name of the function that fills it
        filled = re.finditer(rf"\.{named[-1]} = __func__", source.text)
        if found := {source.function_around(match.start()) for match in filled}:
            return found
    raise Unreadable(f"{source.line_of(call.at)}: the function is not written there")


def lines_of(source: Source) -> set[str]:
    if source.name == LOG_HEADER:
        return set()
    for call in source.calls("syslog", "vsyslog", "KOLT_SYSLOG", "KOLT_SYSLOG_AT"):
        if source.name != f"{FLUSHES}.cpp":
            raise Unreadable(f"{source.line_of(call.at)}: goes past the macros of {LOG_HEADER}")
    found = set()
    for call in source.calls(*MACROS):
        arguments = call.arguments[1:] if call.name.endswith("_AS") else call.arguments
        found |= {f"{function}: {MACROS[call.name]}: {text}" for function in functions_of(source, call)
                  for text in texts_of(source, call, arguments)}
    return found | flush_lines(source)


def flush_lines(source: Source) -> set[str]:
    """What the flushes of a source say, each of which hands on its function, its line and its text."""
    found = set()
    for call in source.calls("kolt_flush_tables") if not source.name.startswith(FLUSHES) else ():
        match call.arguments[2]:
            case ["{", "__func__", ",", "__LINE__", ",", text, "}"] if literal([text]):
                found.add(f"{source.function_around(call.at)}: Error: {pattern(literal([text]))}")
            case _:
                raise Unreadable(f"{source.line_of(call.at)}: the text is not written there")
    return found


def sources(*folders: str) -> list[Source]:
    return [Source(name_of(path), path.read_text())
            for path in files(*(f"{folder}/*.{kind}" for folder in folders for kind in ("cpp", "h", "c")))]


def daemon_lines() -> set[str]:
    """All that kolt can say."""
    return set().union(*map(lines_of, sources("src")))


def bridged_lines() -> set[str]:
    """All that kolt-bridged can say with its own code, beyond what it shares with kolt."""
    return set().union(*map(lines_of, sources("linux")))


def bridged_reasons() -> set[str]:
    """What kolt-bridged says where a line ends in a reason of its own making."""
    found = set()
    for source in sources("linux"):
        if source.name.endswith("kernel/reason.cpp") or source.name.endswith("kernel/reason.h"):
            continue
        for call in source.calls("say"):
            text = literal(call.arguments[1])
            if text is None:
                raise Unreadable(f"{source.line_of(call.at)}: the reason is not written there")
            found.add(pattern(text))
    return found | offload_reasons() | bridge_reasons()


def offload_reasons() -> set[str]:
    """Sentences that are joined of pieces; a piece that is a choice between two texts makes two of them."""
    text = (TOP / "linux/bridged/kernel/net/offload.cpp").read_text()
    choices = dict(re.findall(r"const char \*(\w+) = [^;]*?\? ([^;]*);", text))
    found = set()
    for pieces in re.findall(r"finding\(OFFLOAD_YES,\s*\{(.*?)\}\)", text, re.DOTALL):
        sentences = [""]
        for piece in re.findall(r'"(?:\\.|[^"\\])*"|[\w.()]+', pieces):
            texts = re.findall(r'"(?:\\.|[^"\\])*"', choices.get(piece, piece)) or ['"*"']
            sentences = [begun + literal([more]) for begun in sentences for more in texts]
        found |= set(map(pattern, sentences))
    return found


def bridge_reasons() -> set[str]:
    text = (TOP / "linux/bridged/refusal.cpp").read_text()
    said = re.findall(r'return ((?:"[^"]*"\s*)+);|: ("[^"]*");', text)
    return {"it " + pattern("".join(re.findall(r'"([^"]*)"', first or second))) for first, second in said}
