"""What the simpler ways come to, tick by tick, beside a world. The expected values are worked out by hand."""
import numpy as np
import pytest

from homes import home, path, stream
from kolt_sim import beside
from kolt_sim.model.traffic import ACK_SHARE
from kolt_sim.model.world import World
from kolt_sim.scenario.records import ClientEvent, LinkEvent

TWO = [path("5g", 800), path("5g_2", 200)]  # 400 and 100 Mbit/s
CLIENTS = {"gateway": "uplink", "phone": "wlan1-a", "pc": "eth1"}


class Fixed:
    """Stands for a hash: puts as many streams on the second link as its number says, the others on the first."""

    def __init__(self, streams: int, links: list, weighted: bool, function: int) -> None:
        self.path = np.where(np.arange(streams) < function, 1, 0)

    def place(self) -> None:
        """Leaves everything where it is."""


def datagrams(count: int, demand: float, client: str = "phone") -> list:
    """Streams that carry nothing beside their payload."""
    return [stream(f"{client}-{number}", client, "gateway", "small", demand) for number in range(count)]


def watched(streams: list, ticks: int = 1, *, events: list = (), storm: bool = False) -> beside.Beside:
    world = World(home(TWO, CLIENTS, streams, events, duration=ticks))
    made = beside.Beside(world)
    for time in range(ticks):
        world.begin(float(time))
        world.flow(1.0)
        made.add(500.0, storm)
    return made


def test_the_best_link_carries_what_fits_on_it():
    figures = watched(datagrams(5, 100)).judgement()["best_link"]
    assert (figures["goodput"], figures["demand"], figures["worst_client"]["share"]) == (400.0, 500.0, 80.0)


def test_acknowledgements_take_their_part_of_the_best_link():
    figures = watched([stream("s", "phone", "gateway", "download", 1000)]).judgement()["best_link"]
    assert figures["goodput"] == pytest.approx(400 / (1 + ACK_SHARE), abs=0.01)


def test_of_the_hash_functions_the_middle_one_is_told_and_the_range(monkeypatch):
    monkeypatch.setattr(beside, "FlowHash", Fixed)
    figures = watched(datagrams(5, 100)).judgement()["hash"]  # functions 0 to 4: 400, 500, 400, 300 and 200 Mbit/s
    assert (figures["goodput"], figures["goodput_range"]) == (400.0, [200.0, 500.0])


def test_figures_and_series_are_of_the_same_function(monkeypatch):
    monkeypatch.setattr(beside, "FlowHash", Fixed)
    made = watched(datagrams(4, 150), events=[LinkEvent(1, "5g_2", False)], ticks=2)
    # In the second tick functions 0 to 4 carry 400, 400, 300, 150 and 0; in the first 400, 500, 400, 250 and 100.
    assert made.series()["hash"] == [400.0, 300.0]
    assert made.judgement()["hash"]["goodput"] == 350.0
    assert made.judgement()["hash"]["goodput_range"] == [50.0, 450.0]


def test_a_stream_that_changes_the_link_is_counted_once_a_change():
    events = [LinkEvent(1, "5g", False), LinkEvent(3, "5g", True)]
    figures = watched(datagrams(3, 10), 5, events=events).judgement()["best_link"]
    assert figures["changes"] == 6


def test_a_stream_that_was_silent_or_cut_off_has_changed_no_link():
    events = [ClientEvent(1, "phone", "away"), LinkEvent(2, "5g", False), ClientEvent(3, "phone", "eth1"),
              LinkEvent(4, "5g_2", False), LinkEvent(5, "5g", True)]
    made = watched(datagrams(3, 10), 7, events=events)
    assert made.series()["best_link"] == [30.0, 0.0, 0.0, 30.0, 0.0, 30.0, 30.0]
    assert [figures["changes"] for figures in made.judgement().values()] == [0, 0, 0]


def test_a_single_link_has_no_loop_and_hashes_have_that_of_a_bridge_that_floods_on_all():
    made = watched(datagrams(1, 10), 4, storm=True).judgement()
    assert [made[way]["storm_seconds"] for way in beside.WAYS] == [0.0, 4.0, 4.0]


def test_overload_and_relief_are_judged_as_those_of_the_daemon():
    made = watched(datagrams(5, 100), 4, events=[LinkEvent(2, "5g", False)]).judgement()["best_link"]
    assert (made["overloads"], made["unrelieved"], made["relief"]) == (1, 1, 4.0)


def test_with_one_link_all_ways_are_the_bridge_without_the_daemon():
    world = World(home([path("5g", 800)], CLIENTS, [stream(f"s{number}", "phone", "gateway", kind, 70) for number, kind
                                                  in enumerate(["download", "upload", "video", "small"] * 3)]))
    made = beside.Beside(world)
    world.begin(0.0)
    world.flow(1.0)
    made.add(400.0, False)
    assert made.series() == {way: [pytest.approx(float(world.payload.sum()), abs=0.01)] for way in beside.WAYS}


def test_ratios_compare_the_daemon_with_each_way():
    sides = {"with": 120.0, "best_link": 100.0, "hash": 150.0, "weighted_hash": 0.0}
    assert beside.ratios({side: {"goodput": value} for side, value in sides.items()}) == {
        "by_best_link": 1.2, "by_hash": 0.8, "by_weighted_hash": None}
