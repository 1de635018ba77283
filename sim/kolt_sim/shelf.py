"""Finds and loads the scenarios that a person names."""
import difflib
import os
from collections.abc import Sequence
from pathlib import Path
from typing import Any

from .scenario.load import ScenarioError, load
from .scenario.records import Scenario

MAX_MEANT = 3
SHIPPED = Path(__file__).resolve().parents[1] / "scenarios"


class Unusable(Exception):
    """It cannot be done as asked; the text says why, a problem a line."""


def shipped() -> list[str]:
    return sorted(path.stem for path in SHIPPED.glob("*.json"))


def find(word: str) -> Path:
    """The file that a SCENARIO argument means."""
    bare = "/" not in word and not word.endswith(".json")
    if bare and (SHIPPED / f"{word}.json").exists():
        return Path(os.path.relpath(SHIPPED / f"{word}.json"))
    if os.path.isdir(word):
        raise Unusable(f"{word}: is a directory")
    if os.path.exists(word):
        return Path(word)
    if "/" in word:
        raise Unusable(f"{word}: no such file")
    *others, last = close_names(word.removesuffix(".json")) or [""]
    meant = f"{', '.join(others)} or {last}" if others else last
    hint = f"did you mean {meant}?" if meant else "see kolt-sim list"
    raise Unusable(f"{word}: neither a file nor a shipped scenario; {hint}")


def close_names(word: str) -> list[str]:
    """The shipped scenarios that a person may have meant: those with such words in their name, else one spelt alike."""
    asked = [part for part in word.lower().split("-") if part]
    named = [name for name in shipped() if asked and all(_has_word(name, part) for part in asked)]
    return named[:MAX_MEANT] or difflib.get_close_matches(word.lower(), shipped(), 1)


def _has_word(name: str, start: str) -> bool:
    """Whether a word of a scenario's name begins like that, but for a slip of the finger."""
    parts = name.split("-")
    return any(part.startswith(start) for part in parts) or bool(difflib.get_close_matches(start, parts, 1, 0.8))


def load_all(asked: Sequence[str], settings: dict[str, Any] | None = None) -> tuple[list[Scenario], list[str]]:
    """The scenarios that are valid, with these settings before their own, and the problems of the others."""
    scenarios, problems = [], []
    for word in asked:
        try:
            scenarios.append(load(find(word), settings))
        except (ScenarioError, Unusable) as error:
            problems.append(str(error))
        except OSError as error:
            problems.append(f"{word}: {error.strerror}")
    return scenarios, problems


def load_or_fail(asked: Sequence[str], settings: dict[str, Any] | None = None) -> list[Scenario]:
    scenarios, problems = load_all(asked, settings)
    if problems:
        raise Unusable("\n".join(problems))
    return scenarios
