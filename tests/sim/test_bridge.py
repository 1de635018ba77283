"""The modelled bridge: loops among the ports that flood, and where streams go."""
import numpy as np
import pytest

from kolt_sim.model.bridge import NOWHERE, Bridge, Edge, find_loop

A, B = 0, 1
YES, NO = np.array([True]), np.array([False])


def bridge(needs_ha: bool = True) -> Bridge:
    made = Bridge(["wlan1.1", "wlan2.1"], clients=2, streams=1)
    made.follows = True
    for port in made.ports.values():
        port.needs_ha = needs_ha
    return made


def place(one: Bridge, *, learnt=A, crossing=YES) -> tuple[int, int]:
    one.place(crossing, np.array([0]), learnt)
    return int(one.out[0]), int(one.back[0])


@pytest.mark.parametrize(("edges", "loop"), [
    ([], []),
    ([("a", 1, 2)], []),
    ([("a", 1, 2), ("b", 2, 3), ("c", 3, 4)], []),
    ([("a", 1, 2), ("b", 1, 2)], ["a", "b"]),
    ([("a", 1, 2), ("b", 2, 3), ("c", 3, 1)], ["a", "b", "c"]),
    ([("x", 1, 9), ("a", 1, 2), ("b", 2, 3), ("c", 3, 1)], ["a", "b", "c"]),
    ([("a", 1, 2), ("b", 3, 4)], []),
    ([("a", 1, 1)], ["a"]),
], ids=["nothing", "one", "a chain", "two in parallel", "a triangle", "a triangle with a tail", "two islands",
        "to itself"])
def test_a_loop_is_a_circle_of_flooding_ports(edges, loop):
    found = find_loop(Edge(port, str(one), str(other)) for port, one, other in edges)
    assert sorted(found) == sorted(loop)


def test_a_plain_bridge_floods_on_every_link():
    assert sorted(find_loop(bridge().flood_edges(["wlan1.1", "wlan2.1"]))) == ["wlan1.1", "wlan2.1"]


def test_one_broadcast_port_of_a_class_makes_no_loop():
    one = bridge()
    one.ports["wlan1.1"].broadcast = False
    assert find_loop(one.flood_edges(["wlan1.1", "wlan2.1"])) == []


def test_classes_are_networks_of_their_own():
    one = bridge()
    one.ports["wlan1.1"].class_ = 1
    assert find_loop(one.flood_edges(["wlan1.1", "wlan2.1"])) == []


def test_a_link_that_is_down_closes_no_loop():
    assert find_loop(bridge().flood_edges(["wlan2.1"])) == []


def test_a_stream_goes_where_its_client_was_learnt():
    assert place(bridge(), learnt=B) == (B, B)


def test_a_pinned_client_draws_its_new_streams():
    one = bridge()
    one.pin_client(0, "wlan2.1", bytes(6))
    assert place(one, learnt=A) == (B, B)


def test_a_stream_with_an_entry_stays_when_its_client_is_pinned_elsewhere():
    one = bridge()
    place(one, learnt=A)
    one.pin_client(0, "wlan2.1", bytes(6))
    assert place(one, learnt=A) == (A, A)


def test_a_stream_on_a_port_that_needs_no_entries_follows_its_client_at_once():
    one = bridge(needs_ha=False)
    place(one, learnt=A)
    one.pin_client(0, "wlan2.1", bytes(6))
    assert place(one, learnt=A) == (B, B)


def test_a_moved_stream_goes_the_new_way_but_its_answers_wait_for_the_parent():
    one = bridge()
    place(one, learnt=A)
    one.pin_stream(0, "wlan2.1")
    assert place(one, learnt=A) == (B, A)


def test_flushed_streams_go_where_their_client_is_pinned():
    one = bridge()
    place(one, learnt=A)
    one.pin_client(0, "wlan2.1", bytes(6))
    one.flush_streams()
    assert place(one, learnt=A) == (B, B)


def test_flushed_clients_are_where_they_were_learnt():
    one = bridge(needs_ha=False)
    one.pin_client(0, "wlan2.1", bytes(6))
    one.flush_clients()
    assert place(one, learnt=A) == (A, A)


def test_a_stream_with_an_entry_stays_when_its_client_is_learnt_elsewhere():
    one = bridge()
    place(one, learnt=A)
    assert place(one, learnt=B) == (A, A)


def test_a_pinned_client_draws_its_new_streams_even_when_nobody_is_learnt_any_more():
    one = bridge()
    one.pin_client(0, "wlan2.1", bytes(6))
    assert place(one, learnt=NOWHERE) == (B, B)


def test_entries_are_counted_as_they_are_made():
    one = bridge()
    place(one)
    place(one)
    assert one.entries.tolist() == [1]
    one.flush_streams()
    assert one.entries.tolist() == [1]
    place(one)
    assert one.entries.tolist() == [2]
    place(one, crossing=NO)
    place(one)
    assert one.entries.tolist() == [3]


def test_a_stream_that_is_re_pointed_keeps_its_entry():
    one = bridge()
    place(one)
    one.pin_stream(0, "wlan2.1")
    place(one)
    assert one.entries.tolist() == [1]


def test_a_port_that_needs_no_entries_makes_none():
    one = bridge(needs_ha=False)
    place(one)
    assert (one.entries.tolist(), one.pinned.tolist()) == ([0], [False])


def test_a_stream_that_goes_nowhere_gets_no_entry():
    one = bridge()
    place(one, learnt=NOWHERE)
    assert (one.entries.tolist(), one.pinned.tolist()) == ([0], [False])


def test_a_client_pinned_to_a_port_without_a_name_is_pinned_nowhere():
    one = bridge()
    one.pin_client(0, "", bytes(6))
    assert one.hd[0] == NOWHERE


def test_a_parent_that_does_not_follow_answers_where_it_learnt_the_node():
    one = bridge()
    one.follows = False
    one.pin_client(0, "wlan2.1", bytes(6))
    assert place(one, learnt=A) == (B, A)


def test_a_stream_that_does_not_cross_has_no_path_and_no_entry():
    one = bridge()
    place(one, learnt=A)
    assert place(one, crossing=NO) == (NOWHERE, NOWHERE)
    assert not one.pinned[0]


def test_without_a_link_a_stream_goes_nowhere():
    assert place(bridge(), learnt=NOWHERE) == (NOWHERE, NOWHERE)


def test_an_entry_that_is_set_after_a_flush_is_a_new_one():
    one = bridge()
    place(one, learnt=A)
    one.flush_streams()
    one.pin_stream(0, "wlan2.1")
    assert (place(one, learnt=A)[0], one.entries.tolist()) == (B, [2])


def test_an_entry_that_is_re_pointed_stays_the_same_one():
    one = bridge()
    place(one, learnt=A)
    one.pin_stream(0, "wlan2.1")
    assert (place(one, learnt=A)[0], one.entries.tolist()) == (B, [1])
