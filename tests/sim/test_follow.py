"""What the model takes over of the daemon: its calls, its messages to the parent, and the quotas in its log."""
import struct
from copy import deepcopy

import pytest

from homes import home, path, stream
from kolt_node.control import LogRecord, Mark, parse_log
from kolt_sim.loop.follow import Follower, Reaction
from kolt_sim.loop.tables import FAR_PORT, FIRST_PORT, Tables, client_mac
from kolt_sim.model.bridge import NOWHERE, Port
from kolt_sim.model.world import World
from kolt_sim.record import Move, Placement

INDEXES = {"br-lan": 3, "eth0": 4, "wlan0.1": 5, "wlan1.1": 300, "wlan2.1": 12, "wlan1-a": 7}
CLIENTS = {"phone": "wlan1-a", "gateway": "uplink", "store": "uplink"}
PHONE, GATEWAY, STORE = range(3)
SLOW, FAST, FASTEST = range(3)  # the links
BRIDGE_MAC = "02:40:00:00:00:01"
SECOND = bytes.fromhex("024000000001")


class FakeNode:
    """Hands out what a daemon would have done."""

    def __init__(self) -> None:
        self.calls: list[dict] = []
        self.records: list[LogRecord] = []
        self.coming: list[LogRecord] = []  # on its way until somebody waits for it

    def journal(self, since: Mark) -> list[dict]:
        return self.calls[since.journal:]

    def log(self, since: Mark) -> list[LogRecord]:
        return self.records[since.log:]

    def drain(self) -> None:
        self.records += self.coming
        self.coming = []


class Scene:
    """A home with three links whose first stream is s0, between the phone and the gateway; all streams are placed."""

    def __init__(self) -> None:
        streams = [stream(f"s{number}", "phone", ("gateway", "store")[number % 2]) for number in range(4)]
        self.world = World(home([path("2.4g", 144), path("5g", 800), path("5g_2", 1000)], CLIENTS, streams))
        self.bridge = self.world.bridge
        self.node = FakeNode()
        tables = Tables(self.world, INDEXES, BRIDGE_MAC, 5.0)
        self.follower = Follower(self.node, self.world, tables)
        self.world.begin(0.0)
        self.world.flow(1.0)
        tables.take_streams()

    def follow(self, *calls: dict, time: float = 1.0) -> Reaction:
        self.node.calls += calls
        return self.follower.follow(time)

    def state(self) -> tuple:
        """All that the daemon can program."""
        made = self.bridge
        return deepcopy((made.ports, made.follows, made.hd.tolist(), made.hd_second, made.out.tolist(),
                         made.back.tolist(), made.pinned.tolist()))


@pytest.fixture
def scene() -> Scene:
    return Scene()


def call(name: str, *, result: int | None = 0, bridge: str = "br-lan", **given: object) -> dict:
    return {"time": 1, "pid": 2, "call": name, "args": {"bridge": bridge} | given, "result": result}


def pin_client(client: int, ifname: str, *, mac: str = "", **how: object) -> dict:
    return call("bridgeAddHDTableEntries", client_mac=mac or client_mac(client), second_mac=BRIDGE_MAC, ifname=ifname,
                ifname_again=ifname, zero=0, **how)


def pin_stream(number: int, ifname: str, *, far_port: int = FAR_PORT, **how: object) -> dict:
    plain = {"hash": number, "src": client_mac(PHONE), "dst": client_mac(GATEWAY + number % 2), "stream_kind": 0}
    return call("bridgeSetHATableEntries", src_port=FIRST_PORT + number, dst_port=far_port, ifname=ifname,
                carried_value=0, **plain | how)


def broadcast(ifname: str, allow: int, **how: object) -> dict:
    return call("bridgeSetIFBroadcast", ifname=ifname, allow=allow, **how)


def flush_clients(**how: object) -> dict:
    return call("bridgeFlushHDTable", **how)


def flush_streams(**how: object) -> dict:
    return call("bridgeFlushHATable", **how)


