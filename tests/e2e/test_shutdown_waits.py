"""How the daemon ends while it waits for what never comes: within five seconds, with status 0."""
import contextlib
import signal
import time
from collections.abc import Iterator
from pathlib import Path

import pytest

import path_scene as paths
import scene
from kolt_node import NodeError
from kolt_node.node import is_waiting
from path_scene import PathNode

STOPS = [signal.SIGTERM, signal.SIGINT]
LONGEST_SECONDS = 15
STATIONS = "/proc/net/rtk_wifi6/wlan1/sta_info"
TABLE = ["-- STA info table -- (active: 1)", "stat_info...", "    hwaddr: 021000000010", "    state: 1",
         "    current_tx_rate: VHT 433", "    current_rx_rate: VHT 7", "    rssi: 40"]


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[PathNode]:
    yield from paths.lend(build)


@pytest.fixture
def node(shared: PathNode) -> Iterator[PathNode]:
    for lent in shared.lend():
        paths.set_up(lent)
        yield lent


def driver_writes(node: PathNode, script: str) -> None:
    """From now on a radio's stations are what a shell writes to its descriptor 3, and go on until it ends."""
    node.run(["/bin/sh", "-c", f"rm -f {STATIONS}; mkfifo {STATIONS}"])
    node.spawn(["/bin/sh", "-c", f"exec 3<>{STATIONS}; {script}"])


def driver_pauses_in_its_second_table(node: PathNode) -> None:
    """The first is for keeping the link awake; of the second, all but the end comes before there is a /tmp/go."""
    text = "\n".join(TABLE) + "\n"
    node.write_file("/tmp/begin", text[:-25])
    node.write_file("/tmp/end", text[-25:])
    for name in ("/tmp/go", "/tmp/half"):
        node.remove_file(name)
    node.run(["/bin/sh", "-c", f"rm -f {STATIONS} {STATIONS}2; mkfifo {STATIONS} {STATIONS}2"])
    node.spawn(["/bin/sh", "-c", f"exec 3>{STATIONS}; mv {STATIONS}2 {STATIONS}; cat /tmp/begin /tmp/end >&3; "
                                 f"exec 3<>{STATIONS}; cat /tmp/begin >&3; echo >/tmp/half; "
                                 "while [ ! -e /tmp/go ]; do sleep 0.05; done; cat /tmp/end >&3"])


def wait_for_a_reader(node: PathNode) -> None:
    """Waits until the daemon has a child, and some time more, in which one that does not wait would end."""
    children = Path(f"/proc/{node.daemon.pid}/task/{node.daemon.pid}/children")
    node.wait_for(lambda: children.read_text() != "", 5, "the reader of the driver's file")
    time.sleep(0.3)
    assert children.read_text() != "", "the reader did not wait"


def seconds_to_end(node: PathNode, number: int) -> float:
    """Ends the daemon, whose patience is not renewed by another signal: it would never come to an end."""
    begin = time.monotonic()
    while node.daemon.status is None and time.monotonic() < begin + LONGEST_SECONDS:
        node.signal(node.daemon, number)
        with contextlib.suppress(NodeError):
            node.wait_for(lambda: node.daemon.status is not None, 0.5)
    assert node.wait_exit(node.daemon, timeout=1) == 0
    return time.monotonic() - begin


class TestConfiguration:
    @pytest.mark.parametrize("number", STOPS)
    @pytest.mark.parametrize("starter", [[], ["/usr/bin/env", "--block-signal"]], ids=["plain", "signals blocked"])
    def test_pipe_that_nobody_writes_to_is_left_at_once(self, node: PathNode, starter: list[str], number: int) -> None:
        node.run(["/bin/sh", "-c", "rm -f /tmp/pipe; mkfifo /tmp/pipe"])
        daemon = node.spawn([*starter, node.build / "bin/kolt", "-c", "/tmp/pipe"])
        node.wait_for(lambda: is_waiting(daemon.pid, "openat"), 5, "the open")
        node.signal(daemon, number)
        assert node.wait_exit(daemon, timeout=3.0) == -number


class TestDriver:
    @pytest.mark.parametrize("number", STOPS)
    def test_driver_that_tells_nothing_holds_the_end_up_for_less_than_five_seconds(self, node: PathNode, number: int) -> None:
        """A busy machine may be late now and then, but not each time."""
        driver_writes(node, "sleep 1000")
        for _ in range(3):
            scene.start(node, paths.config(), ready=False)
            wait_for_a_reader(node)
            took = seconds_to_end(node, number)
            assert took > 3.5
            if took < 5:
                break
        assert took < 5

    def test_reader_that_does_not_end_does_not_hold_the_end_up(self, node: PathNode) -> None:
        """The daemon has seen enough, closes the pipe, and waits for the child that waits for the driver."""
        driver_writes(node, "echo '-- STA info table -- (active: 0)' >&3; sleep 1000")
        scene.start(node, paths.config(), ready=False)
        wait_for_a_reader(node)
        node.wait_for(lambda: not any("pipe" in name for number, name in node.descriptors().items() if number > 2),
                      what="the end of the pipe")
        assert seconds_to_end(node, signal.SIGTERM) > 3.5

    @pytest.mark.parametrize("number", [*STOPS, signal.SIGCHLD])
    def test_signal_does_not_cut_a_table_short(self, node: PathNode, number: int) -> None:
        """The driver takes its time, and stops within a line when the signal comes."""
        driver_pauses_in_its_second_table(node)
        scene.start(node, paths.config(), ready=False)
        node.wait_for(lambda: "half" in node.list_directory("/tmp"), 5, "the first half of the table")
        wait_for_a_reader(node)
        begin = scene.mark(node)
        node.signal(node.daemon, number)
        time.sleep(0.2)
        node.write_file("/tmp/go", "")
        node.wait_log("ifname: wlan1, txrate: 433, rxrate: 433, rssi: 40", since=begin)
