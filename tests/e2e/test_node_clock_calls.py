"""The calls that tell the time or wait for it, in simulated time and at its end; and what else a node hands over."""
import os
import re
import signal
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

from kolt_node import Node, Process
from kolt_node.clock import SECOND, SimulatedClock
from probe import values

START = 1000.0
CALENDAR = 1_700_000_000
WAIT = re.compile(r"^(\w+) result (-?\d+) errno (\d+) left (\d+) took (\d+)$", re.MULTILINE)


@pytest.fixture
def clock(node: Node) -> Iterator[SimulatedClock]:
    """A clock that whatever is started next follows."""
    node.use_simulated_clock()
    with SimulatedClock(node, START) as fresh:
        yield fresh


def run_probe(node: Node, clock: SimulatedClock, *steps: str) -> Process:
    """Starts the probe, which comes to its first wait, and after the last waits for a signal."""
    node.daemon = node.spawn([node.build / "bin/clock-probe", *steps, "epoll_wait=-1"])
    clock.attach()
    return node.daemon


def finish(node: Node, probe: Process) -> None:
    """Ends the last wait. A signal that comes a moment before it would be lost, so there are more than one."""
    node.wait_for(lambda: probe.status is not None or node.signal(probe, signal.SIGUSR1))
    assert probe.status == 0


def waits(probe: Process) -> list[tuple]:
    """Of each wait that is over but the last: its name, result, errno, what was left and how long it took."""
    over = [(name, *map(int, numbers)) for name, *numbers in WAIT.findall(probe.stdout)]
    return over if probe.status is None else over[:-1]


def took(action: Callable[[], object]) -> float:
    begin = time.monotonic()
    action()
    return time.monotonic() - begin


