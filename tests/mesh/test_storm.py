"""Loops on purpose: what circles is seen to, and the watchdog ends a storm before it takes the machine."""
import time

import pytest
from kolt_mesh import frames, topology
from kolt_mesh.kinds import Kind, OneLink
from kolt_mesh.lab import Lab, Storm


def await_stop(lab: Lab, seconds: float = 10.0) -> dict:
    """Waits for the watchdog; what it saw."""
    deadline = time.monotonic() + seconds
    while lab.watchdog.tripped is None:
        assert time.monotonic() < deadline, "nobody stopped the storm"
        time.sleep(0.005)
    return lab.watchdog.tripped


def test_a_storm_on_a_loop_of_two_plain_bridges_is_stopped(make_lab):
    lab = make_lab(topology.parse({"nodes": {"a": {"mode": "FAP"}, "b": {"mode": "RE"}}, "hosts": {"h1": "a", "h2": "b"},
                                   "links": [{"between": ["a", "b"], "type": kind} for kind in ("5g", "5g_2")]}, "loop"),
                   OneLink())
    assert frames.reachable(lab, 2.0)
    with frames.Broadcasts(lab) as counting:
        lab.restore("a-b 5g_2")
        while lab.watchdog.tripped is None and len(counting.census.sent) < 1000:
            counting.run(0.01)
        counting.listen(0.05)
    assert counting.census.circled() and counting.census.duplicates() > 100
    assert lab.watchdog.tripped["rate"] > lab.watchdog.tripped["bound"]
    assert not any(lab.carrier(link) for link in lab.ends)
    before = lab.counters("a")
    time.sleep(0.1)
    assert lab.counters("a") == before
    with pytest.raises(Storm):
        lab.check()


def test_a_storm_on_slow_links_is_stopped_at_the_bound_that_is_asked_for(make_lab):
    lab = make_lab(topology.pair(2, "50mbit"), Kind(), watch=1000)
    with frames.Broadcasts(lab) as counting:
        counting.send("h2")
        seen = await_stop(lab)
    assert seen["bound"] == 1000 < seen["rate"]


def test_a_frame_that_circles_slower_than_the_watchdogs_bound_is_seen_by_its_number(make_lab):
    lab = make_lab(topology.pair(2, "1mbit"), Kind())
    with frames.Broadcasts(lab) as counting:
        counting.send("h1")
        counting.listen(0.2)
        circled = counting.census.circled()
    assert lab.watchdog.tripped is None
    assert {node for node, _ in circled} == {"a", "b"} and min(circled.values()) > 1


def test_busy_links_without_a_loop_do_not_wake_the_watchdog(make_lab):
    lab = make_lab(topology.pair(1), Kind())
    assert frames.reachable(lab, 1.0)
    with frames.Broadcasts(lab) as counting:
        counting.run(0.5, gap=0.0005)
        counting.listen()
    assert lab.watchdog.tripped is None and counting.census.exactly_one()


def test_frames_for_an_unknown_address_are_counted_as_broadcasts_are(make_lab):
    lab = make_lab(topology.pair(1), Kind())
    assert frames.reachable(lab, 1.0)
    with frames.Broadcasts(lab) as counting:
        counting.burst("h1", 20, target=frames.UNKNOWN)
    assert counting.census.copies_of("h2") == [1] * 20
