"""The bus goes away and comes back under a daemon that goes on with everything else."""
import signal
import socket
import time
from collections.abc import Iterator

import pytest

import bus
from bus import Bus
from kolt_node import Node
from kolt_node.node import is_waiting
import scene

LOST = "event_ubus_connection_lost: Error: ubus connection lost"
CONNECTED = "event_ubus_reconnect: Info: ubus connected"
RECONFIGURE = 6  # a message of the bridge


@pytest.fixture
def wire(node: Node) -> Iterator[Bus]:
    """A bus whose broker the test plays, and a daemon that is connected to it."""
    scene.set_up(node, ["wlan1.1"])
    broker = Bus(node)
    broker.start_daemon()
    yield broker
    if node.daemon is not None:
        node.stop_daemon()
    broker.close()


def answers_bridge_events(node: Node) -> bool:
    begin = scene.mark(node)
    node.send_bridge_event(RECONFIGURE)
    node.wait_calls("bridgeFlushHATable", since=begin)
    return True


def answers_bus_events(node: Node) -> bool:
    begin = scene.mark(node)
    node.event("kolt.configure", {"mode": "AP"})
    return "SetBridgeMode br-lan 1" in scene.requests(node, begin)


def serve_again(broker: Bus) -> None:
    """Takes the daemon's next connection and leads it through its registration."""
    broker.accept()
    broker.add_object()
    broker.register()


class TestBrokerThatEnds:
    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
    def test_daemon_survives_its_broker_and_serves_the_next_one(self, node: Node, number: int) -> None:
        scene.set_up(node)
        scene.start(node)
        begin = scene.mark(node)
        node.signal(node.broker, number)
        node.wait_exit(node.broker)
        node.wait_log("ubus connection lost", since=begin)
        assert answers_bridge_events(node)
        node.start_broker()
        node.wait_log("ubus connected", since=begin)
        assert answers_bus_events(node)
        assert scene.lines(node, begin) == [LOST, CONNECTED]

    def test_loss_is_told_once_however_long_it_lasts(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node)
        begin = scene.mark(node)
        node.signal(node.broker, signal.SIGTERM)
        node.wait_exit(node.broker)
        time.sleep(3.5)
        assert scene.lines(node, begin) == [LOST]
        assert node.journal(begin) == []
        assert node.stop_daemon() == 0
        assert scene.lines(node, begin) == [LOST]

    def test_every_loss_is_told_anew_and_leaves_nothing_behind(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node)
        before = len(node.descriptors())
        begin = scene.mark(node)
        for _ in range(3):
            node.signal(node.broker, signal.SIGTERM)
            node.wait_exit(node.broker)
            round_begin = scene.mark(node)
            node.start_broker()
            node.wait_log("ubus connected", since=round_begin)
            assert answers_bus_events(node)
        assert scene.lines(node, begin) == [LOST, CONNECTED] * 3
        assert len(node.descriptors()) == before

    def test_link_states_survive_the_loss(self, node: Node) -> None:
        """The new connection delivers into the hub that there was: a state that it knows already is no change."""
        scene.set_up(node)
        scene.start(node)
        node.event("kolt.link_state", {"LINK_ETH": 1})
        begin = scene.mark(node)
        node.signal(node.broker, signal.SIGTERM)
        node.wait_exit(node.broker)
        node.start_broker()
        node.wait_log("ubus connected", since=begin)
        node.event("kolt.link_state", {"LINK_ETH": 1})
        assert "SetBridgeMode br-lan 0" not in scene.requests(node, begin)

    def test_periods_go_on_without_a_bus(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node, scene.config(bridges={"br-lan": {"loop_avoidance": True, "path_selection": True}}, period=1))
        node.signal(node.broker, signal.SIGKILL)
        node.wait_exit(node.broker)
        begin = scene.mark(node)
        node.wait_calls("bridgeTableAction", since=begin, count=4, timeout=10.0)

    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
    def test_stop_signal_ends_a_daemon_without_a_bus(self, node: Node, number: int) -> None:
        scene.set_up(node)
        scene.start(node)
        begin = scene.mark(node)
        node.signal(node.broker, signal.SIGKILL)
        node.wait_log("ubus connection lost", since=begin)
        assert node.stop_daemon(number, timeout=2.0) == 0


