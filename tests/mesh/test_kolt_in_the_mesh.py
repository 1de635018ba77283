"""
The mesh with kolt and kolt-bridged in its nodes. $KOLT_MESH_CASES is how many disturbed cases of each topology are played:
40 are 240 in all.
"""
import os
import signal
from collections.abc import Callable
from statistics import mean

import library
import pytest
from copies import TIMES, assert_one_copy
from kolt_mesh import cases, frames, measures, ports, stream, tcp, topology
from kolt_mesh.frames import Broadcasts, Census
from kolt_mesh.kolt import Kolt
from kolt_mesh.lab import Lab
from rest import PAUSE, come_to_rest

HOMES = [home.name for home in topology.shipped()]
CASES = int(os.environ.get("KOLT_MESH_CASES") or 1)
SETTLES = 20.0
SIX_LINKS = topology.parse({
    "nodes": {"a": {"mode": "FAP"}, "b": {"mode": "RE"}, "c": {"mode": "RE"}}, "hosts": {"h1": "a", "h2": "c"},
    "links": [{"between": list(ends), "type": kind, "rate": "50mbit"}
              for ends in ("ab", "bc") for kind in ("5g", "5g_2", "2.4g")]}, "six links")


@pytest.fixture
def whole(make_lab) -> Callable[..., Lab]:
    """A mesh with everything in its nodes, in which every host reaches every other one."""
    def make(home: topology.Topology, **how: object) -> Lab:
        lab = make_lab(home, Kolt(**how))
        if not frames.reachable(lab, SETTLES):
            lab.check()
            pytest.fail("\n".join(node.diagnosis() for node in lab.kind.nodes.values()), pytrace=False)
        return lab
    return make


@pytest.mark.parametrize("name", HOMES)
def test_a_home_has_one_copy_of_every_broadcast_everywhere(whole, name):
    lab = whole(topology.load(name))
    assert_one_copy(lambda: measures.copies(lab))


@pytest.mark.parametrize("name", HOMES)
def test_a_frame_for_an_unknown_address_arrives_once_everywhere(whole, name):
    lab = whole(topology.load(name))

    def play() -> Census:
        with Broadcasts(lab) as counting:
            for host in lab.hosts:
                counting.burst(host, 20, target=frames.UNKNOWN)
        return counting.census

    assert_one_copy(play)


@pytest.mark.parametrize("name", HOMES)
def test_a_group_that_nobody_asked_for_does_not_circle(whole, name):
    lab = whole(topology.load(name))
    with Broadcasts(lab) as counting:
        for host in lab.hosts:
            counting.burst(host, 20, target=bytes.fromhex("01005e010203"))
    assert not counting.census.circled() and not counting.census.duplicates()


def test_all_links_coming_up_at_once_let_nothing_circle(make_lab):
    lab = make_lab(topology.load("house"), Kolt())
    with Broadcasts(lab) as counting:
        counting.run(3.0, gap=0.003)
        counting.listen()
    assert not counting.census.circled() and not counting.census.duplicates()


@pytest.mark.parametrize("name", HOMES)
def test_a_disturbed_home_lets_nothing_circle_and_becomes_whole(name):
    home = topology.load(name)
    failed = cases.play_all(lambda: Lab(home, Kolt()), cases.sample(home, CASES), lambda outcome: print(outcome))
    assert not failed, "\n".join(map(str, failed))


def test_a_lost_link_is_left_soon_and_sooner_where_its_carrier_tells(whole):
    lab = whole(topology.pair(3))
    seen: dict[str, list[stream.Seen]] = {"cut": [], "silence": []}
    for way in [*seen] * 3:
        with stream.Stream(lab, "h1", "h2") as running:
            lab.wait(1.0)
            lost = measures.busiest_link(lab, 0.3)
            getattr(lab, way)(lost)
            lab.wait(1.5)
            seen[way].append(running.end())
        lab.restore(lost)
        assert frames.reachable(lab, SETTLES)
    assert all(not one.open and one.duplicates == 0 for one in seen["cut"] + seen["silence"])
    cut, silence = (min(one.outage for one in ones) for ones in seen.values())
    assert cut < silence / 4, seen


