"""The streams: when they are active, what they want, and what really gets through."""
import numpy as np
import pytest

from homes import home, path, stream
from kolt_sim.model.traffic import ACK_SHARE, Traffic

CLIENTS = {"phone": "wlan1-a", "gateway": "uplink"}


def traffic(*streams, **other) -> Traffic:
    return Traffic(home([path("5g", 866)], CLIENTS, list(streams), **other))


def one(kind: str, demand: float = 10, **times) -> Traffic:
    return traffic(stream("s", "phone", "gateway", kind, demand, **times))


def active_ticks(made: Traffic, ticks: int) -> list[int]:
    seen = []
    for time in range(ticks):
        made.update(float(time))
        if made.active[0]:
            seen.append(time)
    return seen


def test_a_stream_is_active_from_its_start_until_just_before_its_end():
    assert active_ticks(one("download", start=3, end=6), 10) == [3, 4, 5]


def test_a_stream_without_an_end_goes_on():
    assert active_ticks(one("download"), 5) == [0, 1, 2, 3, 4]


def test_a_pausing_stream_talks_its_share_of_the_time():
    ticks = active_ticks(one("download", on=10, off=30), 40_000)
    assert len(ticks) / 40_000 == pytest.approx(0.25, rel=0.1)


def test_pauses_are_repeatable_and_depend_on_the_seed():
    def ticks(seed: int) -> list[int]:
        return active_ticks(traffic(stream("s", "phone", "gateway", on=5, off=5), seed=seed), 200)
    assert ticks(1) == ticks(1)
    assert ticks(1) != ticks(2)


def test_pauses_shorter_than_a_tick_do_not_hold_the_run_up():
    assert 0 < len(active_ticks(one("download", on=0.01, off=0.01), 100)) < 100


@pytest.mark.parametrize(("kind", "towards", "away"), [
    ("download", 10.0, 10.0 * ACK_SHARE),
    ("video", 10.0, 10.0 * ACK_SHARE),
    ("upload", 10.0 * ACK_SHARE, 10.0),
    ("small", 5.0, 5.0),
])
def test_each_kind_wants_its_demand_in_its_direction(kind, towards, away):
    made = one(kind)
    assert made.wanted(True)[0] == pytest.approx(towards)
    assert made.wanted(False)[0] == pytest.approx(away)


@pytest.mark.parametrize(("kind", "towards", "away", "carried", "payload"), [
    ("download", 8.0, 1.0, (8.0, 8.0 * ACK_SHARE), 8.0),
    ("download", 8.0, 0.0, (0.0, 0.0), 0.0),
    ("upload", 1.0, 8.0, (8.0 * ACK_SHARE, 8.0), 8.0),
    ("upload", 0.0, 8.0, (0.0, 0.0), 0.0),
    ("small", 5.0, 0.0, (5.0, 0.0), 5.0),
    ("small", 3.0, 4.0, (3.0, 4.0), 7.0),
], ids=["acknowledgements follow the data", "no acknowledgements, no data", "the same upwards",
        "the same upwards without", "datagrams need no answer", "datagrams both ways"])
def test_what_gets_through_depends_on_both_directions(kind, towards, away, carried, payload):
    got = one(kind).settle(np.array([towards]), np.array([away]))
    assert [float(column[0]) for column in got] == pytest.approx([*carried, payload])


def test_acknowledgements_are_small_packets_and_one_for_two_of_data():
    made = one("download", 12.0)
    data = made.packets(True, made.wanted(True))[0]
    assert data == pytest.approx(12e6 / 8 / 1500)
    assert made.packets(False, made.wanted(False))[0] == pytest.approx(data / 2)
