"""kolt-bridged as a program on one node: what it checks, what it refuses to do twice, and what it puts back."""
import json
import re
import signal
import time
from collections.abc import Iterable, Iterator
from dataclasses import dataclass

import bpf
import library
import pytest
from kolt_mesh import ports, topology
from kolt_mesh.netns import NetNamespace, batch
from kolt_mesh.node import BRIDGED_PIN, BRIDGED_RUN, MeshNode, build_directory
from kolt_mesh.ports import BRIDGE, ROOT

from kolt_node import Process
from kolt_node.node import BROKER_SOCKET

# Flags that no port has by itself, one of each kind turned over in turn.
ODD = {"wlan1.1": "learning on flood off mcast_flood on bcast_flood off isolated on mcast_router 2",
       "wlan2.1": "learning off flood on mcast_flood off bcast_flood on isolated off mcast_router 0",
       "wlan0-b.1": "learning off flood off mcast_flood off bcast_flood off isolated off mcast_router 2"}
CLIENT = "02:ee:00:00:00:02"
QUICK = ("--interval", "10", "--listen", "10")
FOREIGN = [*"tc filter add dev wlan1.1 ingress prio 7 bpf bytecode".split(), "1,6 0 0 4294967295,"]
SERVICE = ROOT / "packaging/systemd/kolt-bridged.service"
SILENT_BUS = """
import socket, sys
bus = socket.socket(socket.AF_UNIX)
bus.bind(sys.argv[1])
bus.listen()
print("ready", flush=True)
while True:
    one, _ = bus.accept()
    print("asked", flush=True)
    one.recv(1)
    print("left", flush=True)
"""
CHANGING = re.compile(r"used [0-9/]+|\w+_timer +[0-9.]+")


@dataclass
class OneNode:
    home: topology.Topology
    node: MeshNode
    namespace: NetNamespace

    def run(self, *options: str, through: Iterable[str] = ()) -> Process:
        return self.node.run([*through, self.node.build / "bin/kolt-bridged", "-c", "/etc/kolt.json", "--run", BRIDGED_RUN,
                              "--pin", BRIDGED_PIN, *options])

    def flags(self, port: str) -> str:
        return self.namespace.run(["bridge", "-d", "link", "show", "dev", port])

    def is_up(self) -> bool:
        """Whether every port forwards, which is some time after it was set up."""
        return (self.namespace.run(["bridge", "link"]).count("state forwarding") == len(ODD) and
                "state UP" in self.namespace.run(["ip", "link", "show", BRIDGE]))

    def programs(self, *of: str) -> int:
        return sum(bpf.programs(self.namespace, port, hook) for port in of or ODD for hook in bpf.HOOKS)

    def filters(self, port: str) -> str:
        return "".join(self.namespace.run(["tc", "filter", "show", "dev", port, hook]) for hook in bpf.HOOKS)

    def state(self) -> str:
        """All that the kernel says of the node, but for times."""
        asked = ["ip -d link", "bridge -d link", "bridge fdb", "tc qdisc",
                 *(f"tc filter show dev {port} {hook}" for port in ODD for hook in bpf.HOOKS)]
        told = "\n".join(self.namespace.run(words.split()) for words in asked)
        return f"{CHANGING.sub('', told)}\n{self.programs()} programs"

    def files(self, folder: str) -> set[str]:
        parent, name = folder.rsplit("/", 1)
        return set(self.node.list_directory(folder)) if name in self.node.list_directory(parent) else set()

    def unlink(self, port: str) -> None:
        """Takes the port out of the configuration."""
        wanted = json.loads(self.node.read_file("/etc/kolt.json"))
        del wanted["interfaces"][port]
        self.node.write_json("/etc/kolt.json", wanted)

    def disable(self) -> None:
        self.node.write_json("/etc/kolt.json", ports.configuration(self.home, "b") | {"enable": False})

    def start(self, through: Iterable[str] = ()) -> None:
        """Runs kolt-bridged until it has opened the port behind which there is no node."""
        self.node.start_bridged(through)
        self.node.wait_for(lambda: self.flags("wlan0-b.1").count("flood on") == 3, what="an open port")


