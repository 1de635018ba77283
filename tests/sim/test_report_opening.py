"""On which part of a run the plots open."""
import pytest
from result_fixture import busy_home, plain_home

from kolt_sim.view.report_opening import happenings, opening

RUN = [0.0, 1000.0]


def at(*times: float, weight: float = 1.0) -> list[tuple[float, float]]:
    return [(time, weight) for time in times]


@pytest.mark.parametrize("known, part", [
    (at(120, 140, 160), [100.0, 180.0]),  # widened to 8 % of the run
    (at(5, 25), [0.0, 55.0]),  # but not beyond its beginning
    (at(300, 400), [275.0, 425.0]),  # a quarter of it on both sides
    (at(500), [460.0, 540.0]),
    (at(10, 500, 520, 540), [480.0, 560.0]),  # of two parts the one in which more happens
    (at(10) + at(500, weight=2.0), [460.0, 540.0]),
    (at(10, 900), [0.0, 50.0]),  # of equal ones the first
    (at(990), [950.0, 1000.0]),
])
def test_the_part_in_which_most_happens_is_shown_with_a_margin(known, part):
    assert opening(known, RUN) == part


@pytest.mark.parametrize("known, window", [
    ([], RUN), (at(20, 40, 60), [0.0, 119.0]), (at(*range(0, 1000, 50)), RUN), (at(0, 90, 180, 270, 360, 450, 540), RUN)],
    ids=["nothing", "short", "all the time", "most of the time"])
def test_a_run_without_such_a_part_is_shown_whole(known, window):
    assert opening(known, window) is None


def test_what_the_daemon_does_and_what_happens_to_the_home_both_count():
    result = busy_home()
    counted = dict.fromkeys(at for at, _ in happenings(result))
    for kind in ("events", "moves", "placements"):
        assert all(one["time"] in counted for one in result[kind])


def test_many_moves_at_once_do_not_outweigh_a_story():
    result = busy_home(60)
    result["moves"] = [dict(result["moves"][0], time=30.0)] * 50
    assert max(weight for at, weight in happenings(result) if at == 30.0) == 3.0


def test_a_storm_with_the_daemon_counts_at_its_beginning_and_its_end():
    result = plain_home()
    result["series"]["storm"][10:20] = [["eth0", "wlan1.1"]] * 10
    assert happenings(result) == [(10.0, 5.0), (20.0, 5.0)]
