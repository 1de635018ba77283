"""The daemon in simulated time: its periods, its pauses, its events and its end."""
import re
import signal
import sys
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

from kolt_node import Mark, Node, NodeError, Process, sample
from kolt_node.clock import SimulatedClock
import scene

START = 1000.0
STATION_GONE = 6  # a bridge event that makes the daemon flush
MEASURED = "path: wlan0.1, util: 85"


@pytest.fixture
def clock(node: Node) -> Iterator[SimulatedClock]:
    """A clock that whatever is started next follows."""
    node.use_simulated_clock()
    with SimulatedClock(node, START) as fresh:
        yield fresh


def start(node: Node, clock: SimulatedClock, configuration: dict | None = None, **how: object) -> Process:
    """Starts the bus, where it does not run, and the daemon, which rests afterwards."""
    if node.broker is None:
        node.start_broker()
    daemon = node.start_daemon(configuration or scene.config(), ready=False, **how)
    clock.attach()
    node.drain()
    return daemon


def start_sample(node: Node, clock: SimulatedClock, **param: object) -> Process:
    """The daemon on the sample, with the machine's own load out of sight."""
    sample.set_up(node)
    node.write_file("/proc/stat", "cpu 100 0 100 800 0 0 0 0\n")
    node.write_file("/proc/net/dev", "".join(f"{name}: {'0 ' * 16}\n" for name in sample.PORTS))
    return start(node, clock, sample.config(**param))


def measurements(node: Node, since: Mark | None = None) -> int:
    node.drain()
    return sum(record.text.startswith(MEASURED) for record in node.log(since))


def flushes(node: Node, since: Mark | None = None) -> int:
    return len(node.journal(since, "bridgeFlushHATable"))


def calls(node: Node) -> list[tuple[str, dict]]:
    """The platform calls, without what is drawn anew for each run: the daemon's number and the bridges' MACs."""
    assert node.daemon is not None
    own = node.daemon.pid.to_bytes(4, sys.byteorder).hex()
    return [(entry["call"], {key: value for key, value in entry["args"].items()
                             if key not in ("pid", "second_mac") and value != own}) for entry in node.journal()]


def descriptors(node: Node) -> dict[int, str]:
    """The daemon's descriptors, without the numbers that differ from one run to another."""
    return {fd: re.sub(r"\[\d+\]", "", path) for fd, path in node.descriptors().items()}


def took(action: Callable[[], object]) -> float:
    begin = time.monotonic()
    action()
    return time.monotonic() - begin


class TestPeriods:
    def test_a_hundred_periods_take_far_less_than_their_time(self, node: Node, clock: SimulatedClock) -> None:
        start_sample(node, clock, period=5)
        begin = time.monotonic()
        for passed in range(1, 101):
            clock.advance(START + 5 * passed)
            assert clock.deadline == START + 5 * passed + 5
        assert time.monotonic() - begin < 100
        assert measurements(node) == 100

    def test_a_period_comes_at_its_moment_and_not_before(self, node: Node, clock: SimulatedClock) -> None:
        start_sample(node, clock, period=5)
        begin = scene.mark(node)
        clock.advance(START + 4.999)
        assert node.journal(begin) == []
        clock.advance(START + 5)
        assert len(node.journal(begin, "netlink_msg", type=256)) == 1
        assert measurements(node, begin) == 1

    def test_one_long_advance_passes_through_every_period(self, node: Node, clock: SimulatedClock) -> None:
        start_sample(node, clock, period=7)
        clock.advance(START + 76)
        assert (measurements(node), clock.now, clock.deadline) == (10, START + 76, START + 77)

    def test_a_daemon_that_is_woken_is_not_waited_for_until_time_settles(self, node: Node, clock: SimulatedClock) -> None:
        start_sample(node, clock, period=5)
        node.signal(node.daemon, signal.SIGSTOP)
        clock.wake()
        assert (clock.now, measurements(node)) == (START + 5, 0)
        node.signal(node.daemon, signal.SIGCONT)
        clock.settle()
        assert (measurements(node), clock.deadline) == (1, START + 10)
        assert node.stop_daemon() == 0
        with pytest.raises(NodeError, match="no daemon wants to wake"):
            clock.wake()

    def test_two_runs_say_and_do_the_same(self, build: Path) -> None:
        def run() -> tuple[list, list]:
            with Node(build) as node, SimulatedClock(node) as clock:
                node.use_simulated_clock()
                start_sample(node, clock, period=2)
                node.set_log_level(2)
                for step in range(1, 31):
                    clock.advance(clock.now + 1)
                    if step % 10 == 3:
                        node.set_driver_files("wlan2", "5g_2", utilisation=90 - step)
                        node.event("kolt.link_state", {"LINK_PLC": step % 2})
                        node.send_bridge_event(STATION_GONE)
                        clock.settle()
                node.drain()
                return [(record.function, record.level, record.text) for record in node.log()], calls(node)

        (said, done), again = run(), run()
        assert len(said) > 500 and len(done) > 500
        assert (said, done) == again

    def test_the_journal_shows_the_real_time(self, node: Node, clock: SimulatedClock) -> None:
        begin = time.monotonic_ns()
        start_sample(node, clock, period=5)
        clock.advance(START + 100)
        times = [entry["time"] for entry in node.journal()]
        assert times == sorted(times) and begin < times[0] and times[-1] < time.monotonic_ns()