class TestConnectionThatBreaks:
    def test_loss_during_a_pause_ends_neither_the_pause_nor_the_daemon(self, node: Node, wire: Bus) -> None:
        begin = scene.mark(node)
        wire.send(bus.event("kolt.link_state", bus.number("LINK_WIFI_2G", 1)))
        node.wait_calls("bridgeSetIFBroadcast", since=begin)
        wire.drop()
        node.wait_log("ubus connection lost", since=begin)
        assert scene.loop_requests(node, begin)[-1] == "FlushHATable br-lan"
        serve_again(wire)
        node.wait_log("ubus connected", since=begin)
        assert scene.lines(node, begin) == [LOST, CONNECTED]

    def test_broker_that_only_stops_sending_counts_as_gone(self, node: Node, wire: Bus) -> None:
        begin = scene.mark(node)
        wire.connection.shutdown(socket.SHUT_WR)
        node.wait_log("ubus connection lost", since=begin)
        serve_again(wire)
        node.wait_log("ubus connected", since=begin)
        assert wire.deliver("kolt.debug", bus.number("dbg_level", 2))
        assert scene.lines(node, begin) == [LOST, CONNECTED]

    def test_attempts_come_a_second_apart(self, node: Node, wire: Bus) -> None:
        """A busy machine may see some of them late, but none before its time, and not each."""
        moments = [time.monotonic()]
        wire.drop()
        for _ in range(4):
            wire.accept(greet=False)
            moments.append(time.monotonic())
            wire.drop()
        gaps = [later - earlier for earlier, later in zip(moments, moments[1:])]
        assert sum(gaps) > 3.9 and any(0.9 < gap < 1.6 for gap in gaps), gaps

    def test_refused_registration_is_tried_again(self, node: Node, wire: Bus) -> None:
        begin = scene.mark(node)
        wire.drop()
        wire.accept()
        wire.add_object()
        wire.register(6)
        assert wire.receive() == b""
        serve_again(wire)
        node.wait_log("ubus connected", since=begin)
        assert scene.lines(node, begin) == [LOST, CONNECTED]


class TestBrokerThatHangs:
    """It accepts and says nothing, or nothing more, which the bus library would wait on for good."""

    @pytest.mark.parametrize("greet", [False, True], ids=["before its greeting", "before its answer"])
    def test_other_sources_are_served(self, node: Node, wire: Bus, greet: bool) -> None:
        """At once, in one of two attempts at least: a busy machine takes its time now and then."""
        begin = scene.mark(node)
        wire.drop()
        waits = []
        for _ in range(2):
            wire.accept(greet=greet)
            sent = time.monotonic()
            assert answers_bridge_events(node)
            waits.append(time.monotonic() - sent)
        assert min(waits) < 0.9, waits
        serve_again(wire)
        node.wait_log("ubus connected", since=begin)
        assert scene.lines(node, begin) == [LOST, CONNECTED]

    @pytest.mark.parametrize("length", [1, 8, 11, 12, 40])
    def test_half_a_message_holds_up_nobody(self, node: Node, wire: Bus, length: int) -> None:
        begin = scene.mark(node)
        event = bus.event("kolt.configure", bus.text("mode", "AP"))
        wire.send(event[:length])
        assert answers_bridge_events(node)
        assert node.journal(begin, "bridgeSetBridgeMode", mode=1) == []
        wire.send(event[length:])
        node.wait_calls("bridgeSetBridgeMode", since=begin, mode=1)
        assert scene.lines(node, begin) == []

    def test_half_a_greeting_is_given_up(self, node: Node, wire: Bus) -> None:
        begin = scene.mark(node)
        wire.drop()
        for length in (1, 9):
            wire.accept(greet=False)
            wire.send(bus.message(bus.HELLO, 0, 0xCB631148)[:length])
            assert answers_bridge_events(node)
        serve_again(wire)
        node.wait_log("ubus connected", since=begin)
        assert scene.lines(node, begin) == [LOST, CONNECTED]

    @pytest.mark.parametrize("greet", [False, True], ids=["before its greeting", "before its answer"])
    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
    def test_stop_signal_ends_the_daemon_with_status_0(self, node: Node, wire: Bus, greet: bool, number: int) -> None:
        wire.drop()
        wire.accept(greet=greet)
        assert node.stop_daemon(number, timeout=3.0) == 0


