"""Messages of the bridge and neighbour sockets: which are taken, and what each type makes the daemon do."""
import struct
from collections.abc import Iterator
from pathlib import Path

import pytest

from kolt_node import Mark, Node, nlmsghdr
import scene

PROGRAMMED = ["SetTcpSP br-lan 0", "SetBridgeMode br-lan 0",
              *scene.port("br-lan wlan1.1", 3, compat=4, relay=0, bcast=1, path=1, needha=1)]
STATION = "loop_avoidance_event_cb: Debug: flush fc flow by mac: 02:AB:00:00:00:0F"
LEARNT = "loop_avoidance_delete_wds_entry: Debug: update fdb from if: "

NO_PORT_OF_ETHERNET = "kolt_check_eth_has_neigh: Error: can't find ifname[wlan1.1] in eth_ifname"


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[scene.SharedNode]:
    with scene.SharedNode(build) as fresh:
        yield fresh


@pytest.fixture
def node(shared: scene.SharedNode) -> Iterator[Node]:
    yield from shared.lend()


def station(ifindex: int, *, rest: bytes = b"") -> bytes:
    """Where a station was learnt: its MAC, the low byte of the port's index, five others, the high byte."""
    return bytes.fromhex("02ab0000000f") + bytes([ifindex & 255]) + b"\xee" * 5 + bytes([ifindex >> 8]) + rest


def set_up(node: Node, *, level: int = 1) -> None:
    scene.set_up(node, ["wlan1.1"])
    scene.start(node, level=level)


def nothing_happens(node: Node, begin: Mark) -> bool:
    node.wait_idle()
    return (scene.lines(node, begin), node.journal(begin)) == ([], [])


class TestAcceptance:
    """A bridge event of type 6 that is taken flushes; the table says which datagrams are."""

    @pytest.mark.parametrize("raw, taken", [
        (nlmsghdr(6), True), (nlmsghdr(6) + b"trailing bytes", True), (nlmsghdr(6) + nlmsghdr(6), True),
        (nlmsghdr(6, b"1234") + b"x" * 3, True), (nlmsghdr(6, bytes(16384 - 16)), True),
        (b"", False), (b"\x10", False), (nlmsghdr(6)[:15], False), (nlmsghdr(6, length=8), False),
        (nlmsghdr(6, length=0), False), (nlmsghdr(6, length=15), False), (nlmsghdr(6, length=17), False),
        (nlmsghdr(6, length=0xFFFFFFFF), False), (nlmsghdr(6, b"1234", length=21), False),
        (nlmsghdr(6, bytes(16385 - 16)), False), (nlmsghdr(6, bytes(60000)), False),
    ], ids=lambda value: str(len(value)) if isinstance(value, bytes) else str(value))
    def test_whole_messages_are_taken_and_no_others(self, node: Node, raw: bytes, taken: bool) -> None:
        set_up(node)
        begin = scene.mark(node)
        node.send_bridge_event(0, raw=raw)
        node.wait_idle()
        assert scene.values(scene.requests(node, begin), "FlushHATable") == ["br-lan"] * taken
        assert scene.lines(node, begin) == []
        node.send_bridge_event(6)
        node.wait_idle()
        assert scene.values(scene.requests(node, begin), "FlushHATable") == ["br-lan"] * (taken + 1)

    def test_only_the_first_message_of_a_datagram_counts(self, node: Node) -> None:
        set_up(node)
        begin = scene.mark(node)
        node.send_bridge_event(0, raw=nlmsghdr(8) + nlmsghdr(6))
        assert nothing_happens(node, begin)
        node.send_bridge_event(0, raw=nlmsghdr(7) + nlmsghdr(7) + nlmsghdr(6))
        node.wait_idle()
        assert scene.values(scene.requests(node, begin), "FlushHATable") == ["br-lan"]

    def test_header_flags_sequence_and_port_do_not_matter(self, node: Node) -> None:
        set_up(node)
        begin = scene.mark(node)
        node.send_bridge_event(0, raw=nlmsghdr(6, flags=0xFFFF, seq=77, pid=1))
        node.wait_idle()
        assert scene.requests(node, begin) == [*PROGRAMMED, "FlushHATable br-lan"]

    def test_messages_that_wait_together_are_all_handled(self, node: Node) -> None:
        set_up(node)
        begin = scene.mark(node)
        node.send_bridge_event(7, count=100)
        node.wait_idle()
        assert scene.requests(node, begin) == [*PROGRAMMED, "FlushHATable br-lan"] * 100


