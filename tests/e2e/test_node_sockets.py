"""Netlink as the node offers it: requests to its kernel, messages to a daemon, and sockets that are left alone."""
import re

import pytest

from kolt_node import IWEVEXPIRED, Node, Process, link_message, nlmsghdr, wireless_event
from probe import probe, values

REQUEST = nlmsghdr(13, b"\x01\x02\x03\x04", length=20)


class TestKernelRequests:
    def request(self, node: Node, timeout: int = 1000, times: int = 1) -> Process:
        return probe(node, "request", REQUEST.hex(), timeout, times)

    def test_request_is_recorded_and_acknowledged(self, node: Node) -> None:
        answer = values(self.request(node))
        assert (answer["bind"], answer["sent"], answer["poll"]) == ("0", "20", "1")
        assert answer["reply"].startswith("2400000002000000")
        assert node.requests == [REQUEST]

    def test_send_is_journalled_with_type_and_payload(self, node: Node) -> None:
        self.request(node)
        (sent,) = node.journal(call="sendto")
        assert sent["result"] == 20
        assert sent["args"] == {"protocol": 52, "port": 0, "size": 20, "type": 13, "length": 20, "flags": 0, "pid": 0,
                                "payload": "01020304"}

    def test_descriptor_works_with_fcntl_and_setsockopt(self, node: Node) -> None:
        answer = values(self.request(node))
        assert (answer["nonblock"], answer["sndbuf"], answer["rcvbuf"]) == ("0", "0", "0")

    def test_scripted_reply_comes_as_it_is(self, node: Node) -> None:
        node.answer_requests(b"\x01\x02\x03")
        assert values(self.request(node))["reply"] == "010203"

    def test_empty_reply_is_possible(self, node: Node) -> None:
        node.answer_requests(b"")
        answer = values(self.request(node))
        assert (answer["poll"], answer["reply"]) == ("1", "")

    def test_silent_kernel_still_takes_the_request(self, node: Node) -> None:
        node.answer_requests(silent=True)
        answer = values(self.request(node, timeout=50))
        assert (answer["sent"], answer["poll"]) == ("20", "0")
        node.wait_for(lambda: node.requests == [REQUEST])
        node.answer_requests()
        assert values(self.request(node))["poll"] == "1"

    def test_a_socket_per_request_leaves_nothing_behind(self, node: Node) -> None:
        done = self.request(node, times=200)
        assert set(re.findall(r"^(bind|poll) (.*)$", done.stdout, re.MULTILINE)) == {("bind", "0"), ("poll", "1")}
        assert len(node.requests) == 200

    def test_send_can_fail(self, node: Node) -> None:
        node.fail("sendto:52", 105)
        assert values(self.request(node, timeout=0))["sent"] == "-1"
        assert node.requests == []


class TestMessagesToADaemon:
    def listen(self, node: Node, protocol: int, count: int = 1) -> Process:
        node.daemon = node.spawn([node.build / "bin/node-probe", "listen", str(protocol), str(count)])
        node.wait_for(lambda: "cloexec" in node.daemon.stdout)
        return node.daemon

    def received(self, node: Node) -> list[str]:
        assert node.wait_exit(node.daemon) == 0
        return re.findall(r"^datagram (.*)$", node.daemon.stdout, re.MULTILINE)

    def test_type_flags_are_honoured(self, node: Node) -> None:
        assert "cloexec 1 nonblock 1" in self.listen(node, 39).stdout

    def test_bridge_event_arrives_on_39(self, node: Node) -> None:
        self.listen(node, 39)
        node.send_bridge_event(5, b"\x01\x02\x03")
        assert self.received(node) == ["13000000" + "0500" + "00" * 10 + "010203"]

    def test_neighbour_message_arrives_on_53(self, node: Node) -> None:
        self.listen(node, 53)
        node.send_neighbour(4, b"\xff")
        assert self.received(node) == ["11000000" + "0400" + "00" * 10 + "ff"]

    @pytest.mark.parametrize("protocol", [39, 53])
    def test_any_datagram_can_be_sent(self, node: Node, protocol: int) -> None:
        self.listen(node, protocol, 2)
        send = node.send_bridge_event if protocol == 39 else node.send_neighbour
        send(0, raw=b"")
        send(0, raw=b"\x08")
        assert self.received(node) == ["", "08"]

    def test_many_messages_wait_in_the_queue(self, node: Node) -> None:
        self.listen(node, 39, 3000)
        node.send_bridge_event(5, bytes(13), count=3000)
        assert len(self.received(node)) == 3000

    def test_link_notification_arrives_on_route_netlink(self, node: Node) -> None:
        index = node.add_interface("wlan0")
        self.listen(node, 0)
        node.send_link_notification("wlan0", wireless_event(IWEVEXPIRED))
        message = link_message(index, wireless_event(IWEVEXPIRED))
        assert self.received(node) == [message.hex()]
        assert message[16:32] == bytes([0, 0, 1, 0]) + index.to_bytes(4, "little") + bytes(8)
        assert message[32:40] == bytes.fromhex("1c000b00" + "1800048c")

    def test_sending_to_nobody_is_an_error(self, node: Node) -> None:
        self.listen(node, 39)
        with pytest.raises(OSError, match="nobody listens on protocol 53"):
            node.send_neighbour(4)

    def test_bind_is_journalled_with_its_port(self, node: Node) -> None:
        pid = self.listen(node, 39).pid
        assert node.journal(call="bind")[0]["args"] == {"protocol": 39, "pid": pid, "groups": 0}

    def test_taken_port_is_refused_as_in_netlink(self, node: Node) -> None:
        node.fail("bind:39", 98)
        node.daemon = node.spawn([node.build / "bin/node-probe", "listen", "39", "1"])
        node.wait_for(lambda: "bind 98" in node.daemon.stdout)


class TestSockets:
    def test_only_the_missing_protocols_are_simulated(self, node: Node) -> None:
        done = probe(node, "sockets")
        assert done.stdout.split("\n")[:8] == [
            "16:0 error 0 domain 16", "16:39 error 0 domain 1", "16:52 error 0 domain 1", "16:53 error 0 domain 1",
            "16:31 error 93 domain -1", "2:0 error 0 domain 2", "17:0 error 0 domain 17", "1:0 error 0 domain 1"]

    @pytest.mark.parametrize("name, kind", [("0", "16:0"), ("39", "16:39"), ("52", "16:52"), ("53", "16:53"),
                                            ("inet", "2:0"), ("packet", "17:0")])
    def test_each_socket_can_be_refused(self, node: Node, name: str, kind: str) -> None:
        node.fail(f"socket:{name}", 24)
        refused = [line for line in probe(node, "sockets").stdout.splitlines() if "error 24" in line]
        assert refused == [f"{kind} error 24 domain -1"]

    def test_raw_frame_is_journalled_and_can_fail(self, node: Node) -> None:
        index = node.add_interface("wlan0")
        node.fail("sendto:packet", 105, nth=1)
        done = probe(node, "frame", "wlan0", 2)
        assert done.stdout == "sent -1\nsent 100\n"
        sent = node.journal(call="sendto")[1]["args"]
        assert (sent["ifindex"], sent["destination"], sent["size"]) == (index, "02:00:00:00:00:0a", 100)
