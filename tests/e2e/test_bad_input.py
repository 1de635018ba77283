"""Hostile input from the node's files, its kernel and its bridge: the daemon carries on as if it had not come."""
import random
import struct

import pytest

from kolt_node import IWEVEXPIRED, Node, link_message, nlmsghdr, wireless_event
import scene

DEEP = "[" * 5000
BROKEN = ["", "{", "{}", "[]", "null", "5 ", '"text"', "\0\0", "\x80\xff\xfe", DEEP, '{"work_mode":' * 40,
          "x" * 1_000_000]
PARSED = {"{}", "[]", "5 ", '"text"'}  # the rest is reported as what cannot be parsed


def configure(node: Node, attributes: dict) -> list[str]:
    """The errors that one configuration draws."""
    begin = scene.mark(node)
    node.event("kolt.configure", attributes)
    return [line for line in scene.lines(node, begin) if "Error: " in line]


def still_works(node: Node) -> bool:
    """Whether, with all that was sent behind it, a configuration gives just what it should."""
    node.wait_idle(20)
    begin = scene.mark(node)
    node.event("kolt.configure", {"mode": "AP"})
    told = scene.requests(node, begin)
    return told[:3] == [*scene.event_info(node, "br-lan"), "SetTcpSP br-lan 0", "SetBridgeMode br-lan 1"]


class TestRuntimeFiles:
    def test_work_mode_file(self, node: Node) -> None:
        scene.set_up(node, [])
        scene.start(node)
        for text in BROKEN:
            node.write_file("/tmp/work_mode", text)
            expected = [] if text in PARSED else ["kolt_get_work_mode: Error: parse work_mode"]
            assert configure(node, {"keep": 1}) == expected, text[:40]
        node.remove_file("/tmp/work_mode")
        node.write_file("/tmp/work_mode/file", "")
        assert configure(node, {"keep": 1}) == ["kolt_get_work_mode: Error: parse work_mode"]

    def test_work_mode_of_another_type_is_unknown(self, node: Node) -> None:
        scene.set_up(node, [])
        scene.start(node)
        for value in (0, 1, None, True, ["RE"], {"RE": "RE"}, "", "RE\n", "R\0E", "x" * 100000):
            node.write_json("/tmp/work_mode", {"work_mode": value})
            begin = scene.mark(node)
            node.event("kolt.configure", {"keep": 1})
            assert scene.values(scene.requests(node, begin), "SetBridgeMode") == ["br-lan 1"], value
            assert scene.lines(node, begin) == []

    def test_link_files_are_down_and_named_at_the_debug_level(self, node: Node) -> None:
        scene.set_up(node, ["wlan1.1"])
        scene.start(node, level=2)
        paths = ["/tmp/eth_runtime_info", "/tmp/plc_runtime_info", "/tmp/wifi_runtime_info.2g",
                 "/tmp/wifi_runtime_info.5g", "/tmp/wifi_runtime_info.5g2"]
        for text in BROKEN:
            for path in paths:
                node.write_file(path, text)
            begin = scene.mark(node)
            node.event("kolt.configure", {"mode": "RE"})
            said = [line for line in scene.lines(node, begin) if line.startswith("kolt_check_link_state")]
            once = [f"kolt_check_link_state: Debug: parse link state {path}" for path in paths]
            assert said == ([] if text in PARSED else once * 2), text[:40]
            assert scene.values(scene.requests(node, begin), "SetIFBroadcast") == ["br-lan wlan1.1 1"]


