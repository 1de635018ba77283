"""Every shipped scenario turns out as it says, and the figures of docs/simulation.md are those of the runs."""
import functools
import json
from pathlib import Path

import pytest

from kolt_sim.compare import SilentView
from kolt_sim.loop import closed
from kolt_sim.scenario.load import load
from kolt_sim.view import words
from kolt_sim.view.table import TABLES, Outcome

TOP = Path(__file__).resolve().parents[2]
SCENARIOS = sorted((TOP / "sim/scenarios").glob("*.json"))
MANUAL = (TOP / "docs/simulation.md").read_text()
HELPED = [("bouncing-elephant", "reserved_ratio", 20), ("busy-from-the-start", "cpu_limit", False),
          ("busy-from-the-start", "estimate_ack_enable", False), ("cable-beside-radio", "wlan_enable", False)]


@functools.cache
def run(name: str, setting: str = "", value: int = 0) -> dict:
    settings = {setting: value} if setting else {}
    return closed.run(load(TOP / f"sim/scenarios/{name}.json", settings), SilentView())


def told(start: str) -> list[list[str]]:
    """The cells of the manual's lines that begin so, without what they begin with."""
    return [line.removeprefix(start).split() for line in MANUAL.splitlines() if line.startswith(start)]


def test_there_are_as_many_scenarios_as_promised():
    assert len(SCENARIOS) >= 10


@pytest.mark.parametrize("file", SCENARIOS, ids=lambda file: file.stem)
def test_a_scenario_turns_out_as_expected(file):
    result = run(file.stem)
    missed = [f"{one['what']}, measured {one['measured']}" for one in result["expectations"] if not one["met"]]
    assert missed == [], f"{file.stem}: not met: {'; '.join(missed)}"


# The manual

@pytest.mark.parametrize("name", [file.stem for file in SCENARIOS])
def test_the_manual_has_the_figures_of_a_scenario(name):
    rows = [table.row(Outcome(name, run(name)))[1:] for table in TABLES]
    assert told(f"    {name}  ")[:len(TABLES)] == rows, "restate them: sim/kolt-sim compare prints the tables"


def helped_row(result: dict) -> list[str]:
    """What a setting changes: goodput, its share of the ideal, the worst client, moves, placements and calm."""
    ours = result["judgement"]["with"]
    return [words.mbit(ours["goodput"]), words.whole(result["ratios"]["of_ideal"]),
            words.whole(ours["worst_client"]["share"]), *(words.whole(ours[key]) for key in (
                "moves", "bounces", "placements", "client_bounces", "calm"))]


@pytest.mark.parametrize("name", sorted({name for name, *_ in HELPED}))
def test_the_manual_has_a_scenario_beside_what_helps(name):
    assert told(f"    {name}  ")[len(TABLES):] == [helped_row(run(name))]


@pytest.mark.parametrize(("name", "setting", "value"), HELPED, ids=lambda value: str(value))
def test_the_manual_has_what_a_setting_helps(name, setting, value):
    assert told(f"    {name} --set {setting}={json.dumps(value)} ") == [helped_row(run(name, setting, value))]
