"""What a run comes to: goodput, the worst client, moves, calm, overload and relief, storms; and what was expected."""
import math
from collections.abc import Sequence
from dataclasses import dataclass, field

import numpy as np

from .record import Move, Placement
from .scenario.records import Expectation

OVERLOADED = 0.90  # of the ideal goodput: below this the placement is what holds the traffic back
RELIEVED = 0.95
EVEN = 1e-6
MINUTE = 60.0


@dataclass
class Ledger:
    """Sums over one world's run."""
    tick: float
    wanted: np.ndarray  # payload by client, Mbit
    got: np.ndarray
    relief: list[float] = field(default_factory=list)  # lengths of the overloads that ended
    began: float | None = None  # when the overload that is still on began
    storm_seconds: float = 0.0
    seconds: float = 0.0

    @classmethod
    def empty(cls, clients: int, tick: float) -> "Ledger":
        """Of a run that is about to begin."""
        return cls(tick, np.zeros(clients), np.zeros(clients))

    def add(self, time: float, client: np.ndarray, wanted: np.ndarray, payload: np.ndarray, ideal: float,
            storm: bool) -> None:
        """One tick: the streams' clients, wishes and payloads, and what the ideal placement would have carried."""
        clients = self.wanted.size
        self.wanted += np.bincount(client, wanted, clients) * self.tick
        self.got += np.bincount(client, payload, clients) * self.tick
        self.seconds += self.tick
        self.storm_seconds += self.tick if storm else 0.0
        total = float(payload.sum())
        if self.began is None and total < OVERLOADED * ideal - EVEN:
            self.began = time
        elif self.began is not None and total >= RELIEVED * ideal - EVEN:
            self.relief.append(time - self.began)
            self.began = None

    def figures(self, names: list[str], end: float, moves: Sequence[Move] = (),
                placements: Sequence[Placement] = ()) -> dict:
        """The judgement of one run; an overload that never ended counts with the time that it lasted."""
        streams_back, clients_back = bounces(moves), bounces(repinned(placements))
        lengths = [*self.relief, *([end - self.began] if self.began is not None else [])]
        return {
            "goodput": round(float(self.got.sum()) / self.seconds, 2),
            "demand": round(float(self.wanted.sum()) / self.seconds, 2),
            "worst_client": self._worst(names),
            "moves": len(moves),
            "bounces": len(streams_back),
            "placements": len(placements),
            "client_bounces": len(clients_back),
            "calm": calm_share([*streams_back, *clients_back], end),
            "relief": round(max(lengths), 2) if lengths else None,
            "overloads": len(lengths),
            "unrelieved": int(self.began is not None),
            "storm_seconds": round(self.storm_seconds, 2),
        }

    def _worst(self, names: list[str]) -> dict | None:
        """The client that got the smallest part of what it wanted."""
        asking = np.flatnonzero(self.wanted > 0.0)
        if asking.size == 0:
            return None
        shares = self.got[asking] / self.wanted[asking]
        worst = int(np.argmin(shares))
        return {"name": names[asking[worst]], "share": round(100.0 * float(shares[worst]), 1)}


def bounces(moves: Sequence[Move]) -> list[Move]:
    """The moves of a stream back to a path that an earlier move took it away from."""
    left: dict[str, set[str]] = {}
    back = []
    for move in moves:
        paths = left.setdefault(move.stream, set())
        if move.target in paths:
            back.append(move)
        paths.add(move.origin)
    return back


def repinned(placements: Sequence[Placement]) -> list[Move]:
    """The placements that took a client from another path, as moves; each client's first one is none."""
    at: dict[str, str] = {}
    moves = []
    for one in placements:
        before = at.get(one.client, one.path)
        if before != one.path:
            moves.append(Move(one.time, one.client, one.client, before, one.path))
        at[one.client] = one.path
    return moves


def calm_share(back: Sequence[Move], end: float) -> float:
    """The percentage of a run's minutes (the last may be short) in which neither a stream nor a client went back."""
    minutes = max(1, math.ceil(end / MINUTE))
    return round(100.0 * (1.0 - len({int(one.time // MINUTE) for one in back}) / minutes), 1)


def ratios(judgement: dict) -> dict:
    """The gain over the run without the daemon, and the share of the ideal in percent; None where nothing was asked."""
    with_, without, ideal = (judgement[name]["goodput"] for name in ("with", "without", "ideal"))
    return {"gain": round(with_ / without, 3) if without > 0 else None,
            "of_ideal": round(100.0 * with_ / ideal, 2) if ideal > 0 else None}


def check(expect: Expectation, judgement: dict, moves: list[Move]) -> list[dict]:
    """Each expectation, what was measured and whether it is met."""
    with_, share = judgement["with"], ratios(judgement)
    worst = with_["worst_client"]["share"] if with_["worst_client"] else None
    last = max((move.time for move in moves), default=0.0)
    relief = None if with_["unrelieved"] else with_["relief"] or 0.0
    rows = [("goodput gain", share["gain"], expect.gain, "least"),
            ("percent of the ideal goodput", share["of_ideal"], expect.of_ideal, "least"),
            ("worst client's percent of its demand", worst, expect.worst_client, "least"),
            ("bounces", with_["bounces"], expect.bounces, "most"),
            ("percent of calm minutes", with_["calm"], expect.calm, "least"),
            ("seconds from overload to relief", relief, expect.relief, "most"),
            ("stream moves", with_["moves"], expect.moves_at_least, "least"),
            ("stream moves", with_["moves"], expect.moves_at_most, "most"),
            ("seconds until the last move", last, expect.settled_by, "most")]
    wish = "a storm without the daemon" if expect.storm_without else "no storm without the daemon either"
    return [_storm("no storm with the daemon", with_["storm_seconds"], False),
            _storm(wish, judgement["without"]["storm_seconds"], expect.storm_without),
            *(_result(what, measured, bound, sense) for what, measured, bound, sense in rows if bound is not None)]


def _storm(what: str, seconds: float, expected: bool) -> dict:
    return {"what": what, "measured": f"{seconds:g} s of storm", "met": (seconds > 0) == expected}


def _result(what: str, measured: float | None, bound: float, sense: str) -> dict:
    met = measured is not None and (measured >= bound if sense == "least" else measured <= bound)
    shown = "none" if measured is None else f"{measured:g}"
    return {"what": f"{what} at {sense} {bound:g}", "measured": shown, "met": met}