def test_a_download_lives_through_a_cut(whole):
    lab = whole(topology.pair(3))
    with tcp.Download(lab, "h1", "h2", 6, 8) as download:
        lab.wait(4.0)
        lab.cut("a-b 5g")
        run = download.result()
    before, after = (mean(second.rate for second in run.seconds if begin <= second.time < end) for begin, end in ((3, 4), (6, 8)))
    assert not run.broken and after > before / 3, run.seconds  # two of three links are left


def test_a_download_uses_all_links(whole):
    lab = whole(topology.pair(3))
    before = measures.passed(lab)
    measures.throughput(lab, 16, 8)
    carried = [after - before[link] for link, after in measures.passed(lab).items()]
    assert len(carried) == 3 and min(carried) > max(carried) / 3, carried


def test_a_killed_kolt_bridged_leaves_a_bridge_that_forwards_and_does_not_circle(whole):
    lab = whole(topology.pair(3))

    def play() -> Census:
        assert frames.reachable(lab, SETTLES)
        with Broadcasts(lab) as counting:
            counting.run(0.2)
            for node in lab.kind.nodes.values():
                node.kill_program("kolt-bridged", signal.SIGKILL)
            counting.run(1.0)
            counting.listen()
        for node in lab.kind.nodes.values():
            node.start_bridged()
        return counting.census

    assert_one_copy(play)
    assert frames.reachable(lab, SETTLES)


def test_a_kolt_bridged_that_starts_again_stops_no_stream(whole):
    lab = whole(topology.pair(3))
    for _ in range(TIMES):
        for node in lab.kind.nodes.values():
            node.kill_program("kolt-bridged", signal.SIGKILL)
        with stream.Stream(lab, "h1", "h2") as running:
            for node in lab.kind.nodes.values():
                node.start_bridged()
            lab.wait(1.0)
            seen = running.end()
        assert seen.duplicates == 0
        assert frames.reachable(lab, SETTLES)
        if not seen.lost:
            break
    assert seen.lost == 0


def test_a_client_placed_before_a_crash_is_reached_when_its_link_is_lost_after_it(whole):
    lab = whole(topology.pair(2), period=60)
    node = lab.kind.nodes["b"]
    lost = "a-b 5g_2"
    assert library.ask(node, "place", lab.mac("h1"), lab.ends[lost]["b"].port.name) == {"failed": 0}
    node.kill_program("kolt")
    node.kill_program("kolt-bridged")
    node.start_bridged()
    assert frames.as_joined(lab, SETTLES)
    lab.cut(lost)
    assert frames.as_joined(lab, SETTLES)


def test_a_restarted_kolt_bridged_moves_neither_client_nor_stream(whole):
    lab = whole(topology.pair(2), period=60)  # longer than the test: kolt itself moves nothing
    node = lab.kind.nodes["b"]
    come_to_rest(lab, node)
    slow, fast = (port.name for port in ports.backhaul_ports(lab.topology, "b"))
    assert library.ask(node, "place", lab.mac("h1"), slow) == {"failed": 0}
    with tcp.Download(lab, "h2", "h1", 4, 8) as download:
        lab.wait(1.5)
        library.ask(node, "point", slow, fast)
        streams, clients = library.ask(node, "targets"), library.ask(node, "hd")
        node.kill_program("kolt-bridged")
        node.start_bridged()
        lab.wait(4 * PAUSE)
        assert (library.ask(node, "targets"), library.ask(node, "hd")) == (streams, clients)
        assert not download.result().broken
    assert set(streams.values()) == {fast} and clients["ports"] == {lab.mac("h1"): slow}


def test_a_node_with_six_links_needs_less_than_two_mebibytes_for_kolt_bridged(whole):
    lab = whole(SIX_LINKS)
    node = lab.kind.nodes["b"]
    for start in ("the first", "the next"):
        assert node.private_memory(node.bridged.pid) < 2048, start
        node.kill_program("kolt-bridged")
        node.start_bridged()
        assert frames.reachable(lab, SETTLES)
