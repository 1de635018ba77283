"""What the simpler ways of using the links come to in a run, told like the daemon's own: the judgement beside it."""
import numpy as np

from .judge import Ledger
from .model.bridge import NOWHERE
from .model.traffic import ACK_SHARE
from .model.ways import BestLink, FlowHash, Way, carried
from .model.world import World

FUNCTIONS = 5  # of each kind of hash; odd, so that one of them is the middle one
WAYS = ("best_link", "hash", "weighted_hash")


class _Tried:
    """One way and what has come of it so far."""

    def __init__(self, way: Way, world: World) -> None:
        self.way = way
        self.ledger = Ledger.empty(len(world.clients), world.scenario.tick)
        self.goodput: list[float] = []
        self.changes = 0
        self._last = np.full(world.traffic.count, NOWHERE)

    def add(self, world: World, whole: np.ndarray, overhead: np.ndarray, ideal: float, storm: bool) -> None:
        self.way.place()
        payload = carried(self.way.path, whole, world.links) / overhead
        self._count_changes(np.where(world.crossing, self.way.path, NOWHERE))
        self.ledger.add(world.time, world.traffic.client, world.wanted, payload, ideal, storm)
        self.goodput.append(round(float(payload.sum()), 2))

    def _count_changes(self, path: np.ndarray) -> None:
        other = np.flatnonzero(self._last != path)
        self.changes += int(((self._last[other] != NOWHERE) & (path[other] != NOWHERE)).sum())
        self._last = path


class Beside:
    """Follows a world tick by tick. Of each kind of hash several functions are tried, since one may have luck."""

    def __init__(self, world: World) -> None:
        streams, links = world.traffic.count, world.links
        self._world = world
        self._overhead = 1.0 + np.where(world.traffic.is_udp, 0.0, ACK_SHARE)
        self._best = _Tried(BestLink(streams, links), world)
        self._hashes = {name: [_Tried(FlowHash(streams, links, weighted, number), world) for number in range(FUNCTIONS)]
                        for name, weighted in (("hash", False), ("weighted_hash", True))}

    def add(self, ideal: float, storm: bool) -> None:
        """The tick that the world is in: what the ideal carries, and whether a bridge that floods everywhere storms."""
        whole = self._world.wanted * self._overhead
        self._best.add(self._world, whole, self._overhead, ideal, False)
        for tried in self._hashes.values():
            for one in tried:
                one.add(self._world, whole, self._overhead, ideal, storm)

    def judgement(self) -> dict[str, dict]:
        """Figures by way. Of a hash it is the function with the middle goodput; `goodput_range` has all of them."""
        names, end = self._world.clients, self._world.scenario.duration
        made = {}
        for name, tried in self._all().items():
            middle = self._middle(tried)
            made[name] = middle.ledger.figures(names, end) | {"changes": middle.changes}
            if len(tried) > 1:
                totals = [one.ledger.figures(names, end)["goodput"] for one in tried]
                made[name]["goodput_range"] = [min(totals), max(totals)]
        return made

    def series(self) -> dict[str, list[float]]:
        """The goodput of each way, one value a tick."""
        return {name: self._middle(tried).goodput for name, tried in self._all().items()}

    def _all(self) -> dict[str, list[_Tried]]:
        return {"best_link": [self._best], **self._hashes}

    @staticmethod
    def _middle(tried: list[_Tried]) -> _Tried:
        ordered = sorted(tried, key=lambda one: float(one.ledger.got.sum()))
        return ordered[len(ordered) // 2]


def ratios(judgement: dict) -> dict[str, float | None]:
    """The daemon's goodput by that of each way; None where that is nothing."""
    return {f"by_{name}": round(judgement["with"]["goodput"] / judgement[name]["goodput"], 3)
            if judgement[name]["goodput"] > 0 else None for name in WAYS}
