"""What the daemon takes from its node: descriptors, memory, processor time."""
import os
import time
from pathlib import Path

from kolt_node import IWEVEXPIRED, Node, nlmsghdr, wireless_event
import scene

CLOSE_ON_EXEC = 0o2000000
VALGRIND = Path("/usr/bin/valgrind")


def set_up(node: Node, **how: object) -> None:
    scene.set_up(node)
    node.add_interface("wlan0-b")
    couples = {"eth0": {"couple": "eth1"}, "wlan1.1": {"couple": "wlan1-g"}}
    scene.start(node, scene.config(backhual=couples), **how)


def is_plain(node: Node) -> bool:
    return b"__asan_init" not in (node.build / "bin/kolt").read_bytes()


def fifty_events(node: Node) -> None:
    """Of every kind, good and bad, with refusals among them."""
    station = bytes(6) + bytes([node.ifindex("eth0")]) + bytes(6)
    for at in range(5):
        node.event("kolt.configure", {"mode": ["RE", "AP", "HAP", "x", ""][at]})
        node.event("kolt.debug", {"dbg_level": at})
        node.event("kolt.unknown", {"at": at})
        node.event("kolt.configure")
        node.send_bridge_event(5, station)
        node.send_bridge_event(6 + at % 2)
        node.send_bridge_event(0, raw=nlmsghdr(6, length=400))
        node.send_neighbour(5, station)
        node.send_link_notification("wlan0-b", wireless_event(IWEVEXPIRED))
        if at == 2:
            node.event("kolt.link_state", {"LINK_ETH": 1, "LINK_PLC": 1})
            node.fail("netlink_msg:256", -1)
            node.fail("bridgeSetCouple")
            node.remove_file("/etc/config/tolmux")
            node.write_file("/tmp/work_mode", "{")
        else:
            node.event("kolt.link_state", {})
    node.wait_idle()


class TestDescriptors:
    def test_events_leave_none_behind(self, node: Node) -> None:
        set_up(node)
        before = node.descriptors()
        fifty_events(node)
        assert node.descriptors() == before

    def test_few_are_held_and_none_survives_an_exec(self, node: Node) -> None:
        set_up(node)
        held = node.descriptors()
        assert len(held) <= 10  # standard ones, log, bus, three sockets, the loop's own
        for number in set(held) - {0, 1, 2}:
            info = Path(f"/proc/{node.daemon.pid}/fdinfo/{number}").read_text()
            flags = int(next(line.split()[1] for line in info.splitlines() if line.startswith("flags:")), 8)
            assert flags & CLOSE_ON_EXEC, (number, held[number])

    def test_failed_start_is_repeatable(self, node: Node) -> None:
        """Nothing of a daemon that gave up stands in the way of the next one."""
        scene.set_up(node)
        node.start_broker()
        for call in ("bind:0", "socket:53", "bind:53"):
            node.fail(call, 13)
            assert node.start_daemon(scene.config()).status == 1
            node.clear_failures()
        assert node.start_daemon(scene.config()).status is None


class TestMemory:
    def test_no_error_and_no_leak_over_fifty_events(self, node: Node) -> None:
        """Valgrind looks at a plain build; a sanitized one is looked at by its own checkers."""
        plain = is_plain(node)
        assert VALGRIND.exists()
        set_up(node, valgrind=plain)
        fifty_events(node)
        assert node.stop_daemon(timeout=30) == 0
        if plain:
            report = node.valgrind_report()
            assert "ERROR SUMMARY: 0 errors" in report
            assert "no leaks are possible" in report or "definitely lost: 0 bytes" in report

    def test_failed_start_leaks_nothing(self, node: Node) -> None:
        scene.set_up(node)
        node.start_broker()
        plain = is_plain(node)
        node.fail("bind:53", 98)
        assert node.start_daemon(scene.config(), valgrind=plain).status == 1
        assert not plain or "ERROR SUMMARY: 0 errors" in node.valgrind_report()

    def test_memory_does_not_grow_with_events(self, node: Node) -> None:
        """A sanitized build keeps what was freed in quarantine for a while, here a short one."""
        quarantine = os.environ.get("ASAN_OPTIONS", "") + ":quarantine_size_mb=1:thread_local_quarantine_size_kb=64"
        set_up(node, env={"ASAN_OPTIONS": quarantine})
        node.send_bridge_event(6, count=200)
        node.wait_idle()
        before = node.memory()["rss"]
        node.send_bridge_event(6, count=2000)
        node.wait_idle(20)
        assert node.memory()["rss"] - before <= (64 if is_plain(node) else 4096)


class TestProcessor:
    def test_idle_daemon_uses_none(self, node: Node) -> None:
        set_up(node)
        before = node.cpu_time()
        time.sleep(1)
        assert node.cpu_time() == before
