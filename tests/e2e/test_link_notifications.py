"""Link notifications: a Wi-Fi station that expired on a backhaul path makes the bridges forget."""
import struct
from collections.abc import Iterator
from pathlib import Path

import pytest

from kolt_node import IWEVEXPIRED, Mark, Node, attribute, link_message, nlmsghdr, wireless_event
import scene

PATH = {"type": "2.4g", "path": True}
EXPIRED = wireless_event(IWEVEXPIRED)
REGISTERED = wireless_event(0x8C03)
SHORT = wireless_event(IWEVEXPIRED, b"", length=4)
FLUSHED = ["FlushHATable br-lan"]
SHORT_RECORD = "nl_wifi_newlink_handle: Error: Event len is not available"
ABSENT = "nl_wifi_newlink_handle: Error: config_index_to_name fail"


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[scene.SharedNode]:
    with scene.SharedNode(build) as fresh:
        yield fresh


@pytest.fixture
def node(shared: scene.SharedNode) -> Iterator[Node]:
    yield from shared.lend()


def set_up(node: Node, interfaces: dict, ports: list[str] | None = None, *, level: int = 1, **bridges: dict) -> None:
    """br-lan with these interfaces as ports, and a daemon that has settled."""
    scene.set_up(node, list(interfaces) if ports is None else ports)
    flags = {"br-lan": {"loop_avoidance": True}} | {name.replace("_", "-"): value for name, value in bridges.items()}
    scene.start(node, scene.config(interfaces, bridges=flags), level=level)


def notify(node: Node, interface: str | int, wireless: object = EXPIRED, *, raw: bytes | None = None) -> Mark:
    begin = scene.mark(node)
    node.send_link_notification(interface, wireless, raw=raw)
    node.wait_idle()
    return begin


