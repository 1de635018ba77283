"""How the daemon ends: by a signal, always in order and with status 0."""
import signal
import time
from pathlib import Path

import pytest

from bus import Bus
from kolt_node import Node, sample
import scene

STOPS = [signal.SIGTERM, signal.SIGINT]


class TestSignals:
    @pytest.mark.parametrize("number", STOPS)
    def test_stop_signal_ends_the_daemon_with_status_0_and_without_a_word(self, node: Node, number: int) -> None:
        scene.set_up(node)
        scene.start(node)
        begin = scene.mark(node)
        assert node.stop_daemon(number) == 0
        assert (scene.lines(node, begin), node.journal(begin)) == ([], [])

    def test_whole_configuration_ends_as_well(self, node: Node) -> None:
        sample.set_up(node)
        scene.start(node, sample.config())
        assert node.stop_daemon() == 0

    @pytest.mark.parametrize("number", STOPS)
    def test_signal_during_the_pause_is_obeyed_after_the_pause_and_the_flush(self, node: Node, number: int) -> None:
        scene.set_up(node, ["wlan1.1"])
        scene.start(node)
        begin = scene.mark(node)
        node.event("kolt.link_state", {"LINK_WIFI_2G": 1}, settle=False)
        permitted = node.wait_calls("bridgeSetIFBroadcast", since=begin)[0]["time"]
        for _ in range(3):
            node.signal(node.daemon, number)
        assert node.wait_exit(node.daemon) == 0
        told = scene.loop_requests(node, begin)
        assert told == ["SetIFBroadcast br-lan wlan1.1 1", "FlushHATable br-lan"]
        flushed = node.journal(begin, "bridgeFlushHATable")[-1]["time"]
        assert 1e9 <= flushed - permitted < 4e9, "it would have been ended without the flush"

    @pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
    def test_signal_during_the_start_counts_when_the_start_is_done(self, node: Node, number: int) -> None:
        scene.set_up(node)
        node.start_broker()
        node.answer_requests(silent=True)
        daemon = node.start_daemon(scene.config(), ready=False)
        node.wait_calls("sendto")
        node.signal(daemon, number)
        assert node.wait_exit(daemon) == 0
        assert node.journal(call="bridgeSetBridgeMode"), "the start was not finished"

    def test_waiting_messages_do_not_delay_the_end(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node)
        for _ in range(20):
            node.event("kolt.configure", {"mode": "RE"}, settle=False)
        node.send_bridge_event(6, count=200)
        begin = time.monotonic()
        assert node.stop_daemon() == 0
        assert time.monotonic() - begin < 5

    def test_broken_pipes_are_ignored(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node)
        status = Path(f"/proc/{node.daemon.pid}/status").read_text()
        ignored = int(next(line for line in status.splitlines() if line.startswith("SigIgn")).split()[1], 16)
        assert ignored >> (signal.SIGPIPE - 1) & 1
        node.signal(node.daemon, signal.SIGPIPE)
        begin = scene.mark(node)
        node.event("kolt.configure", {"mode": "AP"})
        assert "SetBridgeMode br-lan 1" in scene.requests(node, begin)

    def test_next_daemon_starts_where_the_last_one_ended(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node)
        first = [line for line in scene.requests(node) if not line.startswith("SetEventInfo")]
        for number in STOPS:
            assert node.stop_daemon(number) == 0
            begin = scene.mark(node)
            node.start_daemon()
            assert [line for line in scene.requests(node, begin) if not line.startswith("SetEventInfo")] == first


class TestBus:
    def test_bus_connection_is_closed_in_order(self, node: Node) -> None:
        """The other end sees an orderly end of the stream, with nothing behind it."""
        scene.set_up(node)
        broker = Bus(node)
        broker.start_daemon()
        assert node.stop_daemon() == 0
        assert broker.receive() == b""
        broker.close()
