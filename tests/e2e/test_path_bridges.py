"""Several bridges, the work modes, and what comes between two periods: links, flow reports, the end."""
import signal
from collections.abc import Iterator
from pathlib import Path

import pytest

import path_scene as paths
import scene
from kolt_node import Mark, Node, hd_entry
from path_scene import HOSTS, HOT, LOCAL, ROOM, PathNode

SELECTING = {"path_selection": True}
AVOIDING = {"loop_avoidance": True}


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[PathNode]:
    yield from paths.lend(build)


@pytest.fixture
def node(shared: PathNode) -> Iterator[PathNode]:
    yield from shared.lend()


def asked(period: paths.Period) -> list[tuple[int, str]]:
    """The questions to bridges: 0 whether it is there, 256 for its ports."""
    return [(args["type"], args["bridge"]) for args in period.find("netlink_msg")]


class TestTwoBridges:
    def test_each_bridge_decides_for_the_next_whether_the_period_before_was_adjusting(self, node: PathNode) -> None:
        """
        A bridge without the flag, one that is gone and "br-wan" get no visit and change nothing in between. A bridge
        whose address is unknown ends its own period without a measurement, and leaves what was decided.
        """
        ports = {"br-one": ["wlan0.1", "wlan1.1"], "br-two": ["wlan3.1", "wlan4.1"]}
        own = {"wlan3.1": "2.4g", "wlan4.1": "5g"}
        extra = {name: {"type": kind, "nonrelay": True, "path": True} for name, kind in own.items()}
        paths.set_up(node, bridges=["br-one", "br-two", "br-wan", "br-plain"],
                     ports=[*paths.INTERFACES, *own])
        for number, (bridge, names) in enumerate(ports.items()):
            node.set_bridge(bridge, names)
            paths.add_hosts(node, [HOSTS[number]], names[0], bridge=bridge, pinned=names[1])
            node.set_table(bridge, "ha", [paths.stream(node, number, names[0], host=HOSTS[number])])
        bridges = {"br-gone": SELECTING, "br-one": SELECTING, "br-wan": SELECTING, "br-plain": AVOIDING,
                   "br-two": SELECTING}
        node.begin(paths.config(paths.INTERFACES | extra, bridges=bridges))
        moved = {"br-one": [(0, "wlan1.1")], "br-two": [(1, "wlan4.1")]}
        story = [((ROOM, HOT), ()), ((HOT, HOT), ("br-one", "br-two")), ((HOT, ROOM), ("br-one",))]
        for number, (loads, moving) in enumerate(story):
            for radios, load in zip([("wlan0", "wlan1"), ("wlan3", "wlan4")], loads):
                paths.set_radio(node, radios[0], "2.4g", 300, load)
                paths.set_radio(node, radios[1], "5g", 866, ROOM)
            period = node.period()
            assert asked(period) == [(0, "br-gone"), (0, "br-one"), (256, "br-one"), (0, "br-two"),
                                     (256, "br-two")], number
            assert {bridge: period.ha(bridge) for bridge in ports} == {
                bridge: moved[bridge] if bridge in moving else [] for bridge in ports}, number
            assert [(args["bridge"], args["code"]) for args in period.find("bridgeTableAction")] == [
                (bridge, code) for bridge, load in zip(ports, loads) for code in (2, 1, 8)[:2 + (load == HOT)]], number
            moves = period.says("path_selection_update_ha_entry")
            assert len([line for line in moves if "set ha entry success" in line]) == len(moving), number
            assert period.hd() == [], number
        paths.set_radio(node, "wlan3", "2.4g", 300, HOT)
        node.fail("socket:inet", 24, nth=1)
        period = node.period()
        assert (period.codes("br-one"), period.codes("br-two")) == ([2, 1], [2, 1, 8])
        assert period.ha() == []
        errors = [line for line in period.lines if "Error" in line]
        assert errors == ["kolt_get_bridge_mac: Error: socket",
                          "path_selection_update_uplink_paths: Error: get br mac"]


