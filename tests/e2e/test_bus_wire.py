"""The daemon's end of the bus, byte by byte, against a broker that says what it likes."""
import random
import struct
from collections.abc import Iterator
from contextlib import suppress

import pytest

import bus
from bus import Bus
from kolt_node import Node
import scene

PARSE = "event_ubus_receive_link_state: Debug: link_state parse"
WRONG_TYPE = "event_ubus_receive_cb: Error: wrong type"


@pytest.fixture
def wire(node: Node) -> Iterator[Bus]:
    """A bus at which nobody has called yet."""
    broker = Bus(node)
    yield broker
    if node.daemon is not None:
        node.stop_daemon()
    broker.close()


@pytest.fixture
def ready(node: Node, wire: Bus) -> Bus:
    """A bus with a daemon that is up and says everything."""
    scene.set_up(node, [])
    wire.start_daemon(level=3)
    return wire


def works(broker: Bus) -> bool:
    """Whether the daemon still does what a good event asks for."""
    begin = scene.mark(broker.node)
    broker.deliver("kolt.configure", bus.text("mode", "AP"), seq=777)
    return scene.values(scene.requests(broker.node, begin), "SetBridgeMode") == ["br-lan 1"]


def written_levels(node: Node, broker: Bus) -> set[str]:
    """The kinds of lines that the daemon writes at its present level."""
    begin = scene.mark(node)
    broker.deliver("kolt.configure", bus.text("mode", "RE"))
    broker.deliver("kolt.unknown", b"")
    scene.drain(node)
    return {record.level for record in node.log(begin)}


def ends_well_or_works(broker: Bus, data: bytes) -> None:
    """After these bytes the daemon either goes on, or takes its bus for lost; and it ends in order."""
    node = broker.node
    with suppress(BrokenPipeError, ConnectionResetError):
        broker.send(data)
    node.wait_idle()
    assert node.stop_daemon() == 0
    broker.drop()
    assert [line for line in scene.lines(node) if "Fatal" in line] == []


class TestDialogue:
    def test_registration_is_made_of_the_recorded_bytes(self, node: Node, wire: Bus) -> None:
        node.start_daemon(scene.config(), ready=False)
        wire.accept()
        assert wire.add_object().hex() == "000600010000000000000004"
        assert wire.register().hex() == (
            "00050002000000010000004c03000008000000010400000d726567697374657200000000070000308500001400066f626a656374"
            "00000000bbbf01e08300001700077061747465726e0000006b6f6c742e2a0000")
        node.wait_idle()

    def test_event_is_answered_with_success_and_the_object(self, ready: Bus) -> None:
        answer = ready.deliver("kolt.configure", bus.text("mode", "RE"), seq=1)
        assert answer.hex() == "000100010000000000000014010000080000000003000008bbbf01e0"

    def test_event_that_wants_no_answer_gets_none(self, node: Node, ready: Bus) -> None:
        begin = scene.mark(node)
        ready.send(bus.event("kolt.configure", bus.text("mode", "RE"), seq=5, silent=True))
        answer = ready.deliver("kolt.configure", bus.text("mode", "HAP"), seq=6)
        assert struct.unpack_from(">H", answer, 2) == (6,)
        assert scene.values(scene.requests(node, begin), "SetBridgeMode") == ["br-lan 0", "br-lan 1"]

    def test_events_that_arrive_during_the_registration_are_handled_once_the_daemon_runs(self, node: Node,
                                                                                       wire: Bus) -> None:
        scene.set_up(node, [])
        node.start_daemon(scene.config(), ready=False)
        wire.accept()
        wire.add_object()
        for mode in ("AP", "RE", "HAP"):
            wire.send(bus.event("kolt.configure", bus.text("mode", mode)))
        wire.register()
        node.wait_calls("bridgeSetBridgeMode", count=4)
        assert scene.values(scene.requests(node), "SetBridgeMode") == [f"br-lan {mode}" for mode in (0, 1, 0, 1)]

    def test_message_may_come_in_pieces(self, node: Node, ready: Bus) -> None:
        begin = scene.mark(node)
        for byte in bus.event("kolt.configure", bus.text("mode", "AP")):
            ready.send(bytes([byte]))
            node.wait_idle()
        assert ready.receive()[1] == bus.STATUS
        assert scene.values(scene.requests(node, begin), "SetBridgeMode") == ["br-lan 1"]

    def test_messages_may_come_together(self, node: Node, ready: Bus) -> None:
        begin = scene.mark(node)
        ready.send(b"".join(bus.event("kolt.configure", bus.text("mode", "AP"), seq=seq) for seq in range(40)))
        assert [struct.unpack_from(">H", ready.receive(), 2)[0] for _ in range(40)] == list(range(40))
        assert len(scene.values(scene.requests(node, begin), "SetBridgeMode")) == 40

    def test_registration_survives_other_messages_before_its_answers(self, node: Node, wire: Bus) -> None:
        scene.set_up(node, [])
        node.start_daemon(scene.config(), ready=False)
        wire.accept()
        wire.send(bus.status(99, 13) + bus.message(bus.DATA, 98, 0) + bus.message(bus.HELLO, 0, 5))
        wire.add_object()
        wire.send(bus.status(1, 13))
        wire.register()
        node.wait_idle()
        assert works(wire)