class TestEvents:
    def test_a_pause_takes_exactly_one_simulated_second(self, node: Node, clock: SimulatedClock) -> None:
        scene.set_up(node, ["wlan1.1"])
        start(node, clock)
        clock.advance(START + 10.25)
        begin = scene.mark(node)
        node.event("kolt.link_state", {"LINK_WIFI_2G": 1})
        permitted = ["SetIFBroadcast br-lan wlan1.1 1"]
        assert (scene.loop_requests(node, begin), clock.deadline) == (permitted, START + 11.25)
        clock.advance(START + 11.249)
        assert scene.loop_requests(node, begin) == permitted
        clock.advance(START + 11.25)
        assert scene.loop_requests(node, begin) == [*permitted, "FlushHATable br-lan"]
        assert clock.deadline == START + 3600

    def test_what_was_sent_before_settling_has_been_handled_after(self, node: Node, clock: SimulatedClock) -> None:
        scene.set_up(node, ["wlan1.1"])
        start(node, clock)
        for count in (1, 2, 300):
            begin = scene.mark(node)
            node.send_bridge_event(STATION_GONE, count=count)
            clock.settle()
            assert flushes(node, begin) == count

    def test_bus_events_are_handled_by_settling(self, node: Node, clock: SimulatedClock) -> None:
        scene.set_up(node)
        start(node, clock)
        for _ in range(20):
            begin = scene.mark(node)
            node.event("kolt.hello", settle=False)
            clock.settle()
            node.drain()
            assert [record.text for record in node.log(begin)] == ["unknown subtype"]
        assert clock.now == START

    def test_events_are_handled_without_anyone_settling(self, node: Node, clock: SimulatedClock) -> None:
        """Far more than the connection to the simulator would hold of what the daemon might say of each."""
        scene.set_up(node, ["wlan1.1"])
        start(node, clock)
        begin = scene.mark(node)
        for passed in range(1, 601):
            node.send_bridge_event(STATION_GONE)
            node.wait_for(lambda: flushes(node, begin) == passed)
        clock.settle()
        assert clock.now == START

    def test_time_that_is_gone_does_not_come_back(self, node: Node, clock: SimulatedClock) -> None:
        scene.set_up(node)
        start(node, clock)
        clock.advance(START + 1)
        with pytest.raises(ValueError, match="time does not go back"):
            clock.advance(START)


