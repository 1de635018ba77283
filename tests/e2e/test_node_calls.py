"""Calls of the platform libraries that report only a result: the journal, scripted failures, the Ethernet profile."""
import re
import subprocess
import time
from pathlib import Path

import pytest

from kolt_node import Node
from probe import probe, values


class TestSetters:
    EXPECTED = {
        "bridgeSetBridgeMode": {"mode": 1}, "bridgeSetTcpSP": {"value": 2}, "bridgeSetFollowRE": {"value": 3},
        "bridgeSetIFGroup": {"ifname": "eth0", "group": 4, "group_again": 5},
        "bridgeSetIFType": {"ifname": "eth0", "type": 6}, "bridgeSetIFClass": {"ifname": "eth0", "bcast_class": 7},
        "bridgeSetIFPath": {"ifname": "eth0", "path": 8}, "bridgeSetIFCompat": {"ifname": "eth0", "compat_group": 9},
        "bridgeSetIFBroadcast": {"ifname": "eth0", "allow": 10}, "bridgeSetNeedha": {"ifname": "eth0", "needha": 11},
        "bridgeSetCouple": {"ifname": "eth0", "couple": "couple0", "first": 12},
        "bridgeAddHDTableEntries": {"client_mac": "02:00:00:00:00:0a", "second_mac": "02:00:00:00:00:0b",
                                    "ifname": "eth0", "ifname_again": "eth0", "zero": 0},
        "bridgeDelHDTableEntriesByMAC": {"mac": "02:00:00:00:00:0a", "second_mac": "02:00:00:00:00:0b",
                                         "ifname": "eth0"},
        "bridgeSetHATableEntries": {"hash": 64, "src": "02:00:00:00:00:0a", "dst": "02:00:00:00:00:0b",
                                    "src_port": 5000, "dst_port": 80, "ifname": "eth0", "stream_kind": 1,
                                    "carried_value": 0xFEDCBA98},
        "bridgeFlushHDTable": {}, "bridgeFlushHATable": {}, "bridgeDelFdbByName": {"ifname": "eth0"},
        "bridgeSetEventInfo": {"pid": 77, "events": 3, "protocol": 38},
    }

    def test_every_call_is_journalled_with_its_arguments_by_name(self, node: Node) -> None:
        before = time.monotonic_ns()
        done = probe(node, "setters", "br-lan", "eth0")
        journal = node.journal()
        assert [entry["call"] for entry in journal] == list(self.EXPECTED)
        for entry in journal:
            assert entry["args"] == {"bridge": "br-lan"} | self.EXPECTED[entry["call"]]
            assert (entry["result"], entry["pid"]) == (0, done.pid)
        times = [before, *(entry["time"] for entry in journal), time.monotonic_ns()]
        assert times == sorted(times)

    @pytest.mark.parametrize("function", EXPECTED)
    def test_every_call_can_be_made_to_fail(self, node: Node, function: str) -> None:
        node.fail(function, -3)
        results = values(probe(node, "setters", "br-lan", "eth0"))
        assert results == dict.fromkeys(self.EXPECTED, "0") | {function: "-3"}
        assert node.journal(call=function)[0]["result"] == -3

    def test_journal_survives_any_bytes_in_a_name(self, node: Node) -> None:
        probe(node, "flush", 'b"\\\n\x01é', 1)
        assert node.journal()[0]["args"]["bridge"] == 'b"\\\n\x01' + "é".encode().decode("latin-1")

    def test_journal_can_be_stopped(self, node: Node) -> None:
        probe(node, "flush", "br-lan", 1)
        node.stop_journal()
        node.fail("bridgeFlushHATable")
        assert probe(node, "flush", "br-lan", 1).stdout == "result -1\n"
        assert len(node.journal()) == 1


