"""The neighbour registration that the daemon sends to the kernel while it starts."""
import errno
import struct

import pytest

from kolt_node import Node, nlmsghdr
import scene

READY = "main: Info: Loop avoidance initialized"
FAILED = "kolt_netlink_msg: Error: netlink socket "


def expected(pid: int) -> bytes:
    return struct.pack("=IHHIII", 20, 13, 0, 0, pid, pid)


class TestRegistration:
    def test_message_has_20_bytes_of_type_13_with_the_process_id_twice(self, node: Node) -> None:
        scene.set_up(node)
        pid = scene.start(node).pid
        scene.drain(node)
        assert node.requests == [expected(pid)]

    def test_registration_is_sent_once_in_a_life(self, node: Node) -> None:
        scene.set_up(node)
        pid = scene.start(node).pid
        node.event("kolt.configure", {"mode": "RE"})
        node.send_bridge_event(6)
        node.wait_idle()
        node.stop_daemon()
        assert node.requests == [expected(pid)]

    def test_request_socket_is_closed_again(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node, scene.config(backhual={"a": {"couple": "b"}}))  # opens the log before the sockets
        opened = {entry["args"]["protocol"]: entry["result"] for entry in node.journal(call="socket")}
        assert opened[52] not in node.descriptors()
        assert {opened[39], opened[0], opened[53]} <= set(node.descriptors())

    def test_silent_kernel_costs_a_second_and_nothing_is_logged(self, node: Node) -> None:
        scene.set_up(node)
        node.answer_requests(silent=True)
        pid = scene.start(node).pid
        sent = node.journal(call="sendto")[0]["time"]
        programmed = node.journal(call="bridgeSetTcpSP")[0]["time"]
        assert 0.95e9 <= programmed - sent < 2e9
        assert (scene.lines(node), node.requests) == ([READY], [expected(pid)])

    @pytest.mark.parametrize("reply", [b"\0", b"\xff" * 15, nlmsghdr(2, struct.pack("=i", -22)), bytes(20),
                                       b"\xff" * 21, b"\xff" * 60000, nlmsghdr(13, length=0xFFFFFFFF)],
                             ids=lambda reply: str(len(reply)))
    def test_any_reply_is_a_success(self, node: Node, reply: bytes) -> None:
        """What would be none costs a second each time, a busy machine now and then."""
        scene.set_up(node)
        node.answer_requests(reply)

        def waited() -> int:
            begin = scene.mark(node)
            scene.start(node)
            assert scene.lines(node, begin) == [READY]
            assert node.stop_daemon() == 0
            [sent, *_], [programmed, *_] = (node.journal(begin, call) for call in ("sendto", "bridgeSetTcpSP"))
            return programmed["time"] - sent["time"]

        assert any(waited() < 0.9e9 for _ in range(3))

    def test_empty_reply_is_none(self, node: Node) -> None:
        scene.set_up(node)
        node.answer_requests(b"")
        scene.start(node)
        assert scene.lines(node) == [f"{FAILED}receive failed\n", READY]

    @pytest.mark.parametrize("operation, text", [("socket", "create"), ("sendto", "send")])
    def test_refused_request_is_logged_and_survived(self, node: Node, operation: str, text: str) -> None:
        scene.set_up(node)
        node.fail(f"{operation}:52", errno.ENOBUFS)
        scene.start(node)
        assert scene.lines(node) == [f"{FAILED}{text} failed\n", READY]
        assert node.requests == []
        assert "SetTcpSP br-lan 0" in scene.requests(node)

    def test_refused_address_is_ignored(self, node: Node) -> None:
        scene.set_up(node)
        node.fail("bind:52", errno.EADDRINUSE)
        pid = scene.start(node).pid
        scene.drain(node)
        assert (scene.lines(node), node.requests) == ([READY], [expected(pid)])
