"""The unmodified daemon on the platform libraries for a stock kernel: what reaches kolt-bridged, what comes back, and how
the daemon lives through the loss of it."""
import signal
import struct
from collections.abc import Iterator
from pathlib import Path

import pytest

import path_scene as paths
import scene
from bridged_node import SOCKET, BridgedNode, libraries_of
from kolt_node import LogRecord, Mark, Node
from path_scene import HOSTS, HOT, LOCAL

READY = "main: Info: Loop avoidance initialized"
FLOW_REPORT = struct.pack("=6s6sHHIB", bytes.fromhex("020000000001"), bytes.fromhex("020000000002"), 1000, 2000, 6, 1)
REPORTED = "Info: sa: 02:00:00:00:00:01, da:02:00:00:00:00:02, src_port: 1000, dst_port:2000, protocol:6, type:1"


@pytest.fixture
def node(build: Path) -> Iterator[BridgedNode]:
    with BridgedNode(build) as fresh:
        yield fresh
        if fresh.daemon is not None:
            fresh.stop_daemon()
        for process in fresh.processes.values():
            assert not any(word in process.stderr for word in scene.SANITIZER_WORDS), process.stderr


def begin(node: Node, **how: object) -> None:
    scene.set_up(node)
    scene.start(node, scene.config(backhual={"wlan1.1": {"couple": "eth1"}}), **how)


def programmed(node: Node, since: Mark | None = None) -> list[str]:
    """What the bridges were told, without the daemon's number."""
    return [line.replace(str(node.daemon.pid), "PID") for line in scene.requests(node, since)]


def told_on_the_simulated_node(build: Path) -> list[str]:
    with Node(build) as other:
        begin(other)
        other.event("kolt.configure", {"mode": "AP"})
        told = programmed(other)
        other.stop_daemon()
        return told


def is_heard(node: BridgedNode) -> bool:
    """Whether messages of both sockets reach the daemon."""
    mark = scene.mark(node)
    node.send_bridge_event(6)
    node.settles(lambda: node.journal(mark, "bridgeFlushHATable"), "the flush")
    node.send_neighbour(4, FLOW_REPORT)
    node.settles(lambda: reports(node, mark), "the report")
    return True


def reports(node: BridgedNode, since: Mark | None = None) -> list[LogRecord]:
    return [line for line in node.log(since) if line.raw.endswith(REPORTED)]


class TestStart:
    def test_the_daemon_is_the_same_and_only_the_libraries_differ(self, node: BridgedNode, build: Path) -> None:
        node.start_bridged()
        begin(node)
        assert {path.parent for path in libraries_of(node)} == {(build / "linux/lib").resolve()}
        assert {path.name for path in libraries_of(node)} == {"libduon-bridge.so", "libeth_encap.so"}

    def test_every_request_arrives_as_on_the_simulated_node(self, node: BridgedNode, build: Path) -> None:
        node.start_bridged()
        begin(node)
        node.event("kolt.configure", {"mode": "AP"})
        told = programmed(node)
        assert told == told_on_the_simulated_node(build)
        assert "SetCouple br-lan wlan1.1 eth1 1" in told
        assert scene.lines(node)[-1] == READY

    def test_registration_is_sent_and_answered(self, node: BridgedNode) -> None:
        node.start_bridged()
        begin(node)
        scene.drain(node)
        pid = node.daemon.pid
        assert node.requests == [struct.pack("=IHHIII", 20, 13, 0, 0, pid, pid)]
        assert not [line for line in scene.lines(node) if "netlink" in line]

    def test_refused_call_is_logged(self, node: BridgedNode) -> None:
        node.start_bridged()
        node.fail("bridgeSetIFClass", 1)
        begin(node)
        line = "loop_avoidance_configure_bridge_with_mode: Error: bridgeSetIFClass"
        assert scene.lines(node).count(line) == len(scene.INTERFACES)

    def test_without_kolt_bridged_the_daemon_gives_up_at_its_first_socket(self, node: BridgedNode) -> None:
        scene.set_up(node)
        node.start_broker()
        daemon = node.start_daemon(scene.config())
        assert daemon.status == 1
        assert scene.lines(node) == ["event_bridge_init: Fatal(Protocol not supported): socket"]


