"""A scenario file as text: JSON that is stricter than Python's. No member comes twice and every number is finite."""
import json
import re
from collections import Counter
from pathlib import Path
from typing import Any

from .problems import Problem, Refused, ScenarioError, short, walk

LARGEST_FILE = 16 * 1024 * 1024  # bytes
DEEPEST = 16  # arrays and objects within each other
LONGEST_INTEGER = 20  # digits; no member takes so large a number

WORDS = {  # what the parser says: what it wanted to see
    "Expecting value": "a value",
    "Expecting property name enclosed in double quotes": "a member's name in double quotes",
    "Expecting ':' delimiter": '":" after the member\'s name',
    "Expecting ',' delimiter": '"," or the end of the object or array',
    "Extra data": "the end of the file",
    "Unterminated string starting at": "a closing quote for the text that begins here",
    "Invalid control character at": "an escape such as \\n for a control character in a text",
    "Invalid \\escape": "a valid escape after the backslash",
    "Invalid \\uXXXX escape": "four hexadecimal digits after \\u",
}


class _Object(dict):
    """An object of the file. `repeated` holds the names that it has more than once."""
    repeated: dict[str, int] = {}


def read(path: str | Path, file: str) -> tuple[Any, list[Problem]]:
    """The document in a file, and the members that it has twice. `file` is the file's name for messages."""
    document = _parse(_text(_bytes(path, file), file), file)
    problems: list[Problem] = []
    for place, value in walk(document):
        if len(place) >= DEEPEST and isinstance(value, (dict, list)):
            raise _too_deep(file)
        if isinstance(value, _Object):
            problems += [(place + (name,), f"expected the member once, found it {times} times")
                         for name, times in value.repeated.items()]
    return document, problems


def _bytes(path: str | Path, file: str) -> bytes:
    try:
        with open(path, "rb") as stream:
            data = stream.read(LARGEST_FILE + 1)
    except OSError as error:
        raise ScenarioError([f"{file}: cannot be read: {error.strerror or error}"]) from None
    except ValueError as error:  # no file can have such a name
        raise ScenarioError([f"{file}: cannot be read: {error}"]) from None
    if len(data) > LARGEST_FILE:
        raise ScenarioError([f"{file}: expected a file of at most {LARGEST_FILE >> 20} MiB, found a larger one"])
    return data


def _text(data: bytes, file: str) -> str:
    try:
        return data.decode("utf-8-sig")
    except UnicodeDecodeError as error:
        before = error.object[:error.start].decode(error.encoding, "replace")
        found = f"byte 0x{error.object[error.start]:02x}"
        raise ScenarioError([f"{file}: {_position(before, len(before))}: expected UTF-8, found {found}"]) from None


def _parse(text: str, file: str) -> Any:
    try:
        return json.loads(text, object_pairs_hook=_object, parse_constant=Refused, parse_int=_integer,
                          parse_float=_float)
    except json.JSONDecodeError as error:
        wanted = WORDS.get(error.msg.rstrip(": "), f"valid JSON ({error.msg})")
        found = _found(text, error.pos)
        raise ScenarioError([f"{file}: {_position(text, error.pos)}: expected {wanted}, found {found}"]) from None
    except RecursionError:
        raise _too_deep(file) from None


def _object(pairs: list[tuple[str, Any]]) -> _Object:
    made = _Object(pairs)
    if len(made) < len(pairs):
        made.repeated = {name: times for name, times in Counter(name for name, _ in pairs).items() if times > 1}
    return made


def _integer(literal: str) -> int | Refused:
    return int(literal) if len(literal) <= LONGEST_INTEGER else Refused(literal)


def _float(literal: str) -> float | Refused:
    value = float(literal)
    return value if abs(value) < float("inf") else Refused(literal)


def _position(text: str, index: int) -> str:
    line = text.count("\n", 0, index) + 1
    return f"line {line} column {index - text.rfind(chr(10), 0, index)}"


def _found(text: str, index: int) -> str:
    """The word or the character at which reading stopped."""
    if index >= len(text):
        return "the end of the file"
    word = re.compile(r"[\w.+-]+|.", re.DOTALL).match(text, index)
    return short(word[0])


def _too_deep(file: str) -> ScenarioError:
    return ScenarioError([f"{file}: expected at most {DEEPEST} arrays and objects within each other, found more"])
