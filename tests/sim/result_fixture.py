"""Results made up for the tests of the views: plausible, without a daemon, the same every time."""
import math
import random
import sys
from pathlib import Path

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / part) for part in ("sim", "platform/sim")]

from kolt_sim.record import RESULT_FORMAT, Frame, Move, PathFrame, Placement, Recorder  # noqa: E402

PATHS = {"ethernet": ("eth0", 940), "plc": ("plc0", 180), "2.4g": ("wlan0.1", 300), "5g": ("wlan1.1", 1200),
         "5g_2": ("wlan2.1", 1700)}
NAMES = [name for name, _ in PATHS.values()]
DEFAULT = "wlan1.1"
CABLE = (240, 420)  # seconds between which the Ethernet link is up
CLIENTS = 12
WAYS = {"best_link": 0.55, "hash": 0.7, "weighted_hash": 0.96}  # of the ideal goodput


def busy_home(ticks: int = 600, seed: int = 7, kinds: list[str] | None = None) -> dict:
    """A home with five paths whose streams start on 5 GHz, overload it and are moved; a cable comes and goes."""
    chosen = random.Random(seed)
    recorder = Recorder()
    present = {kind: PATHS[kind] for kind in kinds or PATHS}
    for time in range(ticks):
        recorder.add(_frame(float(time), ticks, present, chosen))
    return _result(recorder, "Busy home with a cable that comes and goes",
                   "Twelve phones watch video through one node. A cable is plugged in for three minutes.",
                   {"bounces": 2, "relief": 38.0, "overloads": 2})


def plain_home(ticks: int = 60, kinds: list[str] | None = None) -> dict:
    """A run in which nothing happened: no moves, no placements, no events, no quotas, no storm."""
    recorder = Recorder()
    for time in range(ticks):
        paths = [PathFrame(name, kind, True, rate, 0, 12.5, None, 40.0, 3, 0, True)
                 for kind, (name, rate) in PATHS.items() if kind in (kinds or PATHS)]
        recorder.add(Frame(float(time), paths, 45.0, 40.0, 40.0, 45.0))
    return _result(recorder, "Quiet home", "Hardly any traffic, and nothing happens.", {})


def _frame(time: float, ticks: int, present: dict, chosen: random.Random) -> Frame:
    cable = "ethernet" in present and CABLE[0] <= time < CABLE[1]
    load = _load(time, ticks, cable)
    paths = [_path(time, kind, name, rate, load, cable, chosen) for kind, (name, rate) in present.items()]
    demand = 520 + 60 * math.sin(time / 90) + chosen.uniform(-15, 15)
    ideal = demand * 0.97
    share = 0.62 if time < 40 else 0.95 if not 420 <= time < 432 else 0.7
    storm = ["eth0", "wlan1.1"] if cable else []
    return Frame(time, paths, demand, demand * share, 12.0 if storm else 260 + chosen.uniform(-8, 8), ideal,
                 moves=_moves(int(time), cable, chosen) if len(present) > 1 else [],
                 placements=_placements(int(time), list(present.values())), events=_events(int(time), ticks),
                 storm_without=storm)


def _load(time: float, ticks: int, cable: bool) -> dict[str, float]:
    """Percent of each path's capacity that is asked for."""
    relieved = min(1.0, max(0.0, (time - 20) / 60))
    load = {"eth0": 45.0 if cable else 0.0, "plc0": 18 * relieved, "wlan0.1": 10 + 38 * relieved,
            "wlan1.1": 99 - 42 * relieved, "wlan2.1": 6 + 55 * relieved}
    return {name: value * (0.45 if cable and name != "eth0" else 1) for name, value in load.items()}


def _path(time: float, kind: str, name: str, rate: float, load: dict, cable: bool, chosen: random.Random) -> PathFrame:
    wireless = kind not in ("ethernet", "plc")
    up = cable if kind == "ethernet" else True
    fading = 1 - 0.2 * (1 + math.sin(time / 35 + rate)) / 2 if wireless else 1.0
    used = min(100.0, max(0.0, load[name] + chosen.uniform(-4, 4))) if up else 0.0
    quota = max(0.0, 70 - used) if wireless and time >= 5 else None
    clients = CLIENTS if kind == "5g" and time >= 10 else 0
    if kind == "5g_2" and time >= 60:
        clients = 5
    elif kind == "5g" and time >= 60:
        clients = 7
    broadcast = kind == "ethernet" if cable else kind == "5g"
    return PathFrame(name, kind, up, rate * fading, 15.0 if wireless else 0.0, used, quota,
                     used / 100 * rate * fading * 0.28, int(used / 4), clients, broadcast)