class TestCalls:
    WAITS = {"nanosleep": 1500, "relative": 250, "monotonic": 999, "calendar": 3600000, "sleep": 86400000,
             "usleep": 1, "epoll_wait": 300, "epoll_pwait": 700}

    def test_every_clock_shows_the_granted_time(self, node: Node, clock: SimulatedClock) -> None:
        probe = run_probe(node, clock, "nanosleep=2500", "clocks")
        clock.advance(START + 2)
        clock.advance(START + 2.5)
        finish(node, probe)
        shown = {name: int(value) for name, value in values(probe).items() if value.isdigit()}
        now = int((START + 2.5) * SECOND)
        assert shown == {
            "monotonic": now, "monotonic_raw": now, "monotonic_coarse": now, "boottime": now, "processor": 1,
            **dict.fromkeys(["realtime", "realtime_coarse", "gettimeofday"], CALENDAR * SECOND + now),
            "time": (CALENDAR * SECOND + now) // SECOND * SECOND}

    def test_every_wait_takes_its_time_to_the_nanosecond_and_leaves_errno_alone(self, node: Node,
                                                                               clock: SimulatedClock) -> None:
        probe = run_probe(node, clock, *(f"{name}={ms}" for name, ms in self.WAITS.items()))
        assert took(lambda: clock.advance(START + 100000 - 0.001)) < 5
        finish(node, probe)
        assert waits(probe) == [(name, 0, 77, 0, ms) for name, ms in self.WAITS.items()]

    def test_time_stands_still_until_it_is_granted(self, node: Node, clock: SimulatedClock) -> None:
        probe = run_probe(node, clock, "nanosleep=2000", "epoll_wait=1000")
        assert clock.deadline == START + 2
        clock.advance(START + 1.999999999)
        clock.settle()
        node.drain()
        assert waits(probe) == []
        clock.advance(START + 2)
        assert clock.deadline == START + 3
        node.drain()
        assert waits(probe) == [("nanosleep", 0, 77, 0, 2000)]

    def test_a_wait_of_no_length_does_not_wait(self, node: Node, clock: SimulatedClock) -> None:
        probe = run_probe(node, clock, "nanosleep=0", "epoll_wait=0", "sleep=0", "calendar=-1000", "usleep=1")
        assert clock.deadline == START + 0.001
        node.drain()
        assert waits(probe) == [(name, 0, 77, 0, 0) for name in ("nanosleep", "epoll_wait", "sleep", "calendar")]

    def test_a_wait_without_end_has_no_deadline(self, node: Node, clock: SimulatedClock) -> None:
        run_probe(node, clock, "epoll_wait=-1")
        clock.advance(START + 1e6)
        assert (clock.deadline, clock.ended) == (None, False)

    @pytest.mark.parametrize("call, result, errno, left", [
        ("nanosleep", -1, 4, 7000), ("relative", 4, 77, 7000), ("monotonic", 4, 77, 0), ("sleep", 7, 77, 0),
        ("usleep", -1, 4, 0), ("epoll_wait", -1, 4, 0), ("epoll_pwait", -1, 4, 0)])
    def test_a_signal_cuts_a_wait_short(self, node: Node, clock: SimulatedClock, call: str, result: int, errno: int,
                                        left: int) -> None:
        probe = run_probe(node, clock, f"{call}=10000")
        clock.advance(START + 3)
        node.signal(probe, signal.SIGUSR1)
        node.wait_for(lambda: waits(probe))
        finish(node, probe)
        assert waits(probe) == [(call, result, errno, left, 3000)]

    def test_a_simulator_that_does_not_listen_holds_nobody_up(self, node: Node, clock: SimulatedClock) -> None:
        """It is told of more waits, each ended by a signal, than its connection holds."""
        steps = [f"{call}={ms}" for ms in range(1, 351) for call in ("nanosleep", "epoll_wait")]
        probe = run_probe(node, clock, *steps)
        node.wait_for(lambda: probe.stdout.count("begins") > 600 or node.signal(probe, signal.SIGUSR1), 30)
        clock.advance(START + 1000)
        finish(node, probe)
        results = [wait[1] for wait in waits(probe)]
        assert results == sorted(results) and len(results) == 700 and results.count(-1) >= 600

    @pytest.mark.parametrize("call", ["nanosleep", "calendar", "epoll_wait"])
    def test_a_wait_goes_on_in_real_time_when_the_simulator_goes(self, node: Node, clock: SimulatedClock,
                                                                 call: str) -> None:
        probe = run_probe(node, clock, f"{call}=10000", "usleep=50", "sleep=0", "epoll_pwait=50", "calendar=50")
        clock.advance(START + 9.8)

        def go_on() -> None:
            clock.close()
            node.wait_for(lambda: len(waits(probe)) == 5)

        rest = took(go_on)
        assert 0.2 + 0.15 <= rest < 5
        finish(node, probe)
        first, *others = waits(probe)
        assert first[:4] == (call, 0, 77, 0) and 10000 <= first[4] < 15000
        assert all(50 <= wait[4] < 5000 for wait in others if wait[0] != "sleep")

    def test_time_never_falls_back_when_the_simulator_goes(self, node: Node, clock: SimulatedClock) -> None:
        probe = run_probe(node, clock, "usleep=4000000", "clocks")
        clock.advance(START + 3999.9)
        clock.close()
        node.wait_for(lambda: "processor" in probe.stdout)
        finish(node, probe)
        shown = int(values(probe)["monotonic"])
        assert 0 <= shown - (START + 4000) * SECOND < 5 * SECOND

    def test_a_forked_child_has_real_time_of_its_own(self, node: Node, clock: SimulatedClock) -> None:
        """What it says would otherwise reach the simulator as if its parent had said it."""
        probe = run_probe(node, clock, "nanosleep=1000", "child=100", "nanosleep=1000")
        real = took(lambda: clock.advance(START + 1))
        assert clock.deadline == START + 2
        clock.advance(START + 2)
        finish(node, probe)
        parent, child, again = waits(probe)
        assert "child status 0" in probe.stdout
        assert (parent[4], again[4]) == (1000, 1000)
        assert 100 <= child[4] < 5000 and real >= 0.1


class TestRoot:
    def test_files_can_be_written_past_the_agent(self, node: Node) -> None:
        fd = os.open("tmp/direct", os.O_WRONLY | os.O_CREAT, 0o644, dir_fd=node.root_fd)
        with open(fd, "wb") as file:
            file.write(b"bytes")
        assert node.read_file("/tmp/direct") == b"bytes"
        assert not os.path.exists("/tmp/direct")

    def test_what_was_handed_over_is_closed_with_the_node(self, build: Path) -> None:
        before = sorted(os.listdir("/proc/self/fd"))
        with Node(build) as node:
            node.call("list", path="/")
        assert sorted(os.listdir("/proc/self/fd")) == before
        assert (node.root_fd, node.clock_listener) == (-1, None)