class TestOptions:
    TUPLE = "tolmux.tolmux.TrafficEthActive"

    @pytest.mark.parametrize("text, line", [
        (None, f"Error: fail to get ptr {TUPLE} "), ("config", f"Error: fail to get ptr {TUPLE} "),
        ("option TrafficEthActive 1\n", f"Error: fail to get ptr {TUPLE} "),
        ("config tolmux 'tolmux\n", f"Error: fail to get ptr {TUPLE} "),
        ("\0\xff\x80\n", f"Error: fail to get ptr {TUPLE} "),
        ("", "Error: element type is not option:2"), ("config tolmux\n", "Error: element type is not option:2"),
        ("config tolmux 'tolmux'\n", "Error: element type is not option:3"),
        ("config tolmux 'tolmux'\n\tlist TrafficEthActive '1'\n", "Error: option type is not string:1"),
        ("config tolmux 'tolmux'\n\toption TrafficEthActive '1'\n", f"Dump: Success to get  option value {TUPLE} = 1 "),
        ("config tolmux 'tolmux'\n\toption TrafficEthActive ' '\n", f"Dump: Success to get  option value {TUPLE} =   "),
        ("config x 'tolmux'\n option TrafficEthActive \"a b\"\n", f"Dump: Success to get  option value {TUPLE} = a b "),
    ], ids=scene.short)
    def test_each_way_of_reading_an_option_has_its_line(self, node: Node, text: str | None, line: str) -> None:
        scene.set_up(node, [])
        scene.start(node, level=3)
        if text is None:
            node.remove_file("/etc/config/tolmux")
        else:
            node.set_uci(text)
        begin = scene.mark(node)
        node.event("kolt.configure", {"mode": "RE"})
        said = [line for line in scene.lines(node, begin) if line.startswith("uci")]
        assert said[0] == f"uci_get_value: {line}"

    def test_pending_change_counts(self, node: Node) -> None:
        scene.set_up(node, ["eth0"])
        node.set_uci(scene.UCI, pending="tolmux.tolmux.TrafficEthActive='1'\n")
        scene.start(node)
        assert "SetIFGroup br-lan eth0 0 0" in scene.requests(node)

    @pytest.mark.parametrize("length", [23, 24, 25, 63, 64, 1000, 200000])
    def test_long_values_are_cut(self, node: Node, length: int) -> None:
        scene.set_up(node, [])
        node.set_uci(dict.fromkeys(scene.UCI, "1" * length))
        scene.start(node, scene.config(backhual={"eth0": {"couple": "g"}}), level=3)
        begin = scene.mark(node)
        node.event("kolt.configure", {"mode": "RE"})
        said = [line for line in scene.lines(node, begin) if "TrafficEthActive" in line]
        assert said == [f"uci_get_value: Dump: Success to get  option value {self.TUPLE} = {'1' * min(length, 23)} "]
        assert "SetBridgeMode br-lan 0" in scene.requests(node, begin)

    def test_many_packages_and_sections_do_no_harm(self, node: Node) -> None:
        scene.set_up(node, ["eth0"])
        sections = "".join(f"config s 's{number}'\n\toption o '{number}'\n" for number in range(2000))
        node.set_uci(sections + "config tolmux 'tolmux'\n\toption TrafficEthActive '1'\n\toption "
                                "TrafficEthInterface 'eth0'\n")
        scene.start(node)
        assert "SetIFGroup br-lan eth0 0 0" in scene.requests(node)


class TestPortReplies:
    @pytest.fixture
    def ready(self, node: Node) -> Node:
        scene.set_up(node, ["eth0", "wlan1.1"])
        scene.start(node)
        return node

    def programmed(self, node: Node) -> list[str]:
        begin = scene.mark(node)
        node.event("kolt.configure", {"mode": "RE"})
        return [line.split()[1] for line in scene.values(scene.requests(node, begin), "SetIFType")]

    def record(self, index: int, filler: bytes = b"\xff") -> bytes:
        return struct.pack("=I", index & 0xFFFFFFFF) + filler * 32

    def test_same_port_twice_is_programmed_twice(self, ready: Node) -> None:
        ready.set_port_reply("br-lan", self.record(ready.ifindex("eth0")) * 3)
        assert self.programmed(ready) == ["eth0"] * 3

    @pytest.mark.parametrize("records, length, count", [
        (128, None, 128), (129, None, 128), (300, None, 128), (128, 36 * 128 - 1, 127), (128, 36 * 129, 128),
        (128, 0xFFFFFFFF, 128), (128, 0x80000000, 128), (2, 71, 1), (2, 36, 1), (2, 35, 0), (2, 0, 0),
    ])
    def test_no_more_than_the_buffer_holds_is_read(self, ready: Node, records: int, length: int | None,
                                                   count: int) -> None:
        ready.set_port_reply("br-lan", self.record(ready.ifindex("eth0")) * records, length=length)
        assert self.programmed(ready) == ["eth0"] * count
        ready.set_port_reply("br-lan")
        assert self.programmed(ready) == ["eth0", "wlan1.1"]

    @pytest.mark.parametrize("length", [36 * 129, 0x7FFFFFFF, 0xFFFFFFFF])
    def test_unknown_ports_are_counted_to_the_end_of_the_buffer_only(self, ready: Node, length: int) -> None:
        ready.set_port_reply("br-lan", self.record(77777) * 128, length=length)
        begin = scene.mark(ready)
        assert self.programmed(ready) == []
        assert scene.lines(ready, begin).count("kolt_get_active_ports: Error: No such interface 77777") == 128

    @pytest.mark.parametrize("index", [0, 0xFFFFFFFF, 0x80000000, 77777])
    def test_unknown_index_is_passed_over(self, ready: Node, index: int) -> None:
        ready.set_port_reply("br-lan", self.record(index) + self.record(ready.ifindex("wlan1.1")))
        begin = scene.mark(ready)
        assert self.programmed(ready) == ["wlan1.1"]
        assert scene.lines(ready, begin) == ["config_find_interface_by_index: Error: if_indextoname",
                                             f"kolt_get_active_ports: Error: No such interface {index}"]

    def test_128_unknown_ports_and_rubbish_are_survived(self, ready: Node) -> None:
        rubbish = random.Random(1).randbytes(4608)
        ready.set_port_reply("br-lan", rubbish)
        assert self.programmed(ready) == []
        ready.set_port_reply("br-lan", b"", length=4608)  # nothing behind the length but what was there before
        ready.event("kolt.configure", {"mode": "RE"})
        assert still_works(ready)

    @pytest.mark.parametrize("result", [-1, 1, -2147483648])
    def test_any_other_result_than_0_is_a_failure(self, ready: Node, result: int) -> None:
        ready.fail("netlink_msg:256", result)
        assert self.programmed(ready) == []


