"""Random nodes: what the daemon does to their bridges is what a plain model of path selection says."""
import contextlib
import random
import re
from collections.abc import Iterator
from dataclasses import asdict
from pathlib import Path

import pytest

import path_scene as paths
from kolt_node import fdb_entry, ha_entry, hd_entry
from path_model import Bridge, Interface, Model, Param, Stream, World
from path_scene import CAP, LOCAL, PathNode, Period
from scene import SANITIZER_WORDS, TYPES

STREAM = re.compile(r"hash: (\d+), .*num_bytes: (\d+), num_pkts: (\d+)")
NODES, BRIDGES, PERIODS = 4, 8, 3
ENOUGH = {"flush": 10, "hd": 100, "ha": 50}  # calls, lest the dice leave something out
RATES = [None, 0, 5, 12, 12, 13, 20, 21, 58, 144, 300, 300, 600, 866, 866, 1201, 70000]
LOADS = [0, 10, 10, 20, 20, 40, 60, 70, 71, 80, 81, 90, 90, 95, 100, 101]
BYTES = [0, 1, 63999, 64000, 300000, 400000, 700000, 1000000, 1000000, 2000000, 5000000, 29999999]
SMALL = [63999, 64000, 128000, 190000, 200000]
ENORMOUS = [60000000, 4000000000]


@pytest.fixture(scope="module")
def nodes(build: Path) -> Iterator[list[PathNode]]:
    """Several, so that there are as many random settings."""
    with contextlib.ExitStack() as stack:
        fleet = [stack.enter_context(PathNode(build)) for _ in range(NODES)]
        yield fleet
        for node in fleet:
            assert node.stop_daemon() == 0
            for process in node.processes.values():
                assert not any(word in process.stderr for word in SANITIZER_WORDS), process.stderr


