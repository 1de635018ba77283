#!/usr/bin/python3
"""
A run that is made up: plausible frames without a node, for the tests of the command and its views.

As a program it is kolt-sim on such runs. The seed of a scenario chooses what comes of it:
  1  as expected    2  an expectation is missed    3  a storm with the daemon    4  the node cannot be had
  5  the run ends unexpectedly               6  as expected, a second for each tick
"""
import math
import sys
import time
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
if __name__ == "__main__":
    sys.path[:0] = [str(TOP / "sim"), str(TOP / "platform/sim")]

from kolt_node import NodeError  # noqa: E402
from kolt_sim.record import Frame, Move, PathFrame, Placement, Recorder  # noqa: E402
from kolt_sim.scenario.records import WIFI, Scenario  # noqa: E402

MISSED, STORMY, REFUSED, BROKEN, SLOW = 2, 3, 4, 5, 6
STORM = range(12, 15)  # ticks of a stormy run
WAYS = {"best_link": 0.6, "hash": 0.7, "weighted_hash": 0.92}  # of the demand, by the simpler ways


def fake_run(scenario: Scenario, view: object, build: object = None, speed: float = 0) -> dict:
    if scenario.seed == REFUSED:
        raise NodeError("this machine does not allow the namespaces that a simulated node needs")
    if scenario.seed == BROKEN:
        raise KeyError("mistake")
    recorder = Recorder()
    if scenario.seed == SLOW:
        speed = scenario.tick
    view.start(scenario)
    for number in range(round(scenario.duration / scenario.tick)):
        frame = fake_frame(scenario, number)
        recorder.add(frame)
        view.frame(frame)
        if speed:
            time.sleep(scenario.tick / speed)
    return fake_result(scenario, recorder)


def fake_frame(scenario: Scenario, number: int) -> Frame:
    """The daemon places all clients in the fifth tick and moves a stream in every twentieth."""
    now = number * scenario.tick
    paths = [fake_path(path, place, now) for place, path in enumerate(scenario.paths.values())]
    demand = sum(stream.demand for stream in scenario.streams)
    frame = Frame(now, paths, demand, 0.9 * demand, 0.4 * demand, 0.95 * demand)
    if number == 5:
        frame.placements = [Placement(now, client.name, paths[-1].name) for client in scenario.clients]
    if number % 20 == 10:
        moved = scenario.streams[number // 20 % len(scenario.streams)]
        frame.moves = [Move(now, moved.name, moved.client, paths[0].name, paths[-1].name)]
    frame.events = [f"link {event.path} {'up' if event.up else 'down'}" for event in scenario.events
                    if now <= event.at < now + scenario.tick]
    loop = [path.name for path in paths[-2:]]
    frame.storm = loop if scenario.seed == STORMY and number in STORM else []
    frame.storm_without = loop
    return frame


def fake_path(path: object, place: int, now: float) -> PathFrame:
    wifi = path.type in WIFI
    busy = 55 + 40 * math.sin(now / 17 + place)
    return PathFrame(path.name, path.type, path.up, path.rate, path.neighbours if wifi else 0.0,
                     busy if path.up else 0.0, 12.5 + place if wifi and now >= 5 else None,
                     busy * path.rate / 200 if path.up else 0.0, 3 + place, 2 + place, place == 0)


def fake_figures(goodput: float, demand: float, **other: object) -> dict:
    plain = {"goodput": goodput, "demand": demand, "worst_client": {"name": "tv-1", "share": 50.0}, "moves": 0,
             "bounces": 0, "placements": 0, "client_bounces": 0, "calm": 100.0, "changes": 0,
             "relief": None, "overloads": 0, "unrelieved": 0, "storm_seconds": 0.0}
    return plain | other


def fake_result(scenario: Scenario, recorder: Recorder) -> dict:
    demand = sum(stream.demand for stream in scenario.streams)
    storm = len(STORM) * scenario.tick if scenario.seed == STORMY else 0.0
    series = recorder.series()
    series["total"] |= {way: [share * demand] * len(recorder.time) for way, share in WAYS.items()}
    about = {key: getattr(scenario, key) for key in ("name", "title", "about", "duration", "tick", "seed", "notes")}
    return {
        "format": 1, "scenario": about | {"period": 5.0, "high_threshold": 70, "default_path": scenario.default_path},
        "series": series, "moves": [vars(move) for move in recorder.moves],
        "placements": [vars(placement) for placement in recorder.placements], "events": recorder.events,
        "judgement": {
            "with": fake_figures(0.9 * demand, demand, moves=len(recorder.moves), changes=len(recorder.moves) + 2,
                                 placements=len(recorder.placements), client_bounces=1, calm=75.0,
                                 overloads=2, relief=7.0, storm_seconds=storm,
                                 worst_client={"name": "tv-2", "share": 81.5}),
            "without": fake_figures(0.4 * demand, demand, changes=8, relief=scenario.duration, overloads=1,
                                    unrelieved=1, storm_seconds=scenario.duration),
            "best_link": fake_figures(WAYS["best_link"] * demand, demand, changes=1),
            "hash": fake_figures(WAYS["hash"] * demand, demand, changes=4, storm_seconds=scenario.duration,
                                 goodput_range=[0.5 * demand, 0.8 * demand],
                                 worst_client={"name": "tv-1", "share": 20.0}),
            "weighted_hash": fake_figures(WAYS["weighted_hash"] * demand, demand, changes=6,
                                          storm_seconds=scenario.duration,
                                          goodput_range=[0.8 * demand, 0.95 * demand],
                                          worst_client={"name": "tv-1", "share": 60.0}),
            "ideal": fake_figures(0.95 * demand, demand, worst_client={"name": "tv-1", "share": 90.0})},
        "ratios": {"gain": 2.25, "of_ideal": 94.7, "by_best_link": 1.5, "by_hash": 1.286,
                   "by_weighted_hash": 0.978},
        "expectations": [
            {"what": "no storm with the daemon", "measured": f"{storm:g} s of storm", "met": storm == 0},
            {"what": "goodput gain at least 1.5", "measured": "2.25", "met": True},
            {"what": "bounces at most 0", "measured": "4" if scenario.seed == MISSED else "0",
             "met": scenario.seed != MISSED}],
        "wall_seconds": 4.2}


if __name__ == "__main__":
    from kolt_sim.cli import main
    sys.exit(main(run=fake_run))