@pytest.fixture
def one() -> Iterator[OneNode]:
    """An extender with two links upwards and one downwards, at the other ends of which there is nobody."""
    home = topology.parse({"nodes": {"a": {"mode": "FAP"}, "b": {"mode": "RE"}, "c": {"mode": "RE"}}, "hosts": {},
                           "links": [{"between": list(ends), "type": kind}
                                     for ends, kind in (("ab", "5g"), ("ab", "5g_2"), ("bc", "2.4g"))]}, "one")
    namespace = NetNamespace()
    node = MeshNode(home, "b", namespace, build_directory(), 1)
    try:
        for which in ("default", "all"):
            namespace.sysctl(f"ipv6/conf/{which}/disable_ipv6", 1)
        batch("ip", namespace, [f"link add {BRIDGE} address {ports.node_mac(home, 'b')} type bridge forward_delay 0",
                                *(f"link add {name} type veth peer name far{number}" for number, name in enumerate(ODD)),
                                *(f"link set {name} master {BRIDGE}" for name in ODD),
                                *(f"link set {name} up" for name in ODD),
                                *(f"link set far{number} up" for number in range(len(ODD))),
                                f"link set {BRIDGE} up"])
        node.start()
        node.set_up(QUICK)
        fresh = OneNode(home, node, namespace)
        node.wait_for(fresh.is_up, what="the carrier of all links")
        yield fresh
    finally:
        node.close()
        namespace.close()


def odd(one: OneNode) -> dict[str, str]:
    """Gives the ports flags of their own; what the kernel says of them then."""
    batch("bridge", one.namespace, [f"link set dev {port} {flags}" for port, flags in ODD.items()])
    return {port: one.flags(port) for port in ODD}


def with_rights_of_the_service() -> list[str]:
    line = re.search(r"^CapabilityBoundingSet=(.+)$", SERVICE.read_text(), re.MULTILINE)
    assert line
    return ["/usr/bin/setpriv", "--bounding-set", ",+".join(["-all", *line[1].lower().replace("cap_", "").split()])]


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_stop_signal_at_any_moment_of_the_start_ends_it(one, number):
    for pause in range(12):
        process = one.node.spawn([one.node.build / "bin/kolt-bridged", "-c", "/etc/kolt.json", "--run", BRIDGED_RUN,
                                  "--pin", BRIDGED_PIN, *QUICK])
        one.node.wait_for(lambda: process.status is not None or one.files(BRIDGED_RUN), what="a start")
        time.sleep(pause / 400)
        one.node.signal(process, number)
        assert one.node.wait_exit(process, timeout=3.0) == 0, f"after {2.5 * pause} ms"
        one.node.run(["/usr/bin/rm", "-rf", BRIDGED_RUN])


def test_a_release_puts_everything_back_as_it_was_found(one):
    before, state = odd(one), one.state()
    one.start()
    assert one.programs() == 6 or "kolt_ingress" in one.state()
    assert library.ask(one.node, "place", CLIENT, "wlan0-b.1") == {"failed": 0}
    assert f"{CLIENT} dev wlan0-b.1" in one.namespace.run(["bridge", "fdb"])
    assert one.files(BRIDGED_PIN) and "port.wlan1.1" in one.files(BRIDGED_RUN)
    one.node.kill_program("kolt-bridged")
    assert one.flags("wlan0-b.1") != before["wlan0-b.1"]
    released = one.run("--release")
    assert released.status == 0, released.stderr
    assert {port: one.flags(port) for port in ODD} == before
    assert one.state() == state
    assert not one.files(BRIDGED_PIN)
    assert not one.files(BRIDGED_RUN) - {"lock", "socket"}


def test_the_rights_of_the_service_are_enough_to_take_over_and_to_release(one):
    odd(one)
    one.node.run(["/usr/bin/mount", "-t", "bpf", "bpf", "/sys/fs/bpf"])
    state, through = one.state(), with_rights_of_the_service()
    one.start(through)
    held = one.state()
    assert one.programs() == 6 or "kolt_ingress" in held
    one.node.kill_program("kolt-bridged")
    one.start(through)
    assert one.state() == held
    one.node.kill_program("kolt-bridged")
    released = one.run("--release", through=through)
    assert released.status == 0, released.stderr
    assert one.state() == state


def test_ports_that_are_no_links_any_more_are_given_back_at_the_start_and_by_a_release(one):
    before = odd(one)
    one.start()
    one.node.kill_program("kolt-bridged")
    one.unlink("wlan1.1")
    one.start()
    assert one.flags("wlan1.1") == before["wlan1.1"]
    assert one.programs("wlan1.1") == 0 and "kolt_ingress" not in one.filters("wlan1.1")
    assert one.flags("wlan2.1") != before["wlan2.1"]
    one.node.kill_program("kolt-bridged")
    one.unlink("wlan2.1")
    released = one.run("--release")
    assert released.status == 0, released.stderr
    assert {port: one.flags(port) for port in ODD} == before
    assert one.programs() == 0 and "kolt_ingress" not in one.state()


def test_a_release_of_a_node_that_was_never_held_changes_nothing(one):
    odd(one)
    state = one.state()
    assert one.run("--release").status == 0
    assert one.state() == state
    assert not one.files(BRIDGED_PIN)
    assert "work_mode" not in one.node.list_directory("/tmp"), "the rest of the node was told of it"


