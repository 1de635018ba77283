#!/usr/bin/python3
"""
Compares settings of path selection over random steady homes in closed loop: how near the goodput comes to the ideal,
how many streams move, how often clients are placed, and in how many homes either goes on in the second half, where
nothing has changed for long. Below stand the same homes under simpler ways to use the links. Has no limits: it is there
to choose settings by.
"""
import argparse
import json
import os
import random
import sys
from concurrent.futures import ProcessPoolExecutor
from dataclasses import dataclass, replace
from pathlib import Path
from statistics import mean

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "sim"), str(ROOT / "platform/sim")]

from kolt_sim.beside import WAYS  # noqa: E402
from kolt_sim.compare import SilentView  # noqa: E402
from kolt_sim.judge import repinned  # noqa: E402
from kolt_sim.loop import closed  # noqa: E402
from kolt_sim.record import Placement  # noqa: E402
from kolt_sim.scenario.records import (INTERFACES, Client, Expectation, Fading, Path as Link, Scenario,  # noqa: E402
                                       Stream)

DURATION = 240.0
GRID = [{"adjusted_streams": streams, "delta_threshold": delta}
        for streams, delta in ((2, 10), (1, 10), (1, 20), (1, 30), (1, 40), (2, 30))]
GRID += [{"reserved_ratio": 20}, {"cpu_limit": True}]
TITLES = {"without": "all on 5 GHz", "best_link": "all on the best link", "hash": "plain flow hash",
          "weighted_hash": "weighted flow hash"}
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


@dataclass
class Home:
    """What came of a home: percent of the ideal, changes, what still moves in the second half, and the simpler ways."""
    of_ideal: float
    moves: int
    placements: int
    streams_late: bool
    clients_late: bool
    others: dict[str, float]


def measure(task: tuple[int, dict, Path]) -> Home:
    seed, settings, build = task
    result = closed.run(replace(random_home(seed), settings=settings), SilentView(), build)
    placed = repinned([Placement(**one) for one in result["placements"]])
    judgement = result["judgement"]
    return Home(result["ratios"]["of_ideal"], len(result["moves"]), len(result["placements"]),
                any(move["time"] > DURATION / 2 for move in result["moves"]),
                any(one.time > DURATION / 2 for one in placed),
                {way: 100 * judgement[way]["goodput"] / judgement["ideal"]["goodput"] for way in ("without", *WAYS)})


def row(settings: dict, homes: list[Home]) -> str:
    words = ", ".join(f"{key} {json.dumps(value)}" for key, value in settings.items())
    shares = [home.of_ideal for home in homes]
    late = [[home.streams_late for home in homes], [home.clients_late for home in homes],
            [home.streams_late or home.clients_late for home in homes]]
    return (f"{words:42} {mean(shares):5.1f}  {min(shares):5.1f} {mean(home.moves for home in homes):7.1f}"
            f" {mean(home.placements for home in homes):7.1f}  " + " ".join(f"{sum(one):7}" for one in late))


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", default="build/release")
    parser.add_argument("--homes", type=int, default=30, help="how many (default: %(default)s)")
    parser.add_argument("--settings", type=json.loads, action="append", metavar="JSON",
                        help='settings to compare, such as \'{"delta_threshold": 15}\' (default: a grid)')
    parser.add_argument("--report-only", action="store_true", help="accepted for the sake of the other measurements")
    options = parser.parse_args()
    build = Path(options.build).absolute()
    print(f"{options.homes} steady homes, {DURATION:g} s each; mean and least percent of the ideal; homes in which "
          "streams or clients\nare still moved in the second half\n")
    print(f"{'':42}  mean  least   moves  placed   streams clients  either")
    with ProcessPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        for settings in options.settings or GRID:
            homes = list(pool.map(measure, [(seed, settings, build) for seed in range(options.homes)]))
            print(row(settings, homes), flush=True)
    print("\nthe same homes without the daemon")
    for way, title in TITLES.items():
        shares = [home.others[way] for home in homes]
        print(f"{title:42} {mean(shares):5.1f}  {min(shares):5.1f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
