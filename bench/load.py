#!/usr/bin/python3
"""
Floods the daemon over the bus and its three netlink sockets at once. Everything that was taken must be handled, in
order, and nothing may grow; how long periods had to wait is printed, and what is lost where a buffer is full.
"""
import argparse
import json
import re
import signal
import sys
from pathlib import Path

import builds
import flood
from bus_client import BusClient

from kolt_node import Node, NodeError, wireless_event
from kolt_node.control import PYTHON
from kolt_node.node import BROKER_SOCKET, build_directory

HERE = Path(__file__).resolve().parent
RADIOS = [f"wlan{number}-b" for number in range(4)]
VLANS = {f"{radio}.1": {"type": "5g", "compat_group": 5, "path": True} for radio in RADIOS}
CONFIG = {"enable": True, "bridges": {"br-lan": {"loop_avoidance": True, "path_selection": True}},
          "param": {"period": 1, "wlan_enable": True}, "interfaces": VLANS, "backhual": {}}
SAID, JOURNAL = "/run/kolt-node/said", "/run/kolt-node/journal"
DEBUG = 2
HANDLED = {"bridge": "flush fc flow by mac", "neighbour": " sa: ", "route": "wifi flush table"}  # what the log says
SLACK = {"plain": 64, "sanitized": 4096}  # KiB
LONGEST = 300.0
BUS_SECONDS = 3
MOST = {"plain": 12, "sanitized": 20}  # times the processor that sending takes, for the daemon to handle what is sent
LINK_CHANGES = 500


class FloodedNode(Node):
    """A node whose daemon writes its log to a file, since the way through the node's log would be the slowest part."""

    def set_up(self) -> None:
        self.set_work_mode("RE")
        for name in ("br-lan", *RADIOS, *VLANS):
            self.add_interface(name)
        self.set_bridge("br-lan", VLANS)
        self.start_broker()
        shim = {"LD_PRELOAD": str(self.build / "lib/libkolt-log-file.so")}
        self.start_daemon(CONFIG, env=shim | builds.environment())
        BusClient(self).send("kolt.debug", {"dbg_level": DEBUG})
        self.wait_idle()

    def said(self) -> list[str]:
        return Path(f"/proc/{self._daemon().pid}/root{SAID}").read_text().splitlines()

    def forget(self) -> None:
        """Empties the records, whose size would count as the machine's."""
        for path in (SAID, JOURNAL):
            Path(f"/proc/{self._daemon().pid}/root{path}").write_bytes(b"")
        self._journal.clear()
        self._journal_rest = b""

    def calls(self) -> list[dict]:
        text = Path(f"/proc/{self._daemon().pid}/root{JOURNAL}").read_bytes()
        return [json.loads(line) for line in text.splitlines()]

    def drops(self) -> int:
        """What the kernel threw away of the daemon's link notifications."""
        for line in Path(f"/proc/{self._daemon().pid}/net/netlink").read_text().splitlines()[1:]:
            words = line.split()
            if words[1] == "0" and int(words[2]) == self._daemon().pid:
                return int(words[8])
        raise NodeError("the daemon has no link-notification socket")


