#!/usr/bin/python3
"""
Measures what kolt-top costs the processor beside 5,000 streams of 250 clients, at its default cadence of two seconds: of
the live table, of plain lines and of JSON. The children that read the driver's files count; the program's start does not.

Ends with status 1 when a mode takes 1 % of a core or more.
"""
import argparse
import json
import os
import pty
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "platform/sim"))

import telling  # noqa: E402

from kolt_node import Node, NodeError, fdb_entry, ha_entry, hd_entry, sample  # noqa: E402
from kolt_node.node import build_directory  # noqa: E402

CLIENTS, STREAMS = 250, 5000
INTERVAL = 2.0  # seconds, the default
READINGS = 12
LIMIT = 1.0  # percent of a core

MODES = {"live": "--live", "plain": "--plain", "json": "--json"}


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=build_directory(), help="build directory (%(default)s)")
    parser.add_argument("--report-only", action="store_true", help="end with status 0 whatever the figures are")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the figures there too")
    telling.add_option(parser)
    return parser.parse_args()


def mac(kind: int, number: int) -> str:
    return f"02:{kind:02x}:00:00:{number >> 8:02x}:{number & 255:02x}"


def crowd(node: Node, indexes: dict[str, int]) -> None:
    """Clients behind the busy uplink, each with its streams and their answers."""
    busy, best = indexes["wlan0.1"], indexes["wlan2.1"]
    clients = [mac(0x30, number) for number in range(CLIENTS)]
    streams = []
    for number in range(STREAMS // 2):
        ends = (mac(0x20, number % 100), clients[number % CLIENTS])
        count = 100 + number * 7919 % 5000
        streams.append(ha_entry(*ends, busy, hash=number & 255, src_port=10000 + number, dst_port=443, packets=count,
                                bytes_=count * 1200))
        streams.append(ha_entry(*ends[::-1], busy, hash=number & 255, src_port=443, dst_port=10000 + number,
                                packets=count, bytes_=count * 60, flags=0x10))
    node.set_table("br-lan", "fdb", [fdb_entry(client, busy) for client in clients])
    node.set_table("br-lan", "hd", [hd_entry(client, best) for client in clients])
    node.set_table("br-lan", "ha", streams)


def give_terminals(node: Node) -> None:
    """A bare root has none, and then the node gets some of its own."""
    try:
        ends = pty.openpty()
    except OSError:
        made = node.run(["/usr/bin/mount", "-t", "devpts", "-o", "newinstance,ptmxmode=0666", "devpts", "/dev/pts"])
        if made.status != 0:
            raise NodeError(f"no terminal: {made.stderr.strip()}") from None
        return
    for end in ends:
        os.close(end)


def cpu_of(node: Node, readings: int) -> dict[str, float]:
    """Processor seconds of each mode with so many readings, all at once. `script` is the live table's terminal."""
    started = {mode: node.spawn(["/usr/bin/script", "-qefc", f"{node.build}/bin/kolt-top {option} --count {readings}",
                                 "/dev/null"], env={"TERM": "xterm"}) for mode, option in MODES.items()}
    for mode, process in started.items():
        node.wait_exit(process, INTERVAL * readings + 30)
        if process.status != 0 or mac(0x30, 1)[:14].upper() not in process.stdout:
            raise NodeError(f"kolt-top {MODES[mode]} ended with status {process.status}: {process.stdout[-300:]}")
    return {mode: process.cpu for mode, process in started.items()}


def measure(node: Node) -> dict[str, dict[str, float]]:
    """What is between a run with one reading and one with more is readings alone."""
    few, many = cpu_of(node, 1), cpu_of(node, READINGS + 1)
    each = {mode: (many[mode] - few[mode]) / READINGS for mode in MODES}
    return {mode: {"ms_per_reading": one * 1000, "percent_of_a_core": one / INTERVAL * 100} for mode, one in each.items()}


def run(options: argparse.Namespace) -> int:
    with Node(options.build) as node:
        indexes = sample.set_up(node)
        node.write_file("/etc/kolt.json", json.dumps(sample.config()))
        crowd(node, indexes)
        give_terminals(node)
        node.stop_journal()
        figures = measure(node)
    print(f"kolt-top beside {STREAMS:,} streams of {CLIENTS} clients, every {INTERVAL:g} s")
    for mode, figure in figures.items():
        print(f"  {mode:<6} {figure['ms_per_reading']:6.2f} ms of processor time a reading, "
              f"{figure['percent_of_a_core']:5.2f} % of a core (limit {LIMIT:g} %)")
    if options.json:
        options.json.write_text(json.dumps(figures, indent=1) + "\n")
    limits = [telling.Limit(f"kolt-top, {mode}", f"{figure['percent_of_a_core']:.2f} % of a core", f"< {LIMIT:g} %",
                            figure["percent_of_a_core"] < LIMIT) for mode, figure in figures.items()]
    telling.note(options.limits, limits)
    return 0 if options.report_only or all(one.kept for one in limits) else 1


def main() -> int:
    try:
        return run(parse_arguments())
    except (NodeError, OSError) as error:
        print(f"top: {error}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