def notify(number: int, path_code: int, *, kind: int = 14, protocol: object = 52, far_port: int = FAR_PORT,
           result: int = 48) -> dict:
    payload = struct.pack("=6s2x6s6sHHIB3x", bytes.fromhex("021000000010"), bytes(6), bytes(6), FIRST_PORT + number,
                          far_port, 6, path_code)
    return {"time": 1, "pid": 2, "call": "sendto", "result": result,
            "args": {"protocol": protocol, "port": 0, "size": 48, "type": kind, "payload": payload.hex()}}


# The ports

@pytest.mark.parametrize(("made", "expected"), [
    (broadcast("wlan1.1", 0), Port(broadcast=False, programmed=True)),
    (broadcast("wlan1.1", 1), Port(broadcast=True, programmed=True)),
    (call("bridgeSetIFClass", ifname="wlan1.1", bcast_class=1), Port(class_=1, programmed=True)),
    (call("bridgeSetNeedha", ifname="wlan1.1", needha=1), Port(needs_ha=True, programmed=True)),
    (call("bridgeSetNeedha", ifname="wlan1.1", needha=0), Port(needs_ha=False, programmed=True)),
], ids=["no broadcast", "broadcast", "class", "needs entries", "needs no entries"])
def test_a_port_is_what_the_daemon_makes_it(scene, made, expected):
    scene.follow(made)
    assert scene.bridge.ports == {"wlan0.1": Port(), "wlan1.1": expected, "wlan2.1": Port()}


def test_the_last_of_several_calls_counts(scene):
    scene.follow(broadcast("wlan1.1", 0), broadcast("wlan1.1", 1), broadcast("wlan2.1", 1), broadcast("wlan2.1", 0))
    assert (scene.bridge.ports["wlan1.1"].broadcast, scene.bridge.ports["wlan2.1"].broadcast) == (True, False)


@pytest.mark.parametrize(("value", "follows"), [(1, True), (0, False)])
def test_whether_the_parent_follows_is_the_bridge_s(scene, value, follows):
    scene.bridge.follows = not follows
    scene.follow(call("bridgeSetFollowRE", value=value))
    assert scene.bridge.follows is follows


# The tables

def test_a_client_is_pinned_to_a_path_with_its_second_address(scene):
    scene.follow(pin_client(STORE, "wlan2.1"))
    assert (scene.bridge.hd.tolist(), scene.bridge.hd_second) == ([NOWHERE, NOWHERE, FASTEST], {STORE: SECOND})


def test_an_address_may_be_in_capitals(scene):
    scene.follow(pin_client(STORE, "wlan2.1", mac=client_mac(STORE).upper()))
    assert scene.bridge.hd[STORE] == FASTEST


def test_a_stream_is_pinned_to_a_path_and_its_neighbours_stay(scene):
    scene.follow(pin_stream(1, "wlan2.1"))
    assert scene.bridge.out.tolist() == [FAST, FASTEST, FAST, FAST]
    assert scene.bridge.pinned.tolist() == [False, True, False, False]


def test_flushed_clients_are_pinned_no_longer(scene):
    scene.follow(pin_client(STORE, "wlan2.1"))
    scene.follow(flush_clients())
    assert (scene.bridge.hd.tolist(), scene.bridge.hd_second) == ([NOWHERE] * 3, {})


def test_a_flush_of_one_table_leaves_the_other_alone(scene):
    scene.follow(pin_client(STORE, "wlan2.1"), pin_stream(1, "wlan2.1"))
    scene.follow(flush_clients())
    assert scene.bridge.pinned[1]
    scene.follow(pin_client(STORE, "wlan2.1"), flush_streams())
    assert (scene.bridge.hd[STORE], scene.bridge.pinned.any()) == (FASTEST, False)