class TestWorkModes:
    PORTS = {"wlan1-b.1": {"type": "5g", "path": True}, "wlan0-c.1": {"type": "2.4g", "path": True, "class": 1},
             "wlan3.1": {"type": "5g_2", "path": True}}
    RADIOS = ["/proc/wlan0/{}", "/proc/net/rtk_wifi6/wlan1/{}", "/proc/net/rtk_wifi6/wlan2/{}"]

    def test_only_an_extender_measures_and_others_keep_the_links_of_one_bridge_awake(self, node: PathNode) -> None:
        """As an access point also "br-wan" counts, the relaying link too, but neither the second 5 GHz nor class 1."""
        every = paths.INTERFACES | self.PORTS
        paths.set_up(node, bridges=["br-wan", "br-lan"], ports=every)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1")
        environment = paths.watch_reads(node)
        node.begin(paths.config(every, bridges={"br-gone": SELECTING, "br-wan": SELECTING, "br-lan": SELECTING}),
                   env=environment)
        paths.take_reads(node)
        for mode in ("FAP", "AP", "HAP", "RE", None):
            if mode is None:
                node.remove_file("/tmp/work_mode")
            else:
                node.set_work_mode(mode)
            period = node.period()
            read = paths.take_reads(node)
            if mode == "RE":
                assert asked(period) == [(0, "br-gone"), (0, "br-lan"), (256, "br-lan")]
                assert period.hd() == [(HOSTS[0], "wlan2.1")]
                assert read == [*[path.format("sta_info") for path in self.RADIOS],
                                *[path.format(name) for path in self.RADIOS for name in ("sta_info", "stats")]]
                continue
            assert asked(period) == [(0, "br-gone"), (0, "br-wan"), (256, "br-wan")], mode
            assert {entry["call"] for entry in period.calls} == {
                "bridgeAllocTableBuf", "netlink_msg", "bridgeFreeTableBuf"}, mode
            assert read == ["/proc/wlan0/sta_info", "/proc/net/rtk_wifi6/wlan1/sta_info",
                            "/proc/net/rtk_wifi6/wlan1-b/sta_info"], mode
            unreadable = ["kolt_get_work_mode: Error: parse work_mode"] * 3  # twice for the bridge that is visited
            assert period.lines == (unreadable if mode is None else []), mode


class TestLinkState:
    PORTS = {"wlan0.1": {"type": "2.4g", "nonrelay": True, "path": True}, "wlan1.1": paths.UPLINKS["wlan1.1"],
             "wlan2.1": paths.UPLINKS["wlan2.1"], "wlan1-b.1": {"type": "5g", "path": True},
             "eth0": {"type": "ethernet", "nonrelay": True, "path": True}}
    FLUSHED = ["FlushHATable br-lan", "FlushHATable br-two"]
    OK = "path_selection_update_table: Debug: update hd table OK"

    def send(self, node: Node, attributes: dict) -> tuple[list[str], list[str]]:
        """What the bridges were told before loop avoidance has its turn, and what was said about the tables."""
        begin = scene.mark(node)
        node.event("kolt.link_state", attributes)
        told = scene.requests(node, begin)
        first = next(at for at, line in enumerate(told) if line.startswith("Set"))
        return told[:first], said(node, begin, "path_selection_update_table", "path_selection_flush_table",
                                  "kolt_get_duon_bridge_table", "kolt_update_hd_table")

    def test_best_link_that_is_up_gets_the_clients_of_the_others(self, node: PathNode) -> None:
        """
        On loop-avoiding bridges, whether they select paths or not. Clients on Ethernet or on a relaying link stay,
        those on the target are entered again. Power line has no name, which is passed as it is.
        """
        paths.set_up(node, bridges=["br-lan", "br-two", "br-plain"], ports=self.PORTS)
        second = "02:77:00:00:00:01"
        where = ["wlan0.1", "eth0", "wlan1.1", "wlan1-b.1", "wlan2.1"]
        node.set_table("br-lan", "hd", [hd_entry(host, node.ifindex(name), second=second)
                                        for host, name in zip(HOSTS, where)])
        node.set_bridge("br-two", ["wlan1.1"])
        node.set_table("br-two", "hd", [hd_entry(HOSTS[5], node.ifindex(name)) for name in ("wlan0.1", "wlan1.1")])
        scene.start(node, paths.config(self.PORTS, period=3600, bridges={
            "br-plain": SELECTING, "br-lan": SELECTING | AVOIDING, "br-gone": AVOIDING, "br-two": AVOIDING}), level=2)
        up = {"LINK_PLC": 1, "LINK_WIFI_2G": 1, "LINK_WIFI_5G": 1, "LINK_WIFI_5G_2": 1, "LINK_ETH": 0}
        for attributes, target in ((up, ""), ({"LINK_PLC": 2}, "wlan2.1"), ({"LINK_WIFI_5G_2": -1}, "wlan1.1")):
            moved = [f"AddHDTableEntries br-lan {host} {second} {target} {target} 0" for host in HOSTS[:5:2]]
            on_two = target if target == "wlan1.1" else ""  # of the other links this bridge has no port
            moved.append(f"AddHDTableEntries br-two {HOSTS[5]} 00:00:00:00:00:00 {on_two} {on_two} 0")
            assert self.send(node, attributes) == (moved + self.FLUSHED, [self.OK] * 2), target
        node.fail("bridgeTableAction", bridge="br-lan")
        node.fail("bridgeFlushHATable", bridge="br-two", nth=1)
        told, lines = self.send(node, {"LINK_WIFI_5G": 0})
        assert told == [moved[-1].replace("wlan1.1", "")] + self.FLUSHED
        assert lines == ["kolt_update_hd_table: Error: get hd table", self.OK,
                         "path_selection_flush_table: Error: bridgeFlushHATable"]
        node.fail("bridgeFlushHDTable", bridge="br-lan")
        told, lines = self.send(node, {"LINK_WIFI_2G": 0, "LINK_ETH": 1})
        assert told == ["FlushHDTable br-lan", "FlushHDTable br-two", *self.FLUSHED]
        assert lines == ["path_selection_flush_table: Error: bridgeFlushHDTable"]