class TestReconfiguration:
    @pytest.mark.parametrize("type", [6, 7])
    @pytest.mark.parametrize("payload", [b"", b"\xff" * 40])
    def test_types_6_and_7_program_the_bridges_and_flush(self, node: Node, type: int, payload: bytes) -> None:
        set_up(node)
        node.set_work_mode("AP")
        begin = scene.mark(node)
        node.send_bridge_event(type, payload)
        node.wait_idle()
        assert scene.requests(node, begin) == ["SetTcpSP br-lan 0", "SetBridgeMode br-lan 1", *PROGRAMMED[2:],
                                               "FlushHATable br-lan"]
        assert scene.lines(node, begin) == []

    def test_every_active_loop_avoiding_bridge_is_flushed_after_all_are_programmed(self, node: Node) -> None:
        scene.set_up(node, [])
        for name in ("br-two", "br-plain"):
            node.set_bridge(name)
        avoiding = {"loop_avoidance": True}
        scene.start(node, scene.config(bridges={"br-none": avoiding, "br-two": avoiding, "br-plain": {},
                                                "br-lan": avoiding}))
        node.fail("bridgeFlushHATable", -1)
        begin = scene.mark(node)
        node.send_bridge_event(6)
        node.wait_idle()
        assert scene.requests(node, begin) == [
            "SetTcpSP br-two 0", "SetBridgeMode br-two 0", "SetTcpSP br-lan 0", "SetBridgeMode br-lan 0",
            "FlushHATable br-two", "FlushHATable br-lan"]
        assert scene.lines(node, begin) == ["loop_avoidance_flush_ha_table: Error: bridgeFlushHATable"] * 2