class TestWhichInterface:
    def test_configured_interface_flushes_but_deletes_no_forwarding_entries(self, node: Node) -> None:
        set_up(node, {"wlan0.1": PATH}, level=2)
        begin = notify(node, "wlan0.1")
        assert scene.requests(node, begin) == FLUSHED
        assert scene.lines(node, begin) == ["nl_wifi_newlink_handle: Debug: wifi flush table"]

    def test_radio_of_a_configured_vlan_deletes_the_entries_of_both_vlans_where_they_are_ports(self,
                                                                                              node: Node) -> None:
        node.add_interface("wlan0")
        scene.set_up(node, ["wlan0.1"])
        scene.add_ports(node, "br-two", ["wlan0.2"])
        node.set_bridge("br-both", ["wlan0.2", "wlan0.1"])
        node.set_bridge("br-gone", ["wlan0.1"])
        avoiding = {"loop_avoidance": True}
        scene.start(node, scene.config({"wlan0.1": PATH, "wlan0.2": {"type": "2.4g"}}, bridges={
            "br-gone": avoiding, "br-lan": avoiding, "br-two": {}, "br-both": avoiding}))
        node.deactivate_bridge("br-gone")
        begin = notify(node, "wlan0")
        assert scene.requests(node, begin) == [
            "FlushHATable br-lan", "FlushHATable br-both",
            "DelFdbByName br-lan wlan0.1", "DelFdbByName br-both wlan0.1",
            "DelFdbByName br-two wlan0.2", "DelFdbByName br-both wlan0.2"]
        assert scene.lines(node, begin) == []

    @pytest.mark.parametrize("interface", [{"type": "2.4g"}, PATH | {"nonrelay": True},
                                           {"type": "2.4g", "nonrelay": True}], ids=scene.short)
    def test_interface_that_is_no_relay_path_does_nothing(self, node: Node, interface: dict) -> None:
        node.add_interface("wlan0")
        set_up(node, {"wlan0.1": interface})
        for name in ("wlan0.1", "wlan0"):
            begin = notify(node, name)
            assert (scene.lines(node, begin), node.journal(begin)) == ([], [])

    def test_interface_itself_counts_before_its_vlan(self, node: Node) -> None:
        set_up(node, {"wlan0": {"type": "2.4g"}, "wlan0.1": PATH})
        assert node.journal(notify(node, "wlan0")) == []

    def test_only_the_first_vlan_decides(self, node: Node) -> None:
        node.add_interface("wlan0")
        set_up(node, {"wlan0.2": PATH})
        assert node.journal(notify(node, "wlan0")) == []

    def test_relay_flag_is_the_one_that_the_configuration_left(self, node: Node) -> None:
        """Ethernet relays in every mode, power line for an access point only."""
        set_up(node, {"eth0": scene.ETH0, "plc0": scene.PLC0})
        assert scene.requests(node, notify(node, "eth0")) == FLUSHED
        assert scene.requests(node, notify(node, "plc0")) == []
        node.event("kolt.configure", {"mode": "AP"})
        assert scene.requests(node, notify(node, "plc0")) == FLUSHED

    def test_name_of_14_characters_is_too_long_for_a_vlan(self, node: Node) -> None:
        for name in ("abcdefghijklm", "abcdefghijklmn", "abcdefghijklmno"):
            node.add_interface(name)
        set_up(node, {"abcdefghijklm.1": PATH, "abcdefghijklmn.": PATH})
        assert scene.requests(node, notify(node, "abcdefghijklm")) == [*FLUSHED, "DelFdbByName br-lan abcdefghijklm.1"]
        for name in ("abcdefghijklmn", "abcdefghijklmno"):
            begin = notify(node, name)
            assert (scene.lines(node, begin), node.journal(begin)) == ([], [])

    def test_unconfigured_interface_does_nothing(self, node: Node) -> None:
        node.add_interface("other")
        set_up(node, {"wlan0.1": PATH})
        begin = notify(node, "other")
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])

    @pytest.mark.parametrize("index", [0, 54321, 0x7FFFFFFF, -1])
    def test_index_without_a_name_is_logged_and_matches_nothing(self, node: Node, index: int) -> None:
        set_up(node, {"wlan0.1": PATH})
        begin = notify(node, index)
        assert (scene.lines(node, begin), node.journal(begin)) == ([ABSENT], [])

    def test_real_link_changes_do_nothing(self, node: Node) -> None:
        set_up(node, {"wlan0.1": PATH})
        begin = scene.mark(node)
        node.set_interface_up("wlan0.1", False)
        node.set_interface_up("wlan0.1", True)
        node.add_interface("wlan9")
        node.wait_idle()
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])


class TestFlush:
    def test_every_active_loop_avoiding_bridge_is_flushed_and_each_refusal_survived(self, node: Node) -> None:
        for name in ("br-two", "br-plain"):
            node.set_bridge(name)
        avoiding = {"loop_avoidance": True}
        set_up(node, {"wlan0.1": PATH}, br_none=avoiding, br_plain={}, br_two=avoiding)
        node.fail("bridgeFlushHATable", 1)
        begin = notify(node, "wlan0.1")
        assert scene.requests(node, begin) == ["FlushHATable br-lan", "FlushHATable br-two"]
        assert scene.lines(node, begin) == ["wifi_flush_ha_table: Error: bridgeFlushHATable fail"] * 2

    def test_refused_deletion_is_not_noticed(self, node: Node) -> None:
        node.add_interface("wlan0")
        set_up(node, {"wlan0.1": PATH})
        node.fail("bridgeDelFdbByName", -1)
        begin = notify(node, "wlan0")
        assert scene.requests(node, begin) == [*FLUSHED, "DelFdbByName br-lan wlan0.1"]
        assert scene.lines(node, begin) == []

    def test_entries_are_deleted_once_for_every_port_of_the_name(self, node: Node) -> None:
        node.add_interface("wlan0")
        set_up(node, {"wlan0.1": PATH})
        node.set_bridge("br-lan", ["wlan0.1", "wlan0.1"])
        assert scene.requests(node, notify(node, "wlan0")) == [*FLUSHED, *["DelFdbByName br-lan wlan0.1"] * 2]

    def test_ports_that_cannot_be_asked_for_are_logged_for_each_vlan(self, node: Node) -> None:
        node.add_interface("wlan0")
        set_up(node, {"wlan0.1": PATH})
        node.fail("netlink_msg:256", -1)
        begin = notify(node, "wlan0")
        assert scene.requests(node, begin) == FLUSHED
        assert scene.lines(node, begin) == ["kolt_get_active_ports: Error: netlink_msg"] * 2

    def test_several_notifications_are_all_handled(self, node: Node) -> None:
        set_up(node, {"wlan0.1": PATH})
        begin = scene.mark(node)
        node.send_link_notification("wlan0.1", EXPIRED, count=50)
        node.wait_idle()
        assert scene.requests(node, begin) == FLUSHED * 50