def test_a_second_one_on_the_same_folder_ends_with_one_line(one):
    one.start()
    held = one.state()
    for action in ((), ("--release",)):
        second = one.run(*action)
        assert second.status == 1
        assert second.stderr.count("\n") == 1 and f"{BRIDGED_RUN}/lock: another kolt-bridged runs" in second.stderr
    assert one.node.bridged.status is None
    assert one.state() == held


def test_what_tells_a_silent_bus_ends_with_its_parent_and_holds_up_no_restart(one):
    bus = one.node.spawn(["/usr/bin/python3", "-c", SILENT_BUS, BROKER_SOCKET])
    one.node.wait_for(lambda: "ready" in bus.stdout, what="the bus")
    for times in range(1, 4):
        one.node.start_bridged()
        one.node.wait_for(lambda: bus.stdout.count("asked") == times, what="somebody who tells the bus")
        one.node.kill_program("kolt-bridged")
    one.node.wait_for(lambda: bus.stdout.count("left") == times, 1.5, "the end of the process that told the bus")


def test_a_disabled_configuration_is_left_alone(one):
    one.disable()
    state = one.state()
    ended = one.run()
    assert ended.status == 0
    told = [(record.level, record.text) for record in one.node.log()]
    assert told == [("Error", "/etc/kolt.json says that kolt is disabled")]
    assert one.state() == state
    assert not one.files(BRIDGED_PIN) and not one.files(BRIDGED_RUN)


def test_a_disabled_configuration_can_still_be_released(one):
    before = odd(one)
    one.start()
    one.node.kill_program("kolt-bridged")
    one.disable()
    assert one.run("--release").status == 0
    assert {port: one.flags(port) for port in ODD} == before


def test_a_check_of_a_fit_node_says_so_and_touches_nothing(one):
    odd(one)
    state = one.state()
    checked = one.run("--check")
    assert checked.status == 0, checked.stdout
    assert checked.stdout.endswith("\nnothing is missing\n") and not re.search(r"^no ", checked.stdout, re.MULTILINE)
    assert one.state() == state
    assert not one.files(BRIDGED_PIN) and not one.files(BRIDGED_RUN)


@pytest.mark.parametrize("setting, obstacle", [
    ("stp_state 1", "br-lan runs a spanning tree"),
    ("group_fwd_mask 8", "br-lan forwards frames that are meant for the other end of a link (group_fwd_mask)")])
def test_a_check_names_what_is_in_the_way(one, setting, obstacle):
    one.namespace.run(f"ip link set {BRIDGE} type bridge {setting}".split())
    state = one.state()
    checked = one.run("--check")
    assert checked.status == 1
    missing = [line.split(maxsplit=1)[1] for line in checked.stdout.splitlines() if line.startswith("no ")]
    assert len(missing) == 1 and missing[0].startswith(obstacle)
    assert checked.stdout.endswith("\nkolt-bridged cannot keep this node free of loops\n")
    assert one.state() == state


def test_a_check_names_the_programs_of_others(one):
    batch("tc", one.namespace, ["qdisc add dev wlan1.1 clsact"])
    one.namespace.run(FOREIGN)
    state = one.state()
    checked = one.run("--check")
    assert re.search(r"^unknown +wlan1\.1: another program stands on it: ", checked.stdout, re.MULTILINE)
    assert checked.status == 0, "they may stay"
    assert one.state() == state


def test_what_others_do_to_a_link_is_undone_within_a_second(one):
    one.start()
    closed = one.flags("wlan1.1")
    batch("bridge", one.namespace, ["link set dev wlan1.1 learning on flood on mcast_flood on bcast_flood on"])
    one.node.wait_for(lambda: one.flags("wlan1.1") == closed, 2, "the flags")


def test_a_start_names_the_programs_of_others(one):
    batch("tc", one.namespace, ["qdisc add dev wlan1.1 clsact"])
    one.namespace.run(FOREIGN)
    one.start()
    one.node.drain()
    told = [record.text for record in one.node.log() if "another program" in record.text]
    assert len(told) == 1 and told[0].startswith("wlan1.1: another program sees what may pass: ")


def test_a_bridge_with_a_spanning_tree_is_refused_in_one_line(one):
    one.namespace.run(f"ip link set {BRIDGE} type bridge stp_state 1".split())
    one.node.start_bridged()
    assert one.programs() == 0
    one.node.drain()
    assert [record.text for record in one.node.log() if "refused" in record.text] == [
        "br-lan: refused: it runs a spanning tree; only one can decide which links carry broadcast (ip link set dev BRIDGE "
        "type bridge stp_state 0)"]