class TestEventNames:
    @pytest.mark.parametrize("name", ["", "kolt", "kol.debug", "koltx.debug", "Kolt.debug", " kolt.debug", "debug"])
    def test_type_outside_the_prefix_is_wrong(self, node: Node, ready: Bus, name: str) -> None:
        begin = scene.mark(node)
        ready.deliver(name, bus.number("dbg_level", 0))
        assert (scene.lines(node, begin), node.journal(begin)) == ([WRONG_TYPE], [])
        assert works(ready)

    def test_wrong_type_is_an_error_at_every_level(self, node: Node, wire: Bus) -> None:
        scene.set_up(node, [])
        wire.start_daemon(level=0)
        begin = scene.mark(node)
        wire.deliver("other", b"")
        wire.deliver("kolt.other", b"")
        assert scene.lines(node, begin) == [WRONG_TYPE]


class TestAttributes:
    @pytest.mark.parametrize("level, members", [
        (2, bus.number("dbg_level", 2)), (2, bus.number("dbg_level", 2) + bus.number("dbg_level", 3)),
        (1, bus.member(bus.INT64, "dbg_level", bytes(7) + b"\2")), (1, bus.member(bus.INT16, "dbg_level", b"\0\2")),
        (1, bus.member(bus.INT8, "dbg_level", b"\2")), (1, bus.member(bus.DOUBLE, "dbg_level", struct.pack(">d", 2))),
        (1, bus.member(bus.TABLE, "dbg_level", bus.number("dbg_level", 2))), (1, bus.member(0, "dbg_level", b"")),
        (1, bus.member(bus.ARRAY, "dbg_level", bus.number("", 2))), (1, bus.number("dbg_leve", 2)),
        (1, bus.number("dbg_level2", 2)), (1, bus.text("dbg_level", "2")), (1, bus.number("", 2)),
    ], ids=["plain", "twice", "int64", "int16", "int8", "double", "table", "unspecified", "array", "shorter-name",
            "longer-name", "string", "no-name"])
    def test_only_a_32_bit_level_counts_and_the_first_of_two(self, node: Node, ready: Bus, level: int,
                                                             members: bytes) -> None:
        ready.deliver("kolt.debug", members)
        assert written_levels(node, ready) == set(["Info", "Debug", "Dump"][:level])

    @pytest.mark.parametrize("end", [
        b"\x80", b"\x85\0\0", bus.member(bus.INT32, "dbg_level", b"\0\0\0\3", length=200),
        bus.member(bus.INT32, "dbg_level", b"\0\0\0\3", length=3),
        bus.member(bus.INT32, "dbg_level", b"\0\0\0\3", length=0),
        bus.member(bus.INT32, "dbg_level", b"\0\0\0\3", length=0xFFFFFF),
    ], ids=["one-byte", "three-bytes", "past-the-end", "length-3", "length-0", "endless"])
    def test_ragged_end_leaves_the_attributes_in_front_of_it(self, node: Node, ready: Bus, end: bytes) -> None:
        ready.deliver("kolt.debug", bus.number("dbg_level", 2) + end)
        assert written_levels(node, ready) == {"Info", "Debug"}
        ready.deliver("kolt.debug", end)
        assert written_levels(node, ready) == {"Info"}

    @pytest.mark.parametrize("members", [
        b"", bus.attribute(bus.INT32, b"\xff\xff" + b"LINK_ETH", extended=True),
        bus.attribute(bus.INT32, b"", extended=True), bus.attribute(9, b"\0\1x\0", extended=True),
        bus.number("LINK_ETH", 1) + bus.attribute(bus.INT32, b"\0\x09x\0", extended=True),
        bus.member(bus.INT32, "LINK_ETH", b"\0\1"), bus.member(bus.INT32, "LINK_ETH", b""),
        bus.member(bus.STRING, "LINK_ETH", b"no end"),
    ], ids=["none", "endless-name", "no-head", "unknown-type", "unwanted-second", "half-a-number", "no-number",
            "no-terminator"])
    def test_malformed_attributes_change_no_state_and_reach_no_bridge(self, node: Node, ready: Bus,
                                                                      members: bytes) -> None:
        begin = scene.mark(node)
        ready.deliver("kolt.link_state", members)
        assert scene.lines(node, begin) == [f"{PARSE} ", f"{PARSE} failed"]
        begin = scene.mark(node)
        ready.deliver("kolt.configure", members)
        ready.deliver("kolt.debug", members)
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])
        assert works(ready)

    def test_attribute_that_is_not_extended_is_passed_over(self, node: Node, ready: Bus) -> None:
        begin = scene.mark(node)
        ready.deliver("kolt.configure", bus.attribute(3, b"\0\4mode\0\0RE\0") + bus.text("mode", "HAP"))
        assert scene.values(scene.requests(node, begin), "SetBridgeMode") == ["br-lan 1"]

    def test_mode_without_a_terminator_is_no_mode(self, node: Node, ready: Bus) -> None:
        begin = scene.mark(node)
        ready.deliver("kolt.configure", bus.member(bus.STRING, "mode", b"HAP"))
        assert [line for line in scene.lines(node, begin) if "HAP" in line] == []
        assert works(ready)

    def test_long_and_large_members_do_no_harm(self, node: Node, ready: Bus) -> None:
        begin = scene.mark(node)
        ready.deliver("kolt.configure", bus.text("mode", "x" * 900_000))
        ready.deliver("kolt.configure", bus.text("x" * 65535, "") + bus.text("mode", "AP"))
        many = b"".join(bus.number(f"n{at}", at) for at in range(20000))
        ready.deliver("kolt.configure", many + bus.text("mode", "AP"))
        assert scene.values(scene.requests(node, begin), "SetBridgeMode") == ["br-lan 0", "br-lan 1", "br-lan 1"]