class TestBrokerThatHangsAtTheStart:
    @pytest.fixture
    def broker(self, node: Node) -> Iterator[Bus]:
        scene.set_up(node, [])
        broker = Bus(node)
        yield broker
        broker.close()

    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
    def test_stop_signal_ends_a_daemon_that_was_not_greeted(self, node: Node, broker: Bus, number: int) -> None:
        daemon = node.start_daemon(scene.config(), ready=False)
        broker.accept(greet=False)
        node.signal(daemon, number)
        assert node.wait_exit(daemon, timeout=3.0) == 1
        assert scene.lines(node) == ["event_ubus_init: Fatal: ubus_connect"]

    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
    def test_stop_signal_ends_a_daemon_whose_registration_is_not_answered(self, node: Node, broker: Bus,
                                                                           number: int) -> None:
        daemon = node.start_daemon(scene.config(), ready=False)
        broker.accept()
        broker.receive()
        node.signal(daemon, number)
        assert node.wait_exit(daemon, timeout=3.0) == 1
        assert scene.lines(node) == ["event_ubus_init: Fatal: ubus_register_event_handler: Connection failed"]

    def test_slow_broker_is_waited_for(self, node: Node, broker: Bus) -> None:
        node.start_daemon(scene.config(), ready=False)
        broker.accept(greet=False)
        time.sleep(1.5)
        broker.send(bus.message(bus.HELLO, 0, 0xCB631148))
        broker.add_object()
        broker.register()
        node.wait_idle()
        assert broker.deliver("kolt.debug", bus.number("dbg_level", 1))
        assert node.stop_daemon() == 0

    def test_broker_whose_queue_is_full_is_waited_for(self, node: Node, broker: Bus) -> None:
        broker.fill_queue()
        daemon = node.start_daemon(scene.config(), ready=False)
        time.sleep(1.5)
        assert daemon.status is None
        broker.empty_queue()
        broker.accept()
        broker.add_object()
        broker.register()
        node.wait_idle()
        assert broker.deliver("kolt.debug", bus.number("dbg_level", 1))
        assert node.stop_daemon() == 0

    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
    def test_stop_signal_ends_a_daemon_that_finds_the_queue_full(self, node: Node, broker: Bus, number: int) -> None:
        broker.fill_queue()
        daemon = node.start_daemon(scene.config(), ready=False)
        node.wait_for(lambda: is_waiting(daemon.pid, "connect"), what="the daemon to wait for room in the queue")
        node.signal(daemon, number)
        assert node.wait_exit(daemon, timeout=3.0) == 1
        assert scene.lines(node) == ["event_ubus_init: Fatal: ubus_connect"]

    def test_stop_signal_at_any_moment_of_the_start_ends_the_daemon(self, node: Node, broker: Bus) -> None:
        for delay in range(12):
            daemon = node.start_daemon(scene.config(), ready=False)
            time.sleep(delay / 1000)
            node.signal(daemon, signal.SIGTERM)
            # Before the daemon takes over the signal, it ends by it.
            assert node.wait_exit(daemon, timeout=3.0) in (1, -signal.SIGTERM)
