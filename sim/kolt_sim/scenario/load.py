"""Reads a scenario file: its syntax, its form, whether its parts fit each other; all that is wrong is told together."""
from itertools import chain
from pathlib import Path
from typing import Any

from . import check, shape, syntax
from .expand import expand
from .problems import ScenarioError, lines, printable
from .records import Scenario

__all__ = ["ScenarioError", "load"]


def load(path: str | Path, settings: dict[str, Any] | None = None) -> Scenario:
    """
    The scenario in a file; `settings` go before its own. Raises ScenarioError with a line, which begins with the file's
    name, for each problem.
    """
    file = printable(str(path))
    document, repeated = syntax.read(path, file)
    if settings and isinstance(document, dict) and isinstance(document.get("settings", {}), dict):
        document["settings"] = document.get("settings", {}) | settings
    _refuse(lines(file, document, chain(repeated, shape.problems(document))))
    complete = shape.complete(document)
    _refuse(lines(file, document, check.problems(complete)))
    return expand(path, complete)


def _refuse(problems: list[str]) -> None:
    if problems:
        raise ScenarioError(problems)