class TestScriptedFailures:
    def flush(self, node: Node, times: int, bridge: str = "br-lan") -> list[int]:
        return [int(line.split()[1]) for line in probe(node, "flush", bridge, times).stdout.splitlines()]

    def test_nth_call_only(self, node: Node) -> None:
        node.fail("bridgeFlushHATable", -2, nth=2)
        assert self.flush(node, 4) == [0, -2, 0, 0]

    def test_from_the_nth_call_on(self, node: Node) -> None:
        node.fail("bridgeFlushHATable", start=3)
        assert self.flush(node, 4) == [0, 0, -1, -1]

    def test_several_ranges(self, node: Node) -> None:
        node.fail("bridgeFlushHATable", -9, nth=4, also=[(1, 2, -8)])
        assert self.flush(node, 5) == [-8, -8, 0, -9, 0]

    def test_count_goes_on_across_processes(self, node: Node) -> None:
        node.fail("bridgeFlushHATable", nth=3)
        assert [self.flush(node, 1)[0] for _ in range(4)] == [0, 0, -1, 0]
        assert node.calls_counted("bridgeFlushHATable") == 4

    def test_setting_it_again_counts_from_the_start(self, node: Node) -> None:
        node.fail("bridgeFlushHATable", nth=2)
        assert self.flush(node, 1) == [0]
        node.fail("bridgeFlushHATable", nth=2)
        assert self.flush(node, 2) == [0, -1]

    def test_one_bridge_can_fail_alone(self, node: Node) -> None:
        node.fail("bridgeFlushHATable", bridge="br-guest")
        assert (self.flush(node, 1), self.flush(node, 1, "br-guest")) == ([0], [-1])

    def test_clearing(self, node: Node) -> None:
        node.fail("bridgeFlushHATable")
        node.fail("bridgeFlushHDTable")
        node.clear_failures("bridgeFlushHATable")
        assert self.flush(node, 1) == [0]
        node.fail("bridgeFlushHATable")
        node.clear_failures()
        assert self.flush(node, 1) == [0]


class TestEthernetProfile:
    def profile(self, node: Node, capacity: int = 10) -> tuple[dict[str, str], list[str]]:
        done = probe(node, "profile", capacity)
        return values(done), re.findall(r"^name (.*)$", done.stdout, re.MULTILINE)

    def test_names_and_port_count(self, node: Node) -> None:
        node.set_ethernet_profile(["eth0", "eth1"])
        results, names = self.profile(node)
        assert names == ["eth0", "eth1"]
        assert (results["names_result"], results["ports_result"], results["ports"]) == ("0", "0", "2")

    def test_capacity_bounds_the_names_and_the_count_may_differ(self, node: Node) -> None:
        node.set_ethernet_profile([f"eth{number}" for number in range(12)], 11)
        results, names = self.profile(node)
        assert (len(names), results["ports"]) == (10, "11")

    def test_overlong_name_is_cut_to_15_characters(self, node: Node) -> None:
        node.set_ethernet_profile(["e" * 20])
        assert self.profile(node)[1] == ["e" * 15]

    def test_either_call_can_fail(self, node: Node) -> None:
        node.fail("uci_get_profile_eths", -4)
        node.fail("uci_get_eth_port_num", -5)
        results, _ = self.profile(node)
        assert (results["names_result"], results["ports_result"]) == ("-4", "-5")


def test_libraries_are_harmless_outside_a_node(build: Path) -> None:
    assert not Path("/run/kolt-node").exists(), "the tests themselves run inside a node"

    def outside(*words: object) -> str:
        return subprocess.run([build / "bin/node-probe", *map(str, words)], capture_output=True, text=True, timeout=10,
                              check=True).stdout

    assert "result 0\nlength 0\n" in outside("query", 256, "br-lan", 8)
    assert "result 0\nentries 0\n" in outside("table", 8, "br-lan", 1, 100)
    assert set(re.findall(r" (-?\d+)$", outside("setters", "br-lan", "eth0"), re.MULTILINE)) == {"0"}
    assert "ports 0\n" in outside("profile", 10)
    assert "16:39 error 93" in outside("sockets")
