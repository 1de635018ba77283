"""The simpler ways of using the links, in words: what they are, and what the run without the daemon stands for."""
from . import words

TITLES = {"best_link": "best link", "hash": "flow hash", "weighted_hash": "weighted hash"}
STORMS_ARE_FREE = "storms cost it no goodput"


def fixed_link(result: dict) -> str:
    """The link that carries all traffic without the daemon, by its type."""
    return result["scenario"]["default_path"]


def without_sentence(result: dict) -> str:
    """What "without" means in this run."""
    kinds = [path["type"] for path in result["series"]["paths"].values()]
    cable = ", or on the cable" if "ethernet" in kinds and fixed_link(result) != "ethernet" else ""
    return f"without: all traffic on {words.path_label(fixed_link(result))}{cable}; {STORMS_ARE_FREE}"


def beside_sentence(result: dict) -> str:
    """The goodput of each simpler way."""
    told = (f"{title} {words.mbit(result['judgement'][way]['goodput'])}" for way, title in TITLES.items())
    return f"beside: {', '.join(told)} Mbit/s"