def pour(node: FloodedNode, count: int) -> dict:
    """One flood, and what came of it."""
    node.forget()
    used = node.cpu_time()
    indexes = [node.ifindex(radio) for radio in RADIOS]
    sender = node.run([PYTHON, HERE / "flood.py", node.daemon.pid, count, BROKER_SOCKET, *indexes], timeout=LONGEST)
    if sender.status != 0:
        raise NodeError(sender.stderr)
    result = json.loads(sender.stdout)
    result |= {"cpu": node.cpu_time() - used, "sender": sender.cpu}
    node.wait_for(lambda: hellos(node) == expected_hellos(count // 2), LONGEST, "the last event of the bus")
    node.wait_for(lambda: any(begin > result["end"] for begin in period_begins(node)), LONGEST, "another period")
    node.wait_idle(LONGEST)
    return result | {"calls": node.calls(), "said": node.said(), "rss": node.memory()["rss"],
                     "periods": period_begins(node)}


def hellos(node: FloodedNode) -> int:
    return sum("unknown subtype" in line for line in node.said())


def period_begins(node: FloodedNode) -> list[int]:
    return [call["time"] for call in node.calls() if call["call"] == "bridgeTableAction" and call["args"]["code"] == 2]


def expected_hellos(events: int) -> int:
    return events - len(range(0, events, flood.HELLOS))


def numbers(lines: list[str], pattern: str) -> list[int]:
    found = (re.search(pattern, line) for line in lines)
    return [int(match[1].replace(":", ""), 16) for match in found if match]


def check_order(result: dict, count: int) -> list[str]:
    """What was not handled, or in another order than it was taken in."""
    problems = []
    events = count // 2
    mac = r"02:00:((?:[0-9A-F]{2}:){3}[0-9A-F]{2})"
    if numbers(result["said"], f"flush fc flow by mac: {mac}") != list(range(count)):
        problems.append("bridge")
    if numbers(result["said"], f"sa: {mac}") != list(range(count)):
        problems.append("neighbour")
    lost = [call["args"]["ifname"] for call in result["calls"] if call["call"] == "bridgeDelFdbByName"]
    if lost != [f"{RADIOS[one]}.1" for one in flood.choices(count // flood.ROUTE_SHARE, len(RADIOS))]:
        problems.append("route")
    modes = [call["args"]["mode"] for call in result["calls"] if call["call"] == "bridgeSetBridgeMode"]
    wanted = flood.choices(events, len(flood.MODES))[:len(range(0, events, flood.HELLOS))]
    if modes != wanted or sum("unknown subtype" in line for line in result["said"]) != expected_hellos(events):
        problems.append("bus")
    return problems


def longest_wait(result: dict) -> tuple[int, float]:
    """How many periods began while the flood lasted, and the longest time without one from its begin on, in seconds."""
    begins = result["periods"]
    during = [begin for begin in begins if result["begin"] <= begin <= result["end"]]
    moments = [result["begin"], *begins]
    gaps = [later - earlier for earlier, later in zip(moments, moments[1:])]
    return len(during), max(gaps, default=0) / 1e9


def flood_bus(node: FloodedNode) -> str:
    """
    One message of the bus is handled in a turn of the loop, and a period that is due comes between two of them. A netlink
    socket is read until it is empty, so that a flood there is no place to ask for periods.
    """
    node.forget()
    sender = node.run([PYTHON, HERE / "flood.py", "--bus", BUS_SECONDS, BROKER_SOCKET, SAID], timeout=LONGEST)
    if sender.status != 0:
        raise NodeError(sender.stderr)
    result = json.loads(sender.stdout)
    node.wait_for(lambda: hellos(node) == result["sent"], LONGEST, "the last event of the bus")
    periods, wait = longest_wait(result | {"periods": period_begins(node)})
    took = (result["end"] - result["begin"]) / 1e9
    if periods < int(took) // 2:  # some may be late on a busy machine; that none comes is what must not be
        raise NodeError(f"{periods} periods of 1 s in a flood over the bus of {took:.1f} s")
    return (f"flood over the bus alone: {result['sent']} events in {took:.1f} s, {periods} periods of 1 s meanwhile, longest "
            f"time without one: {wait:.1f} s")


def overrun_route(node: FloodedNode) -> str:
    """Link changes while the daemon stands still: what finds no room is lost, and only that."""
    node.signal(node.daemon, signal.SIGSTOP)
    before = node.drops()
    for number in range(LINK_CHANGES):
        node.set_interface_up(RADIOS[0], number % 2 == 1)
    dropped = node.drops() - before
    node.signal(node.daemon, signal.SIGCONT)
    node.wait_idle(LONGEST)
    mark = node.mark()
    node.send_link_notification(RADIOS[1], wireless_event())
    node.wait_calls("bridgeDelFdbByName", since=mark, timeout=10)
    if dropped == 0:
        raise NodeError("no link notification found its buffer full")
    return (f"link notifications: of {LINK_CHANGES} changes of a link while the daemon stood still the kernel dropped "
            f"{dropped} messages; the next one was heard")


def overrun_datagrams(node: FloodedNode) -> str:
    """The simulated node's kernel is told that there is no room, as a real one is; the daemon never hears of it."""
    messages = {"bridge": (39, flood.station(1)), "neighbour": (53, flood.flow(1)),
                "route": (0, flood.expiry(node.ifindex(RADIOS[0])))}
    taken, handled = {}, {}
    for name, (protocol, message) in messages.items():
        node.forget()
        node.signal(node.daemon, signal.SIGSTOP)
        taken[name] = node.call("send", protocol=protocol, port=node.daemon.pid, data=message.hex(), count=100000)
        node.signal(node.daemon, signal.SIGCONT)
        node.wait_idle(LONGEST)
        handled[name] = sum(HANDLED[name] in line for line in node.said())
    if handled != taken:
        raise NodeError(f"taken {taken}, handled {handled}")
    return f"room for messages while the daemon stood still (all of them handled afterwards): {json.dumps(taken)}"


def overrun_bus(node: FloodedNode) -> str:
    """A broker keeps what its client does not take up to a bound, and then ends the connection, which is made anew."""
    bus = BusClient(node)
    node.forget()
    node.signal(node.daemon, signal.SIGSTOP)
    sent = 12000
    for _ in range(sent):
        bus.send("kolt.hello", {"text": "x" * 300})
    node.signal(node.daemon, signal.SIGCONT)
    node.wait_for(lambda: any("ubus connected" in line for line in node.said()), LONGEST, "the next connection")
    node.wait_idle(LONGEST)
    handled = hellos(node)
    bus.send("kolt.hello", {})
    node.wait_idle()
    again = hellos(node) - handled
    lost = sum("ubus connection lost" in line for line in node.said())
    if (again, lost) != (1, 1):
        raise NodeError(f"{again} events heard after {lost} losses of the bus")
    return (f"bus: of {sent} events while the daemon stood still {handled} were handled, the rest was lost with the "
            f"connection, which the broker ended; the next one was heard")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=Path, default=build_directory())
    parser.add_argument("--count", type=int, default=20000, help="messages a netlink socket; half as many over the bus")
    parser.add_argument("--without-losses", action="store_true", help="only the flood")
    parser.add_argument("--pace", action="store_true", help="fail where a message costs the daemon too much")
    options = parser.parse_args()
    kind = builds.kind(options.build)
    with FloodedNode(options.build, keep=(HERE,)) as node:
        node.set_up()
        warm = pour(node, options.count // 4)["rss"]
        result = pour(node, options.count)
        problems = check_order(result, options.count)
        total = sum(result["sent"].values())
        took = (result["end"] - result["begin"]) / 1e9
        periods, wait = longest_wait(result)
        growth = result["rss"] - warm
        print(f"{kind} build: {total} messages in {took:.1f} s {json.dumps(result['sent'])}: {total / took:.0f} a "
              f"second, {result['first_second']} in the first")
        times = result["cpu"] / result["sender"]
        print(f"the daemon used {result['cpu']:.2f} s of a processor: {total / result['cpu']:.0f} messages in each, "
              f"{times:.1f} times what it took to send them")
        if options.pace and times > MOST[kind]:
            raise NodeError(f"the daemon used {times:.1f} times the processor that sending took, where {MOST[kind]} times "
                            "are the most")
        print("handled in order: " + (f"not {problems}" if problems else "all"))
        print(f"periods of 1 s meanwhile: {periods}, longest time without one: {wait:.1f} s; "
              f"resident memory: {growth:+d} KiB")
        print(flood_bus(node))
        if not options.without_losses:
            for overrun in (overrun_datagrams, overrun_route, overrun_bus):
                print(overrun(node))
        status = node.stop_daemon()
    return 0 if not problems and status == 0 and wait <= took + 2 and growth <= SLACK[kind] else 1


if __name__ == "__main__":
    sys.exit(main())