@pytest.mark.parametrize(("calls", "pinned"), [
    ([flush_streams(), pin_stream(1, "wlan2.1")], [False, True, False, False]),
    ([pin_stream(1, "wlan2.1"), flush_streams()], [False] * 4),
    ([pin_stream(0, "wlan2.1"), flush_streams(), pin_stream(1, "wlan2.1")], [False, True, False, False]),
], ids=["flushed first", "flushed last", "flushed between"])
def test_streams_are_flushed_and_pinned_in_the_daemon_s_order(scene, calls, pinned):
    scene.follow(*calls)
    assert scene.bridge.pinned.tolist() == pinned


@pytest.mark.parametrize(("calls", "path_"), [
    ([flush_clients(), pin_client(STORE, "wlan2.1")], FASTEST),
    ([pin_client(STORE, "wlan2.1"), flush_clients()], NOWHERE),
    ([pin_client(STORE, "wlan2.1"), pin_client(STORE, "wlan1.1")], FAST),
], ids=["flushed first", "flushed last", "pinned twice"])
def test_clients_are_flushed_and_pinned_in_the_daemon_s_order(scene, calls, path_):
    scene.follow(*calls)
    assert scene.bridge.hd[STORE] == path_


def test_a_call_is_applied_once(scene):
    scene.follow(pin_stream(1, "wlan2.1"), pin_client(STORE, "wlan2.1"))
    scene.bridge.flush_streams()
    scene.bridge.flush_clients()
    reaction = scene.follow()
    assert (scene.bridge.pinned.any(), scene.bridge.hd[STORE]) == (False, NOWHERE)
    assert (reaction.moves, reaction.placements) == ([], [])


# What changes nothing

EVERY_CALL = [broadcast("wlan1.1", 0), call("bridgeSetIFClass", ifname="wlan1.1", bcast_class=1),
              call("bridgeSetNeedha", ifname="wlan1.1", needha=1), call("bridgeSetFollowRE", value=1), flush_clients(),
              flush_streams(), pin_client(STORE, "wlan1.1"), pin_stream(2, "wlan1.1")]
NAMES = [one["call"] for one in EVERY_CALL]
PORT_CALLS = [one for one in EVERY_CALL if "ifname" in one["args"] and "client_mac" not in one["args"]]


@pytest.fixture
def pinned(scene) -> Scene:
    """A client and a stream are pinned, so that every call would make a difference."""
    scene.follow(pin_client(STORE, "wlan2.1"), pin_stream(1, "wlan2.1"), pin_stream(2, "wlan2.1"))
    return scene


@pytest.mark.parametrize("made", EVERY_CALL, ids=NAMES)
def test_a_call_that_succeeds_makes_a_difference(pinned, made):
    before = pinned.state()
    pinned.follow(made)
    assert pinned.state() != before


@pytest.mark.parametrize("result", [-1, 1, -22])
@pytest.mark.parametrize("made", EVERY_CALL, ids=NAMES)
def test_a_call_that_fails_changes_nothing(pinned, made, result):
    before = pinned.state()
    reaction = pinned.follow(made | {"result": result})
    assert (pinned.state(), reaction) == (before, Reaction())


@pytest.mark.parametrize("bridge", ["br-guest", "br-wan", "", None])
@pytest.mark.parametrize("made", EVERY_CALL, ids=NAMES)
def test_a_call_about_another_bridge_changes_nothing(pinned, made, bridge):
    before = pinned.state()
    reaction = pinned.follow(made | {"args": made["args"] | {"bridge": bridge}})
    assert (pinned.state(), reaction) == (before, Reaction())


@pytest.mark.parametrize("ifname", ["wlan1-a", "eth1", "eth0", "wlan9.1", ""])
@pytest.mark.parametrize("made", PORT_CALLS, ids=lambda one: one["call"])
def test_a_port_that_is_no_link_of_the_home_changes_nothing(pinned, made, ifname):
    before = pinned.state()
    reaction = pinned.follow(made | {"args": made["args"] | {"ifname": ifname}})
    assert (pinned.state(), reaction) == (before, Reaction())


