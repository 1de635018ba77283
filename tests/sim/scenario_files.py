"""A small valid scenario to change, and where the shipped ones are."""
import json
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from kolt_sim.scenario.load import ScenarioError, load

TOP = Path(__file__).resolve().parents[2]
SHIPPED = sorted((TOP / "sim/scenarios").glob("*.json"))


def small() -> dict[str, Any]:
    """Every member that a scenario can have occurs once, but for the settings, of which there is one."""
    return {
        "title": "Small", "about": "A home to test with.", "duration": 300, "tick": 0.5, "seed": 7,
        "default_path": "plc", "cpu": 30, "parent_known": False, "settings": {"period": 3}, "notes": ["One.", "Two."],
        "paths": {
            "plc": {"rate": 90, "up": False},
            "5g": {"rate": 866, "neighbours": 10, "efficiency": 60, "fading": {"depth": 5, "period": 30, "noise": 2}}},
        "clients": [{"name": "gateway", "at": "uplink"}, {"name": "phone", "count": 3, "at": "wlan1-a"}],
        "streams": [
            {"name": "film", "client": "phone", "peer": "gateway", "kind": "video", "demand": 8, "count": 4,
             "spread": 25, "start": 10, "end": 200, "on": 20, "off": 5},
            {"name": "call", "client": "phone-2", "peer": "gateway", "kind": "small", "demand": 0.2}],
        "events": [
            {"at": 20, "link": "plc", "up": True},
            {"at": 30, "link": "5g", "flap": {"down": 2, "up": 8, "times": 2}},
            {"at": 50, "path": "plc", "rate": 40, "over": 5},
            {"at": 60, "path": "5g", "neighbours": 50, "over": 6},
            {"at": 70, "client": "phone", "to": "away"},
            {"at": 80, "cpu": 95}],
        "expect": {"storm_without": True, "gain": 1.5, "of_ideal": 85, "worst_client": 50, "bounces": 0, "calm": 50,
                   "relief": 30, "moves_at_least": 1, "moves_at_most": 9, "settled_by": 120},
    }


def least() -> dict[str, Any]:
    """Nothing but the members that a scenario must have."""
    return {"title": "Least", "about": "As little as there can be.", "duration": 60, "paths": {"5g": {"rate": 100}},
            "clients": [], "streams": [], "expect": {"storm_without": False}}


class Desk:
    """Writes files into a directory and loads them."""

    def __init__(self, directory: Path) -> None:
        self.file = directory / "home.json"

    def load(self, document: Any) -> Any:
        self.file.write_text(json.dumps(document))
        return load(self.file)

    def problems(self, content: bytes | str) -> list[str]:
        """What is wrong with a file of this content, without the file's name."""
        self.file.write_bytes(content.encode() if isinstance(content, str) else content)
        with pytest.raises(ScenarioError) as caught:
            load(self.file)
        start = f"{self.file}: "
        assert all(problem.startswith(start) for problem in caught.value.problems)
        return [problem.removeprefix(start) for problem in caught.value.problems]

    def problems_after(self, change: Callable[[dict], Any]) -> list[str]:
        """What is wrong with the small scenario after a change."""
        document = small()
        change(document)
        return self.problems(json.dumps(document))
