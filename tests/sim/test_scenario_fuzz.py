"""Thousands of damaged scenario files: each is a scenario or a list of problems, never anything else."""
import json
import random
from pathlib import Path
from typing import Any

import pytest
from scenario_files import SHIPPED, small

from kolt_sim.scenario.load import ScenarioError, load
from kolt_sim.scenario.records import Scenario

CASES = 1200  # of the small scenario, in each of the two ways
CASES_SHIPPED = 40  # of each shipped one
PIECES = [b"", b"{", b"}", b"[", b"]", b",", b":", b'"', b"\\", b"\n", b"\0", b"\xff", b"\xc3", b"-", b"e999", b"NaN",
          b"null", b"true", b"1e400", b"9" * 5000, b"[" * 3000, b"\\ud800", b"\xef\xbb\xbf"]
VALUES = [None, True, False, 0, 1, -1, 2.0, 0.5, 1e308, -1e308, 10 ** 30, float("nan"), float("inf"), "", "5g", "phone",
          "phone-1", "away", "\0", "\ud800", "é\u2028", "x" * 3000, [], {}, [[]], [{}], {"at": 1}, {"": {}}]
NAMES = ["", "at", "link", "path", "flap", "up", "cpu", "client", "to", "count", "name", "rate", "on", "neighbours",
         "é\n"]


def outcome(file: Path, content: bytes) -> str:
    """Loads a file of this content: what came of it, which is one of two things."""
    file.write_bytes(content)
    try:
        scenario = load(file)
    except ScenarioError as error:
        assert error.problems
        for problem in error.problems:
            assert problem.startswith(f"{file}: ") and len(problem) > len(f"{file}: ")
            assert problem.isprintable()
            assert len(problem) < 700
        return "problems"
    assert isinstance(scenario, Scenario)
    assert all(0 <= event.at < scenario.duration for event in scenario.events)
    return "scenario"


def damaged_bytes(content: bytes, draw: random.Random) -> bytes:
    for _ in range(draw.randint(1, 3)):
        start = draw.randrange(len(content) + 1)
        end = min(len(content), start + draw.choice([0, 0, 1, 2, 20]))
        piece = draw.choice([*PIECES, bytes([draw.randrange(256)])])
        content = content[:start] + piece + content[end:]
    return content


def damaged_document(document: Any, draw: random.Random) -> bytes:
    document = json.loads(json.dumps(document))
    for _ in range(draw.randint(1, 3)):
        damage(draw.choice(containers(document)), draw)
    return json.dumps(document).encode()


def containers(document: Any) -> list[dict | list]:
    found = [document]
    for one in found:  # grows meanwhile
        found += [item for item in (one.values() if isinstance(one, dict) else one) if isinstance(item, (dict, list))]
    return found


def damage(container: dict | list, draw: random.Random) -> None:
    """Removes, replaces, copies or adds one member."""
    keys = list(container) if isinstance(container, dict) else list(range(len(container)))
    what = draw.choice(["remove", "replace", "replace", "copy", "add"])
    value = json.loads(json.dumps(draw.choice(VALUES)))
    if what == "remove" and keys:
        del container[draw.choice(keys)]
    elif what == "replace" and keys:
        container[draw.choice(keys)] = value
    elif isinstance(container, list):
        container.append(container[draw.choice(keys)] if what == "copy" and keys else value)
    else:
        container[draw.choice(NAMES)] = container[draw.choice(keys)] if what == "copy" and keys else value


def test_damaged_bytes_are_a_scenario_or_problems(tmp_path: Path) -> None:
    draw, content = random.Random(1), json.dumps(small(), indent=1).encode()
    outcomes = [outcome(tmp_path / "home.json", damaged_bytes(content, draw)) for _ in range(CASES)]
    assert set(outcomes) == {"scenario", "problems"}


def test_damaged_documents_are_a_scenario_or_problems(tmp_path: Path) -> None:
    draw = random.Random(2)
    outcomes = [outcome(tmp_path / "home.json", damaged_document(small(), draw)) for _ in range(CASES)]
    assert set(outcomes) == {"scenario", "problems"}


@pytest.mark.parametrize("path", SHIPPED, ids=lambda path: path.stem)
def test_a_damaged_shipped_scenario_is_a_scenario_or_problems(path: Path, tmp_path: Path) -> None:
    draw, content = random.Random(path.stem), path.read_bytes()
    document = json.loads(content)
    cases = [damaged_bytes(content, draw) for _ in range(CASES_SHIPPED // 2)]
    cases += [damaged_document(document, draw) for _ in range(CASES_SHIPPED // 2)]
    assert "problems" in [outcome(tmp_path / "home.json", case) for case in cases]
