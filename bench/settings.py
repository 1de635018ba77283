#!/usr/bin/python3
"""
Compares settings of path selection over random steady homes in closed loop: how near the goodput comes to the ideal,
how many streams move, and in how many homes streams still move in the second half, where nothing has changed for long.
Has no limits: it is there to choose settings by.
"""
import argparse
import json
import os
import random
import sys
from concurrent.futures import ProcessPoolExecutor
from dataclasses import replace
from pathlib import Path
from statistics import mean

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "sim"), str(ROOT / "platform/sim")]

from kolt_sim.compare import SilentView  # noqa: E402
from kolt_sim.loop import closed  # noqa: E402
from kolt_sim.scenario.records import (INTERFACES, Client, Expectation, Fading, Path as Link, Scenario,  # noqa: E402
                                       Stream)

DURATION = 240.0
GRID = [{"adjusted_streams": streams, "delta_threshold": delta}
        for streams, delta in ((2, 10), (1, 10), (1, 20), (1, 30), (1, 40), (2, 30))]
RATES = {"2.4g": (144, 286), "5g": (433, 866, 1201), "5g_2": (433, 866, 1201)}


def random_home(seed: int) -> Scenario:
    """Three links of random rates, one to eight clients far and near, and streams that want 55 to 90 % of all links."""
    chance = random.Random(seed)
    links = {kind: Link(kind, INTERFACES[kind], True, chance.choice(rates), chance.randint(0, 30), 55, Fading())
             for kind, rates in RATES.items()}
    capacity = sum(link.rate * 0.55 * (1 - link.neighbours / 100) for link in links.values())
    count = chance.choice([8, 12, 20, 30, 40])
    weights = [chance.uniform(0.5, 1.5) for _ in range(count)]
    unit = chance.uniform(0.55, 0.9) * capacity / sum(weights)
    far = chance.choice([1, 2, 3, 4, 6, 8])
    streams = [Stream(f"s{number}", f"near-{number % 6}", f"far-{number % far}",
                      chance.choice(["download", "upload", "video"]), weight * unit, 0, None, None, None)
               for number, weight in enumerate(weights)]
    clients = [Client(f"far-{number}", "uplink") for number in range(far)]
    clients += [Client(f"near-{number}", "wlan1-a") for number in range(6)]
    return Scenario(name=f"home-{seed}", title="", about="", duration=DURATION, tick=1, seed=seed, default_path="5g",
                    cpu=20, parent_known=True, settings={}, paths=links, clients=clients, streams=streams, events=[],
                    expect=Expectation(storm_without=True), notes=[])


def measure(task: tuple[int, dict, Path]) -> tuple[float, int, bool]:
    """Percent of the ideal, moves, and whether streams moved in the second half."""
    seed, settings, build = task
    result = closed.run(replace(random_home(seed), settings=settings), SilentView(), build)
    late = any(move["time"] > DURATION / 2 for move in result["moves"])
    return result["ratios"]["of_ideal"], len(result["moves"]), late


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", default="build/release")
    parser.add_argument("--homes", type=int, default=30, help="how many (default: %(default)s)")
    parser.add_argument("--settings", type=json.loads, action="append", metavar="JSON",
                        help='settings to compare, such as \'{"delta_threshold": 15}\' (default: a grid)')
    parser.add_argument("--report-only", action="store_true", help="accepted for the sake of the other measurements")
    options = parser.parse_args()
    build = Path(options.build).absolute()
    print(f"{options.homes} steady homes, {DURATION:g} s each   of ideal: mean  least   moves  homes without rest")
    with ProcessPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        for settings in options.settings or GRID:
            rows = list(pool.map(measure, [(seed, settings, build) for seed in range(options.homes)]))
            shares, moves, late = zip(*rows)
            words = ", ".join(f"{key} {value}" for key, value in settings.items())
            print(f"{words:44} {mean(shares):5.1f}  {min(shares):5.1f}  {mean(moves):6.1f}  {sum(late):6}", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