class TestDatagrams:
    LENGTHS = [*range(1, 102, 2), 255, 4095, 16383, 16385, 20001, 65001]

    def flood(self, node: Node, send: object, type: int, body: bytes) -> None:
        """Every odd length as rubbish, as a true message and as one whose header says too much."""
        for length in self.LENGTHS:
            payload = (body * (length // max(len(body), 1) + 1))[:max(length - 16, 0)]
            for raw in (b"\xff" * length, nlmsghdr(type, payload)[:length], nlmsghdr(type, payload, length=70000)):
                send(raw)

    def test_every_odd_length_on_the_bridge_socket(self, node: Node) -> None:
        scene.set_up(node, ["wlan1.1"])
        scene.start(node, level=3)
        for type in (5, 6):
            self.flood(node, lambda raw: node.send_bridge_event(0, raw=raw), type, bytes(range(1, 200)))
        assert still_works(node)

    def test_every_odd_length_on_the_neighbour_socket(self, node: Node) -> None:
        scene.set_up(node, ["wlan1.1"])
        scene.start(node, level=3)
        begin = scene.mark(node)
        for type in (4, 5):
            self.flood(node, lambda raw: node.send_neighbour(0, raw=raw), type, bytes(range(1, 200)))
        node.wait_idle()
        assert scene.requests(node, begin) == []
        assert still_works(node)

    def test_every_odd_length_on_the_route_socket(self, node: Node) -> None:
        scene.set_up(node, ["wlan0-b.1"])
        scene.start(node, level=3)
        body = link_message(node.ifindex("wlan0-b.1"), [wireless_event(IWEVEXPIRED)] * 30)[16:]
        self.flood(node, lambda raw: node.send_link_notification(0, raw=raw), 16, body)
        assert still_works(node)

    def test_thousand_rubbish_datagrams_at_once_on_each_socket(self, node: Node) -> None:
        scene.set_up(node, ["wlan0-b.1"])
        scene.start(node)
        begin = scene.mark(node)
        node.send_bridge_event(0, raw=b"\xff" * 15, count=1000)
        node.send_neighbour(0, raw=b"\xff" * 33, count=1000)
        node.send_link_notification(0, raw=b"\xff" * 17, count=1000)
        node.send_bridge_event(9, count=1000)
        node.wait_idle()
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])
        assert still_works(node)

    def test_thousand_random_link_messages(self, node: Node) -> None:
        """Their head names a path port, what follows is anything."""
        scene.set_up(node, ["wlan0-b.1"])
        scene.start(node)
        begin = scene.mark(node)
        chance = random.Random(2)
        head = link_message(node.ifindex("wlan0-b.1"))[16:]
        for _ in range(1000):
            length = chance.randrange(200)
            wireless = struct.pack("=HH", chance.choice([length + 4, chance.randrange(65536)]), 11)
            node.send_link_notification(0, raw=nlmsghdr(16, head + wireless + chance.randbytes(length)))
        node.wait_idle()
        assert set(scene.requests(node, begin)) <= {"FlushHATable br-lan"}
        assert still_works(node)

    def test_thousand_random_bridge_events(self, node: Node) -> None:
        scene.set_up(node, ["wlan0-b.1"])
        scene.start(node)
        chance = random.Random(3)
        for _ in range(1000):
            payload = chance.randbytes(chance.randrange(40))
            node.send_bridge_event(chance.choice([5, 5, 5, 6, chance.randrange(65536)]), payload)
        assert still_works(node)


class TestVanishingThings:
    def test_interfaces_and_bridges_may_go_and_come_back(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node)
        node.remove_interface("wlan1.1")
        node.deactivate_bridge("br-lan")
        node.event("kolt.configure", {"mode": "RE"})
        node.send_bridge_event(6)
        node.wait_idle()
        scene.add_ports(node, "br-lan", ["wlan1.1"])
        begin = scene.mark(node)
        assert still_works(node)
        assert scene.values(scene.requests(node, begin), "SetIFType") == ["br-lan wlan1.1 3"]

    def test_all_files_may_be_missing(self, node: Node) -> None:
        node.add_interface("wlan1.1")
        node.set_bridge("br-lan", ["wlan1.1"])
        scene.start(node)
        assert scene.lines(node) == ["main: Info: Loop avoidance initialized",
                                     "kolt_get_work_mode: Error: parse work_mode"]
        assert still_works(node)