class TestEnd:
    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
    def test_a_signal_ends_the_daemon_while_it_waits(self, node: Node, clock: SimulatedClock, number: int) -> None:
        start_sample(node, clock, period=5)
        clock.advance(START + 11)
        node.signal(node.daemon, number)
        assert (node.wait_exit(node.daemon), clock.ended, node.clock) == (0, True, None)
        with pytest.raises(NodeError, match="no daemon follows"):
            clock.settle()

    def test_a_daemon_that_pauses_can_be_stopped(self, node: Node, clock: SimulatedClock) -> None:
        scene.set_up(node, ["wlan1.1"])
        start(node, clock)
        begin = scene.mark(node)
        node.event("kolt.link_state", {"LINK_WIFI_2G": 1})
        assert node.stop_daemon() == 0
        assert scene.loop_requests(node, begin) == ["SetIFBroadcast br-lan wlan1.1 1", "FlushHATable br-lan"]

    def test_a_daemon_that_dies_is_told_with_its_last_words(self, node: Node, clock: SimulatedClock) -> None:
        start_sample(node, clock, period=5)
        node.signal(node.daemon, signal.SIGKILL)
        with pytest.raises(NodeError, match=r"(?s)the daemon ended\nstatus -9\n.*Path Selection initialized"):
            clock.advance(START + 5)
        assert clock.ended

    def test_a_daemon_that_ends_before_it_starts_is_told(self, node: Node, clock: SimulatedClock) -> None:
        with pytest.raises(NodeError, match=r"(?s)the daemon ended.*\nstatus 0\n.*kolt disabled"):
            start(node, clock, {"enable": False})
        assert clock.ended

    def test_a_daemon_that_never_rests_is_given_up(self, node: Node, clock: SimulatedClock) -> None:
        start_sample(node, clock)
        node.signal(node.daemon, signal.SIGSTOP)
        with pytest.raises(NodeError, match="the daemon does not come to rest"):
            clock.settle(timeout=0.1)
        node.signal(node.daemon, signal.SIGCONT)
        clock.settle()

    def test_a_daemon_started_again_goes_on_at_the_present_time(self, node: Node, clock: SimulatedClock) -> None:
        start_sample(node, clock, period=5)
        clock.advance(START + 11)
        assert node.stop_daemon() == 0
        start(node, clock, sample.config(period=5))
        assert (clock.now, clock.deadline) == (START + 11, START + 16)
        clock.advance(START + 16)
        assert measurements(node) == 3

    def test_daemon_goes_on_in_real_time_without_its_simulator(self, node: Node, clock: SimulatedClock) -> None:
        start_sample(node, clock, period=5)
        clock.advance(START + 4.8)
        begin = scene.mark(node)

        def go_on() -> None:
            clock.close()
            node.wait_calls("netlink_msg", since=begin)

        assert 0.15 < took(go_on) < 4
        node.wait_idle()
        assert measurements(node, begin) == 1
        assert 512 not in node.descriptors()


class TestWithoutAClock:
    def test_a_node_without_one_is_left_alone(self, node: Node) -> None:
        sample.set_up(node)
        node.start_broker()
        begin = time.monotonic_ns()
        node.start_daemon(sample.config(period=1))
        measured = node.wait_calls("bridgeTableAction", timeout=10)
        assert measured[0]["time"] - begin > 950_000_000
        node.clock_listener.setblocking(False)
        with pytest.raises(BlockingIOError):
            node.clock_listener.accept()

    def test_a_simulator_that_does_not_listen_is_done_without(self, node: Node) -> None:
        node.use_simulated_clock()
        node.clock_listener.close()
        scene.set_up(node)
        scene.start(node)
        assert 512 not in node.descriptors()

    def test_descriptors_of_the_daemon_are_the_same(self, node: Node) -> None:
        sample.set_up(node)
        scene.start(node, sample.config())
        plain = descriptors(node)
        node.stop_daemon()
        node.use_simulated_clock()
        with SimulatedClock(node) as clock:
            start(node, clock, sample.config())
            clock.advance(START + 30)
            assert descriptors(node) == plain | {512: "socket:"}