class TestWirelessRecords:
    @pytest.mark.parametrize("records, flushes, short", [
        (EXPIRED, True, False), (REGISTERED, False, False), (REGISTERED + EXPIRED, True, False),
        (EXPIRED + REGISTERED, True, False), (EXPIRED + SHORT, True, True), (SHORT + EXPIRED, False, True),
        (wireless_event(IWEVEXPIRED, b"x"), True, False), (wireless_event(IWEVEXPIRED, b"", length=0), False, True),
        (wireless_event(IWEVEXPIRED, length=25), False, True), (EXPIRED + EXPIRED[:3], True, False),
        (EXPIRED + EXPIRED[:4], True, True), (EXPIRED[:3], False, False), (b"", False, False),
        (wireless_event(0x048C), False, False), (wireless_event(IWEVEXPIRED, length=0xFFFF), False, True),
        (wireless_event(0x8C03, b"abc") + EXPIRED, True, False),
        (wireless_event(0x8C03, bytes(4) + EXPIRED), False, False),
    ], ids=["expired", "registered", "second", "first", "before-a-short-one", "after-a-short-one",
            "five-bytes", "length-0", "past-the-end", "three-bytes-behind", "cut-behind", "three-bytes", "empty",
            "swapped", "endless", "behind-an-odd-length", "within-another"])
    def test_expiry_counts_wherever_it_can_be_reached(self, node: Node, records: bytes, flushes: bool,
                                                      short: bool) -> None:
        set_up(node, {"wlan0.1": PATH})
        begin = notify(node, "wlan0.1", records)
        assert scene.requests(node, begin) == FLUSHED * flushes
        assert scene.lines(node, begin) == [SHORT_RECORD] * short

    @pytest.mark.parametrize("contents, flushes", [
        ([EXPIRED, REGISTERED], False), ([REGISTERED, EXPIRED], True), ([EXPIRED, b""], False),
        ([EXPIRED, SHORT], False), ([SHORT, EXPIRED], True),
    ], ids=["registered-last", "expired-last", "empty-last", "short-last", "short-first"])
    def test_last_wireless_attribute_counts(self, node: Node, contents: list[bytes], flushes: bool) -> None:
        set_up(node, {"wlan0.1": PATH})
        assert scene.requests(node, notify(node, "wlan0.1", contents)) == FLUSHED * flushes


class TestAttributes:
    GOOD = attribute(11, EXPIRED)

    @pytest.mark.parametrize("attributes, flushes", [
        (GOOD, True), (b"", False), (attribute(3, b"wlan0\0") + GOOD, True), (GOOD + attribute(3, b"wlan0\0"), True),
        (attribute(10, EXPIRED), False), (attribute(12, EXPIRED), False), (attribute(11 | 0x8000, EXPIRED), False),
        (attribute(39, b"x") + GOOD, True), (attribute(40, b"x") + GOOD, True), (attribute(1, b"abc") + GOOD, True),
        (attribute(1, b"", length=3) + GOOD, False), (attribute(1, b"", length=0) + GOOD, False),
        (attribute(1, b"", length=500) + GOOD, False), (GOOD + attribute(1, b"", length=0), True),
        (GOOD + b"\xff" * 3, True), (GOOD + b"\xff" * 4, True), (attribute(11, EXPIRED, length=29), False),
        (attribute(11, EXPIRED + b"abc"), True), (attribute(11, EXPIRED + b"abc")[:-1], True), (GOOD[:-1], False),
        (b"\x04\x00", False),
    ], ids=["alone", "none", "behind-a-name", "before-a-name", "master", "protinfo", "nested-flag",
            "behind-39", "behind-40", "behind-padding", "behind-length-3", "behind-length-0", "behind-an-endless-one",
            "before-length-0", "before-3-bytes", "before-rubbish", "past-the-end", "odd-length",
            "odd-length-without-padding", "cut", "half-a-head"])
    def test_attributes_are_walked_to_the_first_malformed_one(self, node: Node, attributes: bytes,
                                                              flushes: bool) -> None:
        set_up(node, {"wlan0.1": PATH})
        raw = link_message(node.ifindex("wlan0.1"), attributes=attributes)
        begin = notify(node, "wlan0.1", raw=raw)
        assert scene.requests(node, begin) == FLUSHED * flushes
        assert scene.lines(node, begin) == []


