"""
Simpler ways than the daemon's to use the links, without a thought for loops: one link for all, or a hash of each flow.
Both directions of a stream take the same link; to change it costs nothing. All of them know the links as they are now.
"""
import numpy as np

from .air import Link, share_fairly
from .bridge import NOWHERE


class BestLink:
    """Everything on the one link that carries most at this moment, wired ones included."""

    def __init__(self, streams: int, links: list[Link]) -> None:
        self._links = links
        self.path = np.full(streams, NOWHERE)

    def place(self) -> None:
        """Turns to another link only for one that carries more."""
        capacities = np.array([link.capacity for link in self._links])
        now = self.path[0] if self.path.size else NOWHERE
        best = int(np.argmax(capacities))
        if capacities[best] <= 0.0:
            self.path[:] = NOWHERE
        elif now == NOWHERE or capacities[best] > capacities[now]:
            self.path[:] = best


class FlowHash:
    """
    Each flow on the link that its hash names among those that are up, with equal chances, or with `weighted` in
    proportion to what the links carry at this moment. A change of the links moves no more flows than it must.
    `function` is the number of the hash function.
    """

    def __init__(self, streams: int, links: list[Link], weighted: bool, function: int) -> None:
        self._links, self._weighted = links, weighted
        # The least of several exponential waiting times falls to each in proportion to its weight.
        self._waits = np.random.default_rng([function, len(links)]).standard_exponential((len(links), streams))
        self._weights = np.zeros(len(links))
        self.path = np.full(streams, NOWHERE)

    def place(self) -> None:
        """Places all flows anew if the links are not what they were."""
        weights = np.array([link.capacity if self._weighted else float(link.up) for link in self._links])
        if np.array_equal(weights, self._weights):
            return
        self._weights = weights
        least = np.full(self.path.size, np.inf)
        self.path = np.full(self.path.size, NOWHERE)
        for index in np.flatnonzero(weights > 0.0):
            waits = self._waits[index] / weights[index]
            self.path = np.where(waits < least, index, self.path)
            least = np.minimum(waits, least)


Way = BestLink | FlowHash


def carried(path: np.ndarray, wish: np.ndarray, links: list[Link]) -> np.ndarray:
    """What each stream gets on its path, both directions together (Mbit/s); nothing where it has none."""
    got = np.where(path == NOWHERE, 0.0, wish)
    load = np.bincount(path + 1, got, len(links) + 1)[1:]  # the first place stands for NOWHERE
    for index in np.flatnonzero(load > [link.capacity for link in links]):
        mine = np.flatnonzero((path == index) & (wish > 0.0))
        got[mine] = share_fairly(wish[mine], links[index].capacity)
    return got