def _moves(time: int, cable: bool, chosen: random.Random) -> list[Move]:
    if 20 <= time < 80 and time % 5 == 0:
        return [_move(time, DEFAULT, chosen.choice(["wlan2.1", "wlan0.1"]), chosen) for _ in range(1 + time % 3)]
    if time in (245, 250):
        return [_move(time, "wlan2.1", "eth0", chosen) for _ in range(7)]
    if time in (422, 425, 430):
        return [_move(time, "", chosen.choice(["wlan1.1", "wlan2.1", "plc0"]), chosen) for _ in range(4)]
    return []


def _move(time: int, origin: str, target: str, chosen: random.Random) -> Move:
    number = chosen.randrange(1, 60)
    return Move(float(time), f"video-{number}", f"phone-{number % CLIENTS + 1}", origin, target)


def _placements(time: int, present: list) -> list[Placement]:
    names = [name for name, _ in present]
    if time == 10:
        return [Placement(10.0, f"phone-{number}", names[-1]) for number in range(1, CLIENTS + 1)]
    if time == 60:
        return [Placement(60.0, f"phone-{number}", names[0]) for number in range(1, 6)]
    return []


def _events(time: int, ticks: int) -> list[str]:
    happened = {15: "client phone-3 to uplink",
                120: "neighbours of 5g go to 40 %", 126: "neighbours of 2.4g go to 20 %",
                CABLE[0]: "link ethernet up", CABLE[1]: "link ethernet down", 423: "client phone-7 leaves",
                426: "client phone-8 leaves", 540: "rate of 5g_2 goes to 800 Mbit/s"}
    return [happened[time]] if time in happened and time < ticks else []


def _result(recorder: Recorder, title: str, about: str, with_: dict) -> dict:
    ticks, moves = len(recorder.time), [vars(move) for move in recorder.moves]
    total = {column: round(sum(values) / ticks, 2) for column, values in recorder.total.items()}
    storm = {"with": 0.0, "without": float(sum(map(bool, recorder.storm_without))), "ideal": 0.0}
    quiet = {"moves": 0, "bounces": 0, "placements": 0, "client_bounces": 0, "calm": 100.0, "changes": 0,
             "relief": None, "overloads": 0, "unrelieved": 0}
    judgement = {side: {"goodput": total[column], "demand": total["demand"], "storm_seconds": storm[side],
                        "worst_client": {"name": "phone-7", "share": share}, **quiet}
                 for side, column, share in (("with", "goodput", 81.4), ("without", "without", 12.0),
                                             ("ideal", "ideal", 97.0))}
    for way, goodput in WAYS.items():
        column = [goodput * ideal for ideal in recorder.total["ideal"]]
        recorder.total[way] = column
        judgement[way] = judgement["without"] | {"goodput": round(sum(column) / ticks, 2), "changes": 5,
                                                 "worst_client": {"name": "phone-3", "share": 61.0}}
        if way == "best_link":
            judgement[way]["storm_seconds"] = 0.0
        else:
            judgement[way]["goodput_range"] = [judgement[way]["goodput"] - 20, judgement[way]["goodput"] + 10]
    judgement["with"] |= with_ | {"moves": len(moves), "placements": len(recorder.placements),
                                  "changes": len(moves) + 7}
    gain = round(total["goodput"] / total["without"], 3)
    return {
        "format": RESULT_FORMAT,
        "scenario": {"name": "busy-home", "title": title, "about": about, "duration": float(ticks), "tick": 1.0,
                     "seed": 7, "period": 5.0, "high_threshold": 70, "default_path": "5g",
                     "notes": ["The daemon moves at most two streams of a client in a period."]},
        "series": recorder.series(), "moves": moves, "placements": [vars(one) for one in recorder.placements],
        "events": recorder.events, "judgement": judgement,
        "ratios": {"gain": gain, "of_ideal": round(100 * total["goodput"] / total["ideal"], 2)} | {
            f"by_{way}": round(total["goodput"] / judgement[way]["goodput"], 3) for way in WAYS},
        "expectations": [
            {"what": "no storm with the daemon", "measured": "0 s of storm", "met": True},
            {"what": "goodput gain at least 1.5", "measured": f"{gain:g}", "met": gain >= 1.5},
            {"what": "bounces at most 2", "measured": str(judgement["with"]["bounces"]), "met": True}],
        "wall_seconds": 4.2,
    }