class TestRubbish:
    def test_messages_that_are_no_events_are_ignored(self, node: Node, ready: Bus) -> None:
        begin = scene.mark(node)
        for type in (*range(12), 77, 255):
            ready.send(bus.message(type, 9, 9))
            ready.send(bus.message(type, 9, 9, bus.attribute(3, b"\0") + bus.attribute(7, b"\xff" * 9)))
        for object in (0, 1, bus.OBJECT ^ 1, 0xFFFFFFFF):
            ready.send(bus.event("kolt.debug", bus.number("dbg_level", 0), object=object, silent=True))
        ready.send(bus.message(bus.INVOKE, 1, 0, bus.attribute(3, struct.pack(">I", bus.OBJECT)) +
                               bus.attribute(10, b"\1")))
        node.wait_idle()
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])
        ready.send(bus.event("kolt.configure", bus.text("mode", "AP"), silent=True))
        node.wait_idle()
        assert scene.values(scene.requests(node, begin), "SetBridgeMode") == ["br-lan 1"]

    def test_thousand_random_events_are_survived(self, node: Node, wire: Bus) -> None:
        scene.set_up(node, [])
        wire.start_daemon()
        chance = random.Random(4)
        good = [bus.text("mode", "RE"), bus.number("dbg_level", 1), bus.number("LINK_X", 1)]
        for at in range(1000):
            members = bytearray(chance.choice(good) + chance.choice(good))
            for _ in range(chance.randrange(1, 4)):
                members[chance.randrange(len(members))] = chance.randrange(256)
            name = chance.choice(["kolt.configure", "kolt.debug", "kolt.x"])
            wire.deliver(name, bytes(members), seq=at)
        assert works(wire)

    @pytest.mark.parametrize("data", [
        bus.message(bus.INVOKE, 1, 0, version=1), b"\0\5\0\1\0\0\0\0\0\0\0\0", b"\0\5\0\1\0\0\0\0\0\0\0\3",
        b"\0\5\0\1\0\0\0\0\0\xff\xff\xff", b"\0\5\0\1\0\0\0\0\x80\0\0\4", b"\0\5\0\1\0\0\0\0\7\0\0\4", b"\xff" * 1000,
        b"\0" * 1000, b"\0\5\0\1", bus.event("kolt.configure", bus.text("mode", "AP"))[:-9],
        bus.event("kolt.configure", bus.text("mode", "x" * (1 << 20))), random.Random(5).randbytes(5000),
    ], ids=["version", "length-0", "length-3", "endless", "extended", "wrong-id", "ones", "zeros", "half-a-head",
            "half-an-event", "over-a-mebibyte", "random"])
    def test_broken_stream_never_ends_in_a_failure(self, ready: Bus, data: bytes) -> None:
        ends_well_or_works(ready, data)
