"""Finds and loads the scenarios that a person names."""
import difflib
import os
from collections.abc import Sequence
from pathlib import Path
from typing import Any

from .scenario.load import ScenarioError, load
from .scenario.records import Scenario

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
    if not bare:
        raise Unusable(f"{word}: no such file")
    close = difflib.get_close_matches(word, shipped(), 1)
    hint = f"did you mean {close[0]}?" if close else "see kolt-sim list"
    raise Unusable(f"{word}: neither a file nor a shipped scenario; {hint}")


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
