"""The namespaces: what reaches whom, what a failing link does, and that nothing is left behind."""
import os
import signal
import time

import pytest
from kolt_mesh import frames, ports, topology
from kolt_mesh.kinds import Kind, OneLink, TunedSpanningTree
from kolt_mesh.lab import BURST, Lab
from kolt_mesh.netns import MeshError, NetNamespace, batch
from kolt_mesh.route import IFF_RUNNING

LINK = "a-b 5g"


def chain_of(*rates: str) -> topology.Topology:
    names = "abcdef"[:len(rates) + 1]
    return topology.parse({"nodes": {name: {"mode": "FAP" if name == "a" else "RE"} for name in names},
                           "hosts": {f"h{name}": name for name in names},
                           "links": [{"between": [one, two], "type": "5g"} | ({"rate": rate} if rate else {})
                                     for one, two, rate in zip(names, names[1:], rates)]}, "chain")


def test_every_host_reaches_every_other_one_over_a_chain(make_lab):
    assert frames.reachable(make_lab(chain_of("", ""), Kind()), 1.0)


def test_hosts_of_one_node_reach_each_other(make_lab):
    assert frames.reachable(make_lab(topology.load("single"), Kind()), 1.0)


@pytest.mark.parametrize("name", ["ring", "two-roots", "star"])
def test_the_kernels_spanning_tree_makes_a_shipped_home_whole(make_lab, name):
    assert frames.reachable(make_lab(topology.load(name), TunedSpanningTree()), 20.0)


def test_one_link_alone_connects_a_home_with_several(make_lab):
    lab = make_lab(topology.load("chain"), OneLink())
    assert frames.reachable(lab, 1.0)
    assert [name for name, state in lab.state.items() if state == "up"] == ["gateway-hall 5g", "hall-upstairs 2.4g"]


@pytest.mark.parametrize("asked", [frames.reachable, frames.as_joined])
def test_a_host_that_only_broadcasts_reach_is_not_reached(make_lab, asked):
    lab = make_lab(chain_of("", ""), Kind())
    assert asked(lab, 1.0)
    entry = ["fdb", "replace", lab.mac("ha"), "dev", lab.ends["b-c 5g"]["b"].port.name, "master", "static", "sticky"]
    batch("bridge", lab.nodes["b"].namespace, [" ".join(entry)])
    assert not asked(lab)


def test_a_cut_takes_the_carrier_from_the_far_end(make_lab):
    lab = make_lab(topology.pair(1), Kind())
    lab.cut(LINK)
    deadline = time.monotonic() + 0.5
    while carrier(lab, "b") and time.monotonic() < deadline:
        time.sleep(0.005)
    assert not carrier(lab, "b") and not frames.reachable(lab)


def test_silence_keeps_the_carrier_and_loses_every_frame(make_lab):
    lab = make_lab(topology.pair(1), Kind())
    assert frames.reachable(lab, 1.0)
    lab.silence(LINK)
    assert not frames.reachable(lab) and lab.carrier(LINK)


def test_silence_of_one_end_loses_one_direction(make_lab):
    lab = make_lab(topology.pair(1), Kind())
    assert frames.reachable(lab, 1.0)
    lab.silence(LINK, "a")
    with frames.Broadcasts(lab) as counting:
        counting.burst("h1", 10)
        counting.burst("h2", 10)
    assert counting.census.copies_of("h2", "h1") == [0] * 10
    assert counting.census.copies_of("h1", "h2") == [1] * 10


@pytest.mark.parametrize("rate", ["50mbit", ""])
@pytest.mark.parametrize("what", ["cut", "silence"])
def test_a_restored_link_carries_frames_again(make_lab, what, rate):
    lab = make_lab(chain_of(rate), Kind())
    getattr(lab, what)(LINK)
    lab.restore(LINK)
    lab.wait_carrier()
    assert frames.reachable(lab, 2.0) and lab.state[LINK] == "up"


def test_a_slow_link_carries_less_than_before(make_lab):
    lab = make_lab(topology.pair(1), Kind())
    lab.slow(LINK, "100kbit")
    assert lab.rates[LINK] == 100e3
    began = time.monotonic()
    with frames.Broadcasts(lab) as counting:
        counting.run(1.0, ["h1"], gap=0.001)
        counting.listen()
    arrived = sum(counting.census.copies_of("h2"))
    possible = (lab.rates[LINK] / 8 * (time.monotonic() - began) + BURST) / frames.LENGTH
    assert 0 < arrived <= possible and arrived < len(counting.census.sent)


def test_events_of_a_topology_are_done(make_lab):
    lab = make_lab(topology.pair(1), Kind())
    for event, state in (({"do": "slow", "link": LINK, "rate": "1mbit"}, "slow"), ({"do": "cut", "link": LINK}, "cut"),
                         ({"do": "restore", "link": LINK}, "up"), ({"do": "silence", "link": LINK}, "silent")):
        lab.obey(event)
        assert lab.state[LINK] == state


def test_counters_of_a_port_grow_by_what_passes(make_lab):
    lab = make_lab(topology.pair(1), Kind())
    assert frames.reachable(lab, 1.0)
    before = lab.counters("a")["wlan1-b.1"]
    with frames.Broadcasts(lab) as counting:
        counting.burst("h1", 50)
    after = lab.counters("a")["wlan1-b.1"]
    others = 10  # what hosts say about their groups
    assert 50 <= after.tx_packets - before.tx_packets <= 50 + others
    assert 50 * frames.LENGTH <= after.tx_bytes - before.tx_bytes <= 50 * frames.LENGTH + others * 200


def test_no_two_ends_of_a_link_have_the_same_index(make_lab):
    lab = make_lab(topology.load("house"), OneLink())
    indexes = [end.index for ends in lab.ends.values() for end in ends.values()]
    assert len(set(indexes)) == len(indexes) and max(indexes) < 65536


def test_a_refused_command_is_told_with_what_the_tool_said():
    space = NetNamespace()
    with pytest.raises(MeshError, match="nosuch"):
        space.run(["ip", "link", "set", "nosuch", "up"])
    space.close()


def test_a_namespace_ends_with_the_process_that_made_it():
    read, write = os.pipe()
    child = os.fork()
    if child == 0:
        with Lab(topology.pair(1), Kind()) as lab:
            lab.up()
            os.write(write, str(lab.watchdog.pid).encode())
            time.sleep(30)
        os._exit(0)
    guard = int(os.read(read, 64))
    os.kill(child, signal.SIGKILL)
    os.waitpid(child, 0)
    deadline = time.monotonic() + 2
    while os.path.exists(f"/proc/{guard}") and time.monotonic() < deadline:
        time.sleep(0.01)
    assert not os.path.exists(f"/proc/{guard}")


def carrier(lab: Lab, node: str) -> bool:
    end = lab.ends[LINK][node]
    return bool(end.place.route.interfaces()[end.port.name][1] & IFF_RUNNING)


def test_a_nodes_bridge_has_every_port_of_its_topology(make_lab):
    lab = make_lab(topology.load("star"), OneLink())
    for node, place in lab.nodes.items():
        listed = place.namespace.run(["bridge", "-o", "link"])
        wanted = [port.name for port in ports.backhaul_ports(lab.topology, node)]
        assert all(f": {name}" in listed for name in wanted + ports.access_ports(lab.topology, node))