class TestEvents:
    def test_bridge_events_arrive(self, node: BridgedNode) -> None:
        node.start_bridged()
        begin(node, level=2)
        mark = scene.mark(node)
        node.send_bridge_event(6)
        node.settles(lambda: node.journal(mark, "bridgeFlushHATable"), "the flush")
        assert "SetTcpSP br-lan 0" in programmed(node, mark)
        index = node.ifindex("wlan1.1")
        node.send_bridge_event(5, bytes.fromhex("02ab0000000f") + bytes([index, 0, 0, 0, 0, 0, 0, 0, 0, 0]))
        node.wait_log("update fdb from if: wlan1.1", since=mark)

    def test_flow_reports_arrive_on_the_neighbour_socket(self, node: BridgedNode) -> None:
        node.start_bridged()
        begin(node)
        node.send_neighbour(4, FLOW_REPORT)
        node.settles(lambda: reports(node), "the report")

    def test_many_events_are_all_handled(self, node: BridgedNode) -> None:
        node.start_bridged()
        begin(node)
        mark = scene.mark(node)
        for _ in range(100):
            node.send_bridge_event(7)
        node.settles(lambda: len(node.journal(mark, "bridgeFlushHATable")) == 100, "a hundred flushes")


class TestPeriod:
    def test_clients_are_pinned_and_streams_moved_and_reported(self, node: BridgedNode) -> None:
        node.start_bridged()
        paths.set_up(node)
        paths.add_hosts(node, HOSTS[:1], "wlan0.1", pinned="wlan0.1")
        node.set_table("br-lan", "ha", [paths.stream(node, 7, "wlan0.1")])
        node.begin()
        node.set_load(load_2_4g=HOT)
        node.period()
        moved = node.period()
        assert moved.codes() == [2, 1, 8]
        assert moved.ha() == [(7, "wlan2.1")]
        (notify,) = moved.requests
        assert struct.unpack_from("=IH", notify) == (48, 14)
        assert notify[16:40].hex(":") == f"{paths.CAP}:00:00:{LOCAL}:{HOSTS[0]}:07:00:bb:01"
        assert "path_selection_update_ha_entry: Info: send notify msg success" in moved.lines

    def test_table_that_outgrows_the_first_buffer_is_fetched_again(self, node: BridgedNode) -> None:
        node.start_bridged()
        paths.set_up(node)
        index = node.ifindex("wlan0.1")
        record = struct.pack("=6sBBIB3x", bytes.fromhex("020000000001"), index, 1, 0, 0)
        node.set_table("br-lan", "fdb", record * 5200)
        node.begin()
        period = node.period()
        assert period.codes() == [2, 2, 1]
        assert not [line for line in period.lines if "Error" in line]


class TestLoss:
    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
    def test_daemon_lives_through_a_restart_and_is_heard_and_told_as_before(self, node: BridgedNode,
                                                                            number: int) -> None:
        node.start_bridged()
        begin(node)
        for _ in range(3):
            descriptors = set(node.descriptors())
            node.stop_bridged(number)
            node.event("kolt.configure", {"mode": "RE"})
            mark = scene.mark(node)
            node.start_bridged()
            node.event("kolt.configure", {"mode": "RE"})
            assert "SetTcpSP br-lan 0" in programmed(node, mark)
            assert "SetEventInfo br-lan PID 3 38" in programmed(node, mark)
            assert is_heard(node)
            assert set(node.descriptors()) == descriptors

    def test_without_kolt_bridged_no_bridge_is_active_and_nothing_waits(self, node: BridgedNode) -> None:
        node.start_bridged()
        begin(node)
        node.stop_bridged(signal.SIGKILL)
        mark = scene.mark(node)
        node.event("kolt.configure", {"mode": "RE"})
        assert (programmed(node, mark), scene.lines(node, mark)) == ([], [])
        assert node.daemon.status is None

    def test_one_that_hangs_is_waited_for_once_and_asked_again_when_it_goes_on(self, node: BridgedNode) -> None:
        node.start_bridged()
        begin(node)
        node.signal(node.bridged, signal.SIGSTOP)
        node.event("kolt.configure", {"mode": "RE"}, settle=False)
        node.wait_idle(15)
        node.signal(node.bridged, signal.SIGCONT)
        mark = scene.mark(node)
        node.event("kolt.configure", {"mode": "RE"})
        assert "SetTcpSP br-lan 0" in programmed(node, mark)

    def test_socket_of_a_dead_one_is_no_obstacle(self, node: BridgedNode) -> None:
        node.start_bridged()
        node.stop_bridged(signal.SIGKILL)
        assert "socket" in node.list_directory(SOCKET.rpartition("/")[0])
        node.start_bridged()
        begin(node)
        assert scene.lines(node)[-1] == READY
