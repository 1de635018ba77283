"""Every shipped scenario turns out as it says."""
from pathlib import Path

import pytest

from kolt_sim.compare import SilentView
from kolt_sim.loop.closed import run
from kolt_sim.scenario.load import load

SCENARIOS = sorted((Path(__file__).resolve().parents[2] / "sim/scenarios").glob("*.json"))


def test_there_are_as_many_scenarios_as_promised():
    assert len(SCENARIOS) >= 10


@pytest.mark.parametrize("file", SCENARIOS, ids=lambda file: file.stem)
def test_a_scenario_turns_out_as_expected(file):
    result = run(load(file), SilentView())
    missed = [f"{one['what']}, measured {one['measured']}" for one in result["expectations"] if not one["met"]]
    assert missed == [], f"{file.stem}: not met: {'; '.join(missed)}"