@pytest.mark.parametrize("ifname", ["wlan1-a", "eth0", ""])
def test_a_client_that_is_pinned_to_no_link_of_the_home_is_pinned_nowhere(pinned, ifname):
    reaction = pinned.follow(pin_client(STORE, ifname))
    assert (pinned.bridge.hd.tolist(), reaction.placements) == ([NOWHERE] * 3, [])


@pytest.mark.parametrize("made", [
    pin_client(0, "wlan1.1", mac="02:99:00:00:00:01"), pin_client(0, "wlan1.1", mac=client_mac(3)),
    pin_stream(-1, "wlan1.1"), pin_stream(4, "wlan1.1"), pin_stream(2, "wlan1.1", far_port=80),
], ids=["stranger", "number too high", "port too low", "port too high", "other service"])
def test_a_client_or_stream_that_is_not_of_the_home_changes_nothing(pinned, made):
    before = pinned.state()
    reaction = pinned.follow(made)
    assert (pinned.state(), reaction) == (before, Reaction())


@pytest.mark.parametrize("given", [
    {"hash": 3}, {"hash": 6}, {"src": client_mac(STORE)}, {"dst": client_mac(STORE)}, {"stream_kind": 1},
    {"src": client_mac(GATEWAY), "dst": client_mac(PHONE)},
], ids=["another stream's hash", "the answer's hash", "another source", "another destination", "another kind",
        "the answer's addresses"])
def test_a_call_that_does_not_name_a_stream_s_entry_in_full_changes_nothing(pinned, given):
    before = pinned.state()
    reaction = pinned.follow(pin_stream(2, "wlan1.1", **given))
    assert (pinned.state(), reaction) == (before, Reaction())


def test_an_entry_s_addresses_may_be_in_capitals(scene):
    given = {"src": client_mac(PHONE).upper(), "dst": client_mac(STORE).upper()}
    assert len(scene.follow(pin_stream(1, "wlan2.1", **given)).moves) == 1


def test_calls_that_mean_nothing_to_the_model_change_nothing(pinned):
    before = pinned.state()
    pinned.follow(call("bridgeSetTcpSP", value=0), call("bridgeSetIFPath", ifname="wlan1.1", path=0),
                  call("bridgeAllocTableBuf", size=500_000, result=500_000),
                  {"time": 1, "pid": 2, "call": "bridgeFreeTableBuf", "args": {"buf": None}, "result": None},
                  {"time": 1, "pid": 2, "call": "bind", "args": {"protocol": 39, "pid": 2, "groups": 0}, "result": 0})
    assert pinned.state() == before


# What is recorded

def test_a_move_tells_when_which_stream_went_from_where_to_where(scene):
    reaction = scene.follow(pin_stream(1, "wlan2.1"), time=25.0)
    assert reaction.moves == [Move(25.0, "s1", "store", "wlan1.1", "wlan2.1")]


def test_a_stream_that_is_pinned_where_it_is_has_not_moved(scene):
    assert scene.follow(pin_stream(1, "wlan1.1")).moves == []
    assert scene.bridge.pinned[1]


def test_a_stream_that_is_pinned_twice_has_moved_once(scene):
    assert len(scene.follow(pin_stream(1, "wlan2.1"), pin_stream(1, "wlan2.1")).moves) == 1
    assert scene.follow(pin_stream(1, "wlan2.1")).moves == []


def test_each_step_of_a_stream_is_a_move(scene):
    moves = scene.follow(pin_stream(1, "wlan2.1"), pin_stream(1, "wlan0.1")).moves
    assert [(move.origin, move.target) for move in moves] == [("wlan1.1", "wlan2.1"), ("wlan2.1", "wlan0.1")]


def test_a_stream_that_was_nowhere_comes_from_nowhere(scene):
    scene.bridge.out[1] = NOWHERE
    assert scene.follow(pin_stream(1, "wlan2.1")).moves[0].origin == ""


