"""What placements are measured by: all links as one pool, shared fairly by all streams."""
import numpy as np

from .air import Link, share_fairly

FIVE_GHZ = ("5g", "5g_2")


def broken(links: list[Link], threshold: float) -> frozenset[str]:
    """
    The types of the links that the daemon takes for broken: 5 GHz below the threshold (Mbit/s) while 2.4 GHz is not.
    """
    healthy = any(link.type == "2.4g" and link.up and link.rate >= threshold for link in links)
    return frozenset(link.type for link in links if healthy and link.type in FIVE_GHZ and link.rate < threshold)


def usable(links: list[Link], forbidden: frozenset[str], learnt: int) -> list[Link]:
    """
    The links on which the daemon's rules allow traffic: Wi-Fi links that are up and not `forbidden`, and the link on
    which the far side was learnt, which clients use that are not pinned.
    """
    return [link for index, link in enumerate(links) if link.up
            and (index == learnt or (link.is_wifi and link.type not in forbidden))]


def ideal_payload(demand: np.ndarray, overhead: np.ndarray, links: list[Link]) -> np.ndarray:
    """
    The payload of each stream (Mbit/s) when the links' capacities are one pool that is shared fairly. No placement
    that is as fair carries more, since a real stream cannot be split; only the two halves of a stream of datagrams
    can take two links. `overhead` is what a stream carries beside each Mbit/s of payload. No stream gets more than
    the widest link could give it.
    """
    if not links or demand.size == 0:
        return np.zeros_like(demand)
    widest = max(link.capacity for link in links)
    whole = np.minimum(demand * (1.0 + overhead), widest)
    return share_fairly(whole, sum(link.capacity for link in links)) / (1.0 + overhead)