def said(node: Node, begin: Mark, *functions: str) -> list[str]:
    node.drain()
    return [f"{record.function}: {record.level}: {record.text}" for record in node.log(begin)
            if record.function in functions]


class TestFlowReports:
    REPORT = bytes.fromhex((LOCAL + HOSTS[0]).replace(":", "")) + bytes([0x88, 0x13, 0xBB, 0x01, 17, 0, 0, 0, 200])
    LINE = ("path_selection_event_cb: Info: sa: 02:20:00:00:00:01, da:02:30:00:00:00:01, src_port: 5000, dst_port:443, "
            "protocol:17, type:200")

    def test_report_of_a_flow_is_logged_and_the_cache_that_is_not_there_is_left_alone(self, node: PathNode) -> None:
        """Only messages of type 4, whatever stands behind the report, and nothing at level 0."""
        scene.set_up(node, [])
        scene.start(node, paths.config(period=3600, bridges={}))
        begin = scene.mark(node)
        for type in (3, 4, 5):
            node.send_neighbour(type, self.REPORT + bytes(40))
        node.send_bridge_event(4, self.REPORT)
        node.wait_idle()
        assert said(node, begin, "path_selection_event_cb") == [self.LINE]
        node.set_log_level(0)
        node.send_neighbour(4, self.REPORT)
        node.wait_idle()
        assert said(node, begin, "path_selection_event_cb") == [self.LINE]
        assert [entry for entry in node.journal(begin) if entry["call"] != "netlink_msg"] == []


class TestEnd:
    def test_signal_in_a_period_lets_the_period_end_and_none_follow(self, node: PathNode) -> None:
        """The parent is silent: the signal comes while the daemon waits for it, and takes effect a second later."""
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:2], "wlan0.1", pinned="wlan2.1")
        node.set_table("br-lan", "ha", [paths.stream(node, 7, "wlan0.1")])
        node.set_load(load_2_4g=HOT)
        node.begin()
        node.answer_requests(silent=True)
        begin = scene.mark(node)
        node.begin_period()
        node.wait_calls("sendto", since=begin)
        assert node.stop_daemon(signal.SIGTERM) == 0
        period = [record.text for record in node.log(begin)]
        assert period.count("send notify msg failed") == 1
        assert f"client: {HOSTS[1].upper()}, ifname:wlan0.1, relay:norelay" in period
        assert period[-1] == "adjust_real_count: 0"
        assert len(node.journal(begin, "netlink_msg", type=0)) == 1

    def test_signal_before_the_first_period_cancels_it(self, node: PathNode) -> None:
        paths.set_up(node)
        node.begin()
        begin = scene.mark(node)
        assert node.stop_daemon(signal.SIGTERM) == 0
        assert node.journal(begin) == []