class RandomNode:
    """A node, its model, and the dice that both are made with."""

    def __init__(self, node: PathNode, seed: int) -> None:
        self.node = node
        self.dice = random.Random(seed)
        self.param = self.random_param()
        self.model = Model(self.param)
        self.world = World({}, [True] * 5, {})
        paths.set_up(node, bridges=[], ports=[])
        self.bridges = [self.random_bridge(number) for number in range(BRIDGES)]
        self.change()
        interfaces = {port.name: {"type": TYPES[port.type], "nonrelay": not port.relay, "path": port.path,
                                  "class": port.cls, "priority": port.priority}
                      for bridge in self.bridges for port in bridge.ports}
        node.begin(paths.config(interfaces, **asdict(self.param),
                                bridges={bridge.name: {"path_selection": True} for bridge in self.bridges}))

    def random_param(self) -> Param:
        pick = self.dice.choice
        return Param(high_threshold=pick([40, 70, 70]), delta_threshold=pick([0, 10, 10]),
                     reserved_ratio=pick([0, 0, 10, 50]), adjusted_streams=pick([1, 2, 20, 20, 20]),
                     adjusted_ratio=pick([1, 50, 50, 100]), rate_abnormal_threshold=pick([13, 150]),
                     wifi_rate_check=pick([True, True, False]), estimate_ack_enable=pick([True, False]),
                     cpu_limit=pick([True, False]))

    def random_bridge(self, number: int) -> Bridge:
        """Uplinks of the three kinds in any order, perhaps two of one kind, beside other ports."""
        name = f"br{number}"
        self.world.indexes[name] = self.node.add_interface(name, mac=paths.bridge_mac(number))
        kinds = [2, 3, 4, self.dice.choice([0, 1, 2, 3, 4]), self.dice.choice([0, 1, 2, 3])]
        ports = [self.random_port(f"w{number}{chr(97 + at)}.{self.dice.choice('1111112')}", kind, at >= 3)
                 for at, kind in enumerate(kinds)]
        self.dice.shuffle(ports)
        self.node.set_bridge(name, [port.name for port in ports])
        return Bridge(name, ports, [], [], [])

    def random_port(self, name: str, kind: int, any_kind: bool) -> Interface:
        self.world.indexes[name] = self.node.add_interface(name)
        chance = self.dice.random
        return Interface(name, kind, self.world.indexes[name], relay=any_kind and chance() < 0.4,
                         path=chance() < 0.95, cls=int(chance() < 0.05), priority=self.dice.choice([0, 0, 1, 2, 10]))

    def change(self) -> None:
        """Another moment: links, radios, counters, clients, streams."""
        dice = self.dice
        self.world.links = [dice.random() < 0.9 for _ in TYPES]
        for kind, up in zip(TYPES, self.world.links):
            self.node.set_link(kind, int(up))
        for bridge in self.bridges:
            for port in bridge.ports:
                self.change_port(port)
            self.change_tables(bridge)
        text = "".join(f"  {name}: {c[0]} {c[1]} 0 0 0 0 0 0 {c[2]} {c[3]} 0 0 0 0 0 0\n"
                       for name, c in self.world.counters.items())
        self.node.write_file("/proc/net/dev", text)

    def change_port(self, port: Interface) -> None:
        dice = self.dice
        rate = dice.choice(RATES)
        port.rate, port.util = rate if rate is None else rate & 0xFFFF, dice.choice(LOADS)
        stations = [] if rate is None else [{"mac": CAP, "tx": rate, "rx": dice.choice([1, 433])}]
        self.node.set_driver_files(port.base, TYPES[port.type], stations, port.util)
        old = self.world.counters.get(port.name, (0, 0, 0, 0))
        grown = [dice.choice([0, 1000, 200000, 200000, 200000, 2500000]), dice.choice([0, 10, 900]),
                 dice.choice([0, 500, 100000]), dice.choice([0, 3, 300])]
        self.world.counters[port.name] = (old[0] + grown[0], old[1] + grown[1], old[2] + grown[2], old[3] + grown[3])

    def change_tables(self, bridge: Bridge) -> None:
        dice, node = self.dice, self.node
        indexes = [port.index for port in sorted(bridge.ports, key=lambda port: (not port.path, -port.util))]
        macs = [f"02:30:00:00:{bridge.name[2]}0:{number:02x}" for number in range(5)]
        bridge.fdb = [(mac, dice.choice([*indexes, *indexes, 9999]), dice.random() < 0.1) for mac in macs]
        bridge.pinned = [(mac, dice.choice(indexes)) for mac in macs if dice.random() < 0.85]
        bridge.streams = []
        small = dice.random() < 0.4  # many small ones of few hosts fill their lists, and many of them may move
        for number in range(dice.choice([20, 60, 90])):
            bridge.streams += self.random_streams(number, macs[:2] if small else macs, indexes,
                                                  SMALL if small else BYTES)
        node.set_table(bridge.name, "fdb", [fdb_entry(mac, port, local=local) for mac, port, local in bridge.fdb])
        node.set_table(bridge.name, "hd", [hd_entry(mac, port) for mac, port in bridge.pinned])
        node.set_table(bridge.name, "ha", [
            ha_entry(one.src, one.dst, one.port, hash=one.hash, src_port=one.src_port, dst_port=one.dst_port,
                     packets=one.packets, bytes_=one.bytes, flags=one.flags) for one in bridge.streams])

    def random_streams(self, number: int, macs: list[str], indexes: list[int], sizes: list[int]) -> list[Stream]:
        """One to a client, often on the busiest port, and sometimes what answers it, perhaps not quite."""
        dice = self.dice
        host, port = dice.choice(macs), dice.choice([*indexes[:1] * 8, *indexes])
        there = Stream(LOCAL, host, port, number, 1000 + number, 443, dice.choice([0, 1, 500, 100000]),
                       dice.choice(sizes if dice.random() < 0.97 else ENORMOUS) + number % 2,
                       dice.choice([0, 0, 0, 0x20]))
        back = Stream(host, LOCAL, port, 1000 + number, 443 + (dice.random() < 0.1), 1000 + number,
                      dice.choice([0, 7]), dice.choice(BYTES), dice.choice([0x10, 0x10, 0]))
        return [there, back][:1 + (dice.random() < 0.4)] if dice.random() < 0.8 else [back, there]


def done(period: Period, bridge: str) -> list[tuple]:
    """What the daemon did to a bridge, as the model has it."""
    told = []
    for entry in period.calls:
        args = entry["args"]
        if args.get("bridge") != bridge:
            continue
        match entry["call"]:
            case "bridgeFlushHATable":
                told.append(("flush",))
            case "bridgeAddHDTableEntries":
                told.append(("hd", args["client_mac"], args["ifname"]))
            case "bridgeSetHATableEntries":
                told.append(("ha", args["hash"], args["src_port"], args["ifname"]))
    return told


def test_random_bridges_are_treated_as_the_model_says(nodes: list[PathNode]) -> None:
    counts = {"flush": 0, "hd": 0, "ha": 0}
    fleet = [RandomNode(node, 20240 + number) for number, node in enumerate(nodes)]
    for number in range(PERIODS):
        for at, one in enumerate(fleet):
            if number > 0:
                one.change()
            period = one.node.period()
            balanced = []
            for bridge in one.bridges:
                expected = one.model.period(bridge, one.world)
                assert done(period, bridge.name) == expected, (at, number, bridge, one.param)
                balanced += one.model.balanced
                for call, *_ in expected:
                    counts[call] += 1
            assert [tuple(map(int, STREAM.search(line).groups())) for line in period.lines if "ha[" in line] == balanced
            assert len(period.requests) == len(period.find("bridgeSetHATableEntries"))
            added = period.says("path_selection_update_uplink_hd_table")
            assert len(added) == len(period.hd()), (at, number)
            moves = [line for line in period.says("path_selection_update_ha_entry") if "set ha entry success" in line]
            assert len(moves) == len(period.ha()), (at, number)
    assert all(counts[call] >= least for call, least in ENOUGH.items()), counts
