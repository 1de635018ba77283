"""Cases of a disturbed mesh: which there are, and that a mesh that does not stand them is caught."""
from functools import partial

import pytest
from kolt_mesh import cases, frames, topology
from kolt_mesh.kinds import Kind, OneLink, TunedSpanningTree
from kolt_mesh.lab import Lab, Storm

PAIR = topology.pair(2)
CUT = {"do": "cut", "link": "a-b 5g"}


def test_every_link_and_program_and_mode_has_its_events():
    told = {cases.describe(event) for event in cases.singles(PAIR)}
    assert told == {"cut a-b 5g", "silence a-b 5g", "silence a-b 5g at a", "silence a-b 5g at b", "cut a-b 5g_2",
                    "silence a-b 5g_2", "silence a-b 5g_2 at a", "silence a-b 5g_2 at b", "kill a kolt",
                    "kill a kolt-bridged", "kill b kolt", "kill b kolt-bridged", "mode a RE", "mode b FAP"}


def test_pairs_come_in_both_orders_and_concern_two_things():
    told = cases.pairs(PAIR)
    kill = {"do": "kill", "node": "b", "program": "kolt"}
    assert (CUT, kill) in told and (kill, CUT) in told
    assert (CUT, {"do": "silence", "link": "a-b 5g"}) not in told
    assert (CUT, {"do": "restore", "link": "a-b 5g"}) in told


def test_the_sample_is_always_the_same_and_as_long_as_asked():
    assert cases.sample(PAIR, 12) == cases.sample(PAIR, 12)
    assert len(cases.sample(PAIR, 12)) == 12 and len(cases.sample(topology.load("single"), 4)) == 4


def test_a_mesh_with_nothing_to_fall_back_on_stands_a_cut_by_staying_apart(make_lab):
    lab = make_lab(topology.pair(1), OneLink())
    outcome = cases.play(lab, (CUT,), 2.0)
    assert not outcome.problems and lab.state["a-b 5g"] == "up"


def test_a_spanning_tree_that_is_slower_than_allowed_is_caught(make_lab):
    lab = make_lab(PAIR, TunedSpanningTree())
    assert frames.reachable(lab, 15.0)
    assert cases.play(lab, (CUT,), 0.5).problems == ["it did not settle", "it did not become whole again"]


def test_a_loop_is_caught():
    slow = topology.pair(2, "1mbit")
    failed = cases.play_all(partial(Lab, slow, Kind(), watch=0), [(CUT,)], print)
    assert failed and failed[0].problems


def test_a_storm_ends_the_cases():
    with pytest.raises(Storm):
        cases.play_all(partial(Lab, topology.pair(2, "100mbit"), Kind()), [(CUT,)], print)
