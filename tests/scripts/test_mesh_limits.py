"""Which figures of bench/mesh break a limit."""
import copy
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

import mesh_limits  # noqa: E402


def outage(way: str, **changed: object) -> dict:
    return {"with": "kolt", "way": way, "median": 0.001, "for good": 0, "duplicates": 0} | changed


GOOD = {
    "throughput": [{"links": links, "streams": streams, "with": name, "mbit": mbit}
                   for links, mine in ((2, 90.0), (3, 140.0)) for streams in (4, 64)
                   for name, mbit in (("kolt", mine), ("stp-tuned", 47.0))],
    "spread": [{"links": 2, "streams": 4, "periods": 20, "uneven": 3}],
    "outage": [outage("cut"), outage("silence", median=0.3), outage("cut", median=4.0) | {"with": "stp-tuned"}],
    "copies": [{"topology": "ring", "with": "kolt", "fewest": 1, "most": 1, "circled": 0},
               {"topology": "ring", "with": "stp-tuned", "fewest": 0, "most": 2, "circled": 0}],
    "moves": [{"with": "kolt", "what": "cut", "duplicates": 0, "circled": 0, "lost": 2}],
    "forwarding": [{"name": "64 bytes forwarded, tcx, ours", "value": 0.91, "unit": "of the plain bridge's rate"},
                   {"name": "64 bytes forwarded, tcx, ours", "value": 2500, "unit": "ns a frame"},
                   {"name": "64 bytes forwarded, clsact, ours", "value": 0.86, "unit": "of the plain bridge's rate"},
                   {"name": "1500 bytes forwarded, tcx, ours", "value": 0.98, "unit": "of the plain bridge's rate"}],
    "streams": {"private_kib": 1780, "counted": 0.9995, "idle_kolt": 0.001,
                "loads": [{"streams": 1000, "kolt": 0.9}, {"streams": 5000, "kolt": 0.0029}]},
}


def broken(data: dict) -> list[str]:
    return [limit.what for limit in mesh_limits.of(data) if not limit.kept]


def test_good_figures_keep_all_limits():
    assert broken(GOOD) == [] and len(mesh_limits.of(GOOD)) == 16


def test_what_was_not_measured_has_no_limit():
    assert mesh_limits.of({}) == []
    assert [limit.what for limit in mesh_limits.of({"moves": GOOD["moves"]})] == ["broadcasts twice or circled, its link's cut"]


@pytest.mark.parametrize("part, at, key, value, what", [
    ("throughput", 0, "mbit", 89.2, "2 links, 4 streams, to the spanning tree"),
    ("throughput", 4, "mbit", 136.2, "3 links, 4 streams, to the spanning tree"),
    ("spread", 0, "uneven", 4, "a link idles beside a hot one, 2 links, 4 streams"),
    ("outage", 0, "median", 0.0051, "carrier loss, median"),
    ("outage", 0, "for good", 1, "carrier loss, streams stopped for good"),
    ("outage", 1, "median", 0.401, "silent loss, median"),
    ("outage", 1, "duplicates", 1, "silent loss, frames twice"),
    ("copies", 0, "fewest", 0, "copies of a broadcast, ring"),
    ("copies", 0, "most", 2, "copies of a broadcast, ring"),
    ("copies", 0, "circled", 1, "copies of a broadcast, ring"),
    ("moves", 0, "duplicates", 1, "broadcasts twice or circled, its link's cut"),
    ("moves", 0, "circled", 1, "broadcasts twice or circled, its link's cut"),
    ("forwarding", 0, "value", 0.89, "64 bytes forwarded, tcx, ours"),
    ("forwarding", 3, "value", 0.96, "1500 bytes forwarded, tcx, ours")])
def test_a_figure_beyond_its_limit_breaks_it_alone(part, at, key, value, what):
    data = copy.deepcopy(GOOD)
    data[part][at][key] = value
    assert broken(data) == [what]


@pytest.mark.parametrize("key, value, what", [
    ("private_kib", 2048, "kolt-bridged's private memory"),
    ("counted", 1.0011, "bytes counted to bytes carried"),
    ("counted", 0.9989, "bytes counted to bytes carried"),
    ("idle_kolt", 0.0008, "a period with 5,000 streams more than without")])
def test_many_streams_that_cost_too_much_break_a_limit(key, value, what):
    assert broken(GOOD | {"streams": GOOD["streams"] | {key: value}}) == [what]