class TestStations:
    def test_port_index_is_split_into_a_low_and_a_high_byte(self, node: Node) -> None:
        for index, name in ((0x1234, "wlan7"), (0x34, "wlan8"), (0x1200, "wlan9")):
            node.add_interface(name, index=index)
        set_up(node, level=2)
        for index, name in ((0x1234, "wlan7"), (0x34, "wlan8"), (0x1200, "wlan9")):
            begin = scene.mark(node)
            node.send_bridge_event(5, station(index))
            node.wait_idle()
            assert scene.lines(node, begin) == [LEARNT + name, STATION]

    def test_unknown_port_ends_the_clean_up_but_not_the_flow_flush(self, node: Node) -> None:
        set_up(node, level=2)
        begin = scene.mark(node)
        node.send_bridge_event(5, station(0xFFFF))
        node.wait_idle()
        assert (scene.lines(node, begin), node.journal(begin)) == ([STATION], [])

    def test_lines_are_for_the_debug_level(self, node: Node) -> None:
        set_up(node)
        begin = scene.mark(node)
        node.send_bridge_event(5, station(node.ifindex("wlan1.1")))
        node.wait_idle()
        assert (scene.lines(node, begin), scene.requests(node, begin)) == ([NO_PORT_OF_ETHERNET], [])

    def test_payload_may_be_longer(self, node: Node) -> None:
        set_up(node, level=2)
        begin = scene.mark(node)
        node.send_bridge_event(5, station(node.ifindex("wlan1.1"), rest=b"\xff" * 1000))
        node.wait_idle()
        assert scene.lines(node, begin) == [LEARNT + "wlan1.1", NO_PORT_OF_ETHERNET, STATION]

    @pytest.mark.parametrize("length", [0, 1, 5, 6, 7, 11, 12])
    def test_short_payload_touches_no_bridge(self, node: Node, length: int) -> None:
        set_up(node, level=2)
        begin = scene.mark(node)
        node.send_bridge_event(5, station(0xFFFF)[:length])
        node.wait_idle()
        assert scene.requests(node, begin) == []
        assert not [line for line in scene.lines(node, begin) if line.startswith(LEARNT)]

    def test_ports_are_those_of_the_first_bridge_and_neighbours_are_asked_for_by_the_port_s_name(self,
                                                                                                node: Node) -> None:
        scene.set_up(node, ["eth0", "eth1"])
        node.set_bridge("br-first", ["eth1"])
        flags = {"br-first": {}, "br-lan": {"loop_avoidance": True}}
        scene.start(node, scene.config(scene.INTERFACES | {"eth1": scene.ETH0}, bridges=flags))
        for name, asked in (("eth1", ["uci_get_profile_eths", "uci_get_eth_port_num"]), ("eth0", [])):
            begin = scene.mark(node)
            node.send_bridge_event(5, station(node.ifindex(name)))
            node.wait_idle()
            ports = [entry["args"]["bridge"] for entry in node.journal(begin, "netlink_msg", type=256)]
            profile = [entry["call"] for entry in node.journal(begin) if entry["call"].startswith("uci")]
            assert (ports, profile) == (["br-first"], asked)
            assert scene.requests(node, begin) == []

    def test_station_on_the_bridge_itself_is_not_looked_for_among_the_ports(self, node: Node) -> None:
        node.add_interface("br-lan", kind="bridge")
        scene.set_up(node, ["eth0", "wlan0-b.1"])
        scene.start(node, level=2)
        begin = scene.mark(node)
        node.send_bridge_event(5, station(node.ifindex("br-lan")))
        node.wait_idle()
        assert scene.lines(node, begin) == [LEARNT + "br-lan", STATION]
        assert node.journal(begin, "uci_get_profile_eths") == []

    def test_no_configured_bridge_and_no_ports_do_no_harm(self, node: Node) -> None:
        scene.set_up(node, ["eth0"])
        node.fail("netlink_msg:256", -1)
        scene.start(node, level=2)
        begin = scene.mark(node)
        node.send_bridge_event(5, station(node.ifindex("eth0")))
        node.wait_idle()
        assert scene.lines(node, begin) == [LEARNT + "eth0", "kolt_get_active_ports: Error: netlink_msg", STATION]
        node.stop_daemon()
        node.start_daemon(scene.config(bridges={}))
        node.set_log_level(2)
        begin = scene.mark(node)
        node.send_bridge_event(5, station(node.ifindex("eth0")))
        node.wait_idle()
        assert scene.lines(node, begin)[-1] == STATION
        assert scene.requests(node, begin) == []


class TestOthers:
    def test_other_bridge_event_types_do_nothing(self, node: Node) -> None:
        set_up(node, level=3)
        begin = scene.mark(node)
        for type in (0, 1, 2, 3, 4, 8, 9, 16, 255, 256 + 6, 0xFFFF):
            node.send_bridge_event(type, station(node.ifindex("wlan1.1")))
        assert nothing_happens(node, begin)

    def test_neighbour_messages_do_nothing(self, node: Node) -> None:
        set_up(node, level=3)
        begin = scene.mark(node)
        for type in (0, 1, 2, 3, 5, 6, 7, 8, 0xFFFF):
            node.send_neighbour(type, station(node.ifindex("wlan1.1")))
        for raw in (b"", b"\x01", nlmsghdr(4)[:15], nlmsghdr(4, length=8), nlmsghdr(4, length=64)):
            node.send_neighbour(0, raw=raw)
        assert nothing_happens(node, begin)

    def test_flow_report_of_a_neighbour_touches_no_bridge(self, node: Node) -> None:
        set_up(node)
        begin = scene.mark(node)
        node.send_neighbour(4, struct.pack("=6s6sHHIB", b"\2" * 6, b"\4" * 6, 5000, 80, 6, 1))
        node.wait_idle()
        assert node.journal(begin) == []
