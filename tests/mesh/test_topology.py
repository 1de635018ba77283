"""Topologies: what a file may say, and what follows from it for the names and roles of ports."""
import copy
import json

import pytest
from kolt_mesh import ports
from kolt_mesh.topology import Topology, TopologyError, load, pair, parse, parse_rate, shipped

GOOD = {"nodes": {"a": {"mode": "FAP"}, "b": {"mode": "RE"}}, "hosts": {"h1": "a", "h2": "b"},
        "links": [{"between": ["a", "b"], "type": "5g", "rate": "50mbit"}, {"between": ["b", "a"], "type": "5g"}]}


def changed(**members: object) -> dict:
    return copy.deepcopy(GOOD) | members


def ring() -> Topology:
    names = "abcd"
    return parse({"nodes": {name: {"mode": "FAP" if name == "a" else "RE"} for name in names}, "hosts": {},
                  "links": [{"between": [one, two], "type": "5g"} for one, two in zip(names, "bcda")]}, "ring")


def test_a_file_gives_nodes_links_and_hosts():
    topology = parse(GOOD, "home")
    assert topology.nodes == {"a": "FAP", "b": "RE"}
    assert [(link.name, link.ends, link.rate) for link in topology.links] == [
        ("a-b 5g", ("a", "b"), 50e6), ("b-a 5g #2", ("b", "a"), 0.0)]
    assert topology.hosts == {"h1": "a", "h2": "b"}


@pytest.mark.parametrize("data, reason", [
    ([], "must be an object"),
    ({"nodes": {}, "links": [], "hosts": {}}, "must be a node"),
    ({key: value for key, value in GOOD.items() if key != "hosts"}, "'hosts' is missing"),
    (changed(colour="red"), "nothing is known about 'colour'"),
    (changed(nodes={"a": {"mode": "BOSS"}}), "a node's mode: 'BOSS' is none of"),
    (changed(nodes={"A/..": {"mode": "RE"}}), "is no name"),
    (changed(nodes={"averylongname": {"mode": "RE"}}), "is no name"),
    (changed(hosts={"a": "a"}), "a is both a node and a host"),
    (changed(hosts={"h1": "c"}), "the node of h1: 'c' is none of"),
    (changed(links=[{"between": ["a", "a"], "type": "5g"}]), "a link is between two nodes"),
    (changed(links=[{"between": ["a", "c"], "type": "5g"}]), "a link's end: 'c' is none of"),
    (changed(links=[{"between": ["a", "b"], "type": "6g"}]), "a link's type: '6g' is none of"),
    (changed(links=[{"between": ["a", "b"], "type": "5g", "rate": 50}]), "50 is not a rate"),
    (changed(traffic=[{"from": "h1", "to": "h2", "streams": 0}]), "1 to 128 streams"),
    (changed(traffic=[{"from": "h1", "to": "h3", "streams": 1}]), "a receiver: 'h3' is none of"),
    (changed(events=[{"at": 1, "do": "explode"}]), "an event: 'explode' is none of"),
    (changed(events=[{"at": -1, "do": "cut", "link": "a-b 5g"}]), "in seconds from the start"),
    (changed(events=[{"at": 1, "do": "cut", "link": "a-b 2.4g"}]), "there is no link a-b 2.4g"),
    (changed(events=[{"at": 1, "do": "cut", "link": "a-b 5g", "end": "c"}]), "an event's end: 'c' is none of"),
    (changed(events=[{"at": 1, "do": "slow", "link": "a-b 5g"}]), "'rate' is missing"),
    (changed(events=[{"at": 1, "do": "kill", "node": "a", "program": "init"}]), "'init' is none of"),
])
def test_a_faulty_file_is_refused_with_the_reason(data, reason):
    with pytest.raises(TopologyError) as caught:
        parse(data, "home")
    assert reason in str(caught.value)


def test_what_is_no_json_is_refused_with_the_files_name(tmp_path):
    file = tmp_path / "home.json"
    file.write_text("{")
    with pytest.raises(TopologyError, match="home.json: not JSON"):
        load(file)


def test_a_file_is_loaded_under_its_own_name(tmp_path):
    file = tmp_path / "home.json"
    file.write_text(json.dumps(GOOD))
    assert load(file).name == "home"


@pytest.mark.parametrize("text, rate", [("50mbit", 50e6), ("2.5gbit", 2.5e9), ("8kbit", 8e3)])
def test_rates_are_read(text, rate):
    assert parse_rate(text) == rate


def test_the_shipped_topologies_are_valid_connected_and_no_larger_than_six_nodes():
    listed = shipped()
    assert {one.name for one in listed} >= {"chain", "ring", "star", "two-roots", "house", "single"}
    for one in listed:
        assert len(one.nodes) <= 6
        assert one.reach(next(iter(one.nodes))) == set(one.nodes)


def test_in_a_chain_only_the_side_away_from_the_root_leads_upwards():
    chain = load("chain")
    upwards = {node: [port.name for port in ports.backhaul_ports(chain, node) if port.upwards] for node in chain.nodes}
    assert upwards == {"gateway": [], "hall": ["wlan1.1", "wlan0.1", "wlan2.1"],
                       "upstairs": ["wlan0.1", "wlan1.1", "wlan2.1"]}


def test_in_a_ring_both_sides_of_an_extender_lead_upwards():
    upwards = {node: [port.upwards for port in ports.backhaul_ports(ring(), node)] for node in ring().nodes}
    assert upwards == {"a": [False, False], "b": [True, True], "c": [True, True], "d": [True, True]}


def test_no_two_ports_of_a_node_share_a_name_or_an_address():
    for topology in shipped():
        for node in topology.nodes:
            made = ports.backhaul_ports(topology, node)
            names = [port.name for port in made] + ports.access_ports(topology, node)
            assert len(set(names)) == len(names) and all(len(name) <= 15 for name in names)
            assert len({port.mac for port in made} | {ports.node_mac(topology, node)}) == len(made) + 1


def test_the_configuration_makes_uplinks_nonrelay_and_lists_every_port():
    interfaces = ports.configuration(load("chain"), "hall", period=1)["interfaces"]
    assert {name for name, one in interfaces.items() if one.get("nonrelay")} == {"wlan0.1", "wlan1.1", "wlan2.1"}
    assert {name for name, one in interfaces.items() if one.get("path") and not one.get("nonrelay")} == {
        "wlan0-b.1", "wlan1-b.1", "wlan2-b.1"}
    assert interfaces["lan1"] == {"type": "ethernet"}


def test_the_configuration_keeps_the_packaged_settings_but_for_those_that_are_given():
    packaged = json.loads((ports.ROOT / "packaging/kolt.json").read_text())["param"]
    assert ports.configuration(load("chain"), "hall", period=1)["param"] == packaged | {"period": 1, "cpu_threshold": 0}


def test_spanning_links_reach_every_node_once():
    for topology in shipped():
        chosen = topology.spanning_links()
        assert len(chosen) == len(topology.nodes) - 1
        assert topology.reach(next(iter(topology.nodes)), links=chosen) == set(topology.nodes)


def test_a_pair_has_as_many_equal_links_as_asked():
    assert [link.rate for link in pair(3).links] == [50e6] * 3
    assert len({link.type for link in pair(3).links}) == 3
