#!/usr/bin/python3
"""
Lets the daemon live through hours within minutes, on a node that changes all the time: a period every five simulated
seconds with ten events each. Its memory, descriptors and children must stay as they are; what they were at first, in
the median and at last is printed, with what a month would add.
"""
import argparse
import json
import sys
import time
from dataclasses import dataclass
from pathlib import Path
from statistics import median

import builds
from restless_node import EVENTS_A_ROUND, NodeError, RestlessNode, sample

from kolt_node.clock import SimulatedClock
from kolt_node.node import build_directory

PERIOD = 5  # seconds
MONTH = 30 * 24 * 3600 // PERIOD  # periods
WARM_UP = 50  # rounds: by then every kind of change has come about
SAMPLES = 200
# KiB that the last third may lie over the first. A sanitizer's own allocator keeps its free lists; the C library's may
# come to keep the room of one more table's buffer at the heap's end, some hundred periods after the start.
SLACK = {"plain": 64, "sanitized": 4096}
ONE_TABLE, TABLE_KEPT_FROM = 512, 500


@dataclass
class Sample:
    turn: int
    resident: int  # KiB
    descriptors: int
    children: int


def look(node: RestlessNode, turn: int) -> Sample:
    assert node.daemon is not None
    children = Path(f"/proc/{node.daemon.pid}/task/{node.daemon.pid}/children").read_text().split()
    return Sample(turn, node.memory()["rss"], len(node.descriptors()), len(children))


def start(node: RestlessNode, clock: SimulatedClock) -> None:
    node.start_daemon(sample.config(period=PERIOD), ready=False, env=builds.environment())
    clock.attach()


def live(node: RestlessNode, clock: SimulatedClock, periods: int) -> tuple[list[Sample], int]:
    """One round a period; returns what was seen on the way and how many periods passed."""
    every = max(1, (periods - min(WARM_UP, periods // 4)) // SAMPLES)
    seen, passed = [], 0
    for turn in range(1, periods + 1):
        node.change(turn)
        node.disturb(turn)
        clock.settle(60)
        before = clock.deadline
        clock.advance(clock.now + PERIOD, 60)
        if clock.deadline is None or before is None or not clock.now < clock.deadline <= clock.now + PERIOD:
            raise NodeError(f"round {turn}: the next period is due at {clock.deadline}, now is {clock.now}")
        passed += clock.deadline > before
        node.forget()
        if turn > min(WARM_UP, periods // 4) and turn % every == 0:
            seen.append(look(node, turn))
    return seen, passed


def third(values: list[int], number: int) -> float:
    """The median of the first (0), middle (1) or last (2) third."""
    size = max(1, len(values) // 3)
    return median(values[number * size:(number + 1) * size])


def report(seen: list[Sample], periods: int, kind: str) -> tuple[dict, bool]:
    """Prints the figures; whether nothing grew."""
    figures: dict = {}
    for name, unit in (("resident", "KiB"), ("descriptors", ""), ("children", "")):
        values = [getattr(one, name) for one in seen]
        figures[name] = {"first": values[0], "median": median(values), "last": values[-1]}
        print(f"{name + (' ' + unit if unit else ''):16} first {values[0]:>8}  median {median(values):>8g}  "
              f"last {values[-1]:>8}")
    resident = [one.resident for one in seen]
    growth = third(resident, 2) - third(resident, 0)
    slope = growth / (periods * 2 / 3)
    figures["month_growth_kib"] = slope * MONTH
    print(f"growth between the first and the last third: {growth:+g} KiB; a month of {MONTH} periods at that pace: "
          f"{slope * MONTH:+.0f} KiB")
    flat = all(seen[-1].descriptors == one.descriptors and one.children == 0 for one in seen)
    slack = SLACK[kind] + (ONE_TABLE if periods > TABLE_KEPT_FROM else 0)
    return figures, flat and growth <= slack


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=Path, default=build_directory())
    parser.add_argument("--periods", type=int, default=10000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--json", type=Path, metavar="FILE", help="write the figures as data")
    options = parser.parse_args()
    if options.periods < 12:
        parser.error("at least 12 periods are needed to see a difference")
    kind = builds.kind(options.build)
    begin = time.monotonic()
    with RestlessNode(options.build, options.seed) as node, SimulatedClock(node) as clock:
        node.set_up()
        node.use_simulated_clock()
        start(node, clock)
        seen, passed = live(node, clock, options.periods)
        status = node.stop_daemon(timeout=60)
        told = node.stderr()
    if status != 0 or "Sanitizer" in told:
        raise NodeError(f"the daemon ended with status {status}\n{told[-4000:]}")
    print(f"{kind} build: {options.periods} rounds, {passed} of them with a period, "
          f"{options.periods * EVENTS_A_ROUND} events {json.dumps(node.sent)}, {node.calls} calls of the platform, "
          f"{node.restarts} restarts of the bus, {time.monotonic() - begin:.0f} s")
    figures, flat = report(seen, options.periods, kind)
    if options.json:
        content = {"build": kind, "periods": passed, "events": options.periods * EVENTS_A_ROUND, "calls": node.calls}
        options.json.write_text(json.dumps(content | figures, indent=1) + "\n")
    if not flat or passed < options.periods * 0.99:
        print("It did not stay flat." if not flat else "Periods were missed.")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