class TestMessages:
    @pytest.mark.parametrize("type", [0, 1, 2, 3, 5, 6, 7, 15, 17, 18, 19, 20, 16 + 256, 0xFFFF])
    def test_other_message_types_are_dropped(self, node: Node, type: int) -> None:
        set_up(node, {"wlan0.1": PATH})
        begin = notify(node, "wlan0.1", raw=link_message(node.ifindex("wlan0.1"), EXPIRED, type=type))
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])

    def test_only_whole_messages_are_taken_and_the_first_of_each_datagram(self, node: Node) -> None:
        set_up(node, {"wlan0.1": PATH})
        good = link_message(node.ifindex("wlan0.1"), EXPIRED)
        for raw in (good[:15], struct.pack("=I", 8) + good[4:], struct.pack("=I", len(good) + 1) + good[4:],
                    link_message(node.ifindex("wlan0.1"), EXPIRED, type=17) + good):
            begin = notify(node, "wlan0.1", raw=raw)
            assert (scene.lines(node, begin), node.journal(begin)) == ([], [])
        assert scene.requests(node, notify(node, "wlan0.1", raw=good + b"behind")) == FLUSHED
        assert scene.requests(node, notify(node, "wlan0.1", raw=good + good)) == FLUSHED

    def test_length_of_the_header_bounds_the_attributes(self, node: Node) -> None:
        set_up(node, {"wlan0.1": PATH})
        good = link_message(node.ifindex("wlan0.1"), EXPIRED)
        begin = notify(node, "wlan0.1", raw=struct.pack("=I", 32) + good[4:])
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])

    @pytest.mark.parametrize("length", range(16, 32, 3))
    def test_message_shorter_than_its_fixed_head_does_nothing_to_a_bridge(self, node: Node, length: int) -> None:
        set_up(node, {"wlan0.1": PATH})
        whole = link_message(node.ifindex("wlan0.1"), EXPIRED)
        for raw in (nlmsghdr(16, whole[16:length]), struct.pack("=I", length) + whole[4:]):
            assert scene.requests(node, notify(node, "wlan0.1", raw=raw)) == []

    def test_socket_that_was_overrun_is_watched_on(self, node: Node) -> None:
        """The kernel has more link changes to tell during a pause than the socket can hold."""
        set_up(node, {"wlan0.1": PATH})
        changes = ["link set dev wlan0.1 down", "link set dev wlan0.1 up"] * 400
        node.write_file("/tmp/changes", "\n".join(changes) + "\n")
        begin = scene.mark(node)
        node.event("kolt.link_state", {"LINK_WIFI_2G": 1}, settle=False)
        node.wait_calls("bridgeSetIFBroadcast", since=begin)
        assert node.run(["/sbin/ip", "-batch", "/tmp/changes"]).status == 0
        drops = [line.split()[8] for line in Path(f"/proc/{node.daemon.pid}/net/netlink").read_text()
                 .splitlines()[1:] if line.split()[1:3] == ["0", str(node.daemon.pid)]]
        assert any(int(count) > 0 for count in drops), "the socket was not overrun"
        node.wait_calls("bridgeFlushHATable", since=begin)
        node.wait_idle()
        assert scene.requests(node, notify(node, "wlan0.1")) == FLUSHED