def test_a_placement_tells_when_which_client_went_where(scene):
    reaction = scene.follow(pin_client(STORE, "wlan2.1"), time=25.0)
    assert reaction.placements == [Placement(25.0, "store", "wlan2.1")]


def test_a_client_that_is_pinned_where_it_is_was_not_placed_again(scene):
    assert len(scene.follow(pin_client(STORE, "wlan2.1"), pin_client(STORE, "wlan2.1")).placements) == 1
    assert scene.follow(pin_client(STORE, "wlan2.1")).placements == []


def test_a_flush_is_neither_a_move_nor_a_placement(pinned):
    reaction = pinned.follow(flush_clients(), flush_streams())
    assert (reaction.moves, reaction.placements) == ([], [])


# The parent

@pytest.mark.parametrize(("code", "link"), [(2, SLOW), (3, FAST), (4, FASTEST)])
def test_the_answers_move_where_the_parent_is_told(scene, code, link):
    scene.follow(notify(1, code))
    assert scene.bridge.back.tolist() == [FAST, link, FAST, FAST]
    assert scene.bridge.out.tolist() == [FAST] * 4


def test_a_message_to_the_parent_is_no_move(scene):
    assert scene.follow(notify(1, 4)) == Reaction()


@pytest.mark.parametrize("message", [
    notify(1, 4, kind=13), notify(1, 4, protocol=39), notify(1, 4, protocol="packet"), notify(1, 4, far_port=80),
    notify(4, 4), notify(1, 0), notify(1, 1), notify(1, 5), notify(1, 255),
], ids=["registration", "another protocol", "a frame", "another service", "unknown stream", "no Ethernet here",
        "no power line here", "unknown path", "highest path"])
def test_any_other_message_leaves_the_answers_alone(scene, message):
    before = scene.state()
    scene.follow(message)
    assert scene.state() == before


def test_a_message_that_could_not_be_sent_leaves_the_answers_alone(scene):
    before = scene.state()
    scene.follow(notify(1, 4, result=-1))
    assert scene.state() == before


# The quotas

def line(text: str, function: str = "path_selection_init_path_quota") -> LogRecord:
    return parse_log(f"<30>Nov 21 11:48:13 /usr/bin/kolt: {function}:19: Info: {text}", 1)


def quota(name: str, hundredths: int, **how: str) -> LogRecord:
    return line(f"path: {name}, util: 9, util_adjustment: 0, adjusted_util: 9, quota: {hundredths}, rx_tx_factor: 1, "
                "rx_pkt_size: 0, rx_selected: 0, tx_rate: 866, rx_rate: 866, processed_rate: 866", **how)


def test_quotas_are_read_from_the_log_in_percent(scene):
    scene.node.records = [quota("wlan1.1", 8150), line("cpu =================> 20"), quota("wlan2.1", 0)]
    assert scene.follow().quotas == {"wlan1.1": 81.5, "wlan2.1": 0.0}


def test_the_quotas_of_the_last_period_count(scene):
    scene.node.records = [quota("wlan1.1", 8100), quota("wlan1.1", -100)]
    assert scene.follow().quotas == {"wlan1.1": -1.0}


def test_quotas_are_told_once(scene):
    scene.node.records = [quota("wlan1.1", 8100)]
    assert [scene.follow().quotas, scene.follow().quotas] == [{"wlan1.1": 81.0}, None]


def test_without_a_period_there_are_no_quotas(scene):
    scene.node.records = [quota("wlan1.1", 8100, function="some_other_function"), line("path: of virtue")]
    assert scene.follow().quotas is None


def test_the_log_of_a_call_is_waited_for(scene):
    scene.node.coming = [quota("wlan1.1", 8100)]
    assert scene.follow(flush_streams()).quotas == {"wlan1.1": 81.0}


def test_a_record_that_comes_late_is_not_lost(scene):
    scene.node.coming = [quota("wlan1.1", 8100)]
    assert scene.follow().quotas is None
    assert scene.follow(flush_streams()).quotas == {"wlan1.1": 81.0}
