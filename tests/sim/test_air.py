"""The links: rates over time, capacity, air time, and the fair share."""
import numpy as np
import pytest

from homes import path
from kolt_sim.model.air import Link, Ramp, share_fairly
from kolt_sim.scenario.records import Fading


def rates(link: Link, ticks: int) -> list[float]:
    seen = []
    for time in range(ticks):
        link.update(float(time))
        seen.append(link.rate)
    return seen


def test_a_ramp_goes_straight_from_one_value_to_the_other():
    ramp = Ramp(100.0)
    ramp.set(10.0, 200.0, 20.0)
    assert [ramp.at(time) for time in (10.0, 15.0, 20.0, 30.0, 99.0)] == [100.0, 125.0, 150.0, 200.0, 200.0]


def test_a_ramp_without_length_is_a_step():
    ramp = Ramp(100.0)
    ramp.set(10.0, 200.0, 0.0)
    assert ramp.at(10.0) == 200.0


def test_a_ramp_set_anew_on_its_way_starts_where_it_is():
    ramp = Ramp(0.0)
    ramp.set(0.0, 100.0, 10.0)
    ramp.set(5.0, 0.0, 10.0)
    assert [ramp.at(time) for time in (5.0, 10.0, 15.0)] == [50.0, 25.0, 0.0]


def test_a_steady_link_keeps_its_rate():
    assert rates(Link(path("5g", 866), 1), 50) == [866.0] * 50


def test_fading_takes_off_no_more_than_its_depth_and_reaches_it():
    seen = rates(Link(path("5g", 800, fading=Fading(depth=25, period=40, noise=0)), 1), 80)
    assert min(seen) == pytest.approx(600.0, rel=0.02)
    assert max(seen) == pytest.approx(800.0, rel=0.02)


def test_noise_is_repeatable_and_differs_between_seeds():
    noisy = path("5g", 800, fading=Fading(depth=0, period=40, noise=10))
    assert rates(Link(noisy, 1), 60) == rates(Link(noisy, 1), 60)
    assert rates(Link(noisy, 1), 60) != rates(Link(noisy, 2), 60)


def test_noise_has_the_strength_that_it_says():
    seen = np.array(rates(Link(path("5g", 1000, fading=Fading(depth=0, period=60, noise=10)), 3), 5000))
    assert seen.std() == pytest.approx(100.0, rel=0.15)
    assert seen.mean() == pytest.approx(1000.0, rel=0.02)


def test_capacity_is_what_efficiency_and_neighbours_leave():
    link = Link(path("5g", 800, neighbours=25, efficiency=50), 1)
    assert link.capacity == pytest.approx(800 * 0.5 * 0.75)


def test_utilisation_counts_the_neighbours_and_what_is_carried():
    link = Link(path("5g", 800, neighbours=25, efficiency=50), 1)
    assert link.utilisation(0.0) == 25.0
    assert link.utilisation(100.0) == pytest.approx(50.0)
    assert link.utilisation(link.capacity) == pytest.approx(100.0)
    assert link.utilisation(10 * link.capacity) == 100.0


def test_a_link_that_is_down_carries_nothing():
    link = Link(path("5g", 800, up=False), 1)
    assert (link.capacity, link.utilisation(10.0)) == (0.0, 0.0)


def test_a_wire_has_no_air_time_to_lose():
    assert Link(path("ethernet", 940, efficiency=50), 1).capacity == 940.0


@pytest.mark.parametrize(("demands", "capacity", "shares"), [
    ([1.0, 2.0, 3.0], 6.0, [1.0, 2.0, 3.0]),
    ([1.0, 2.0, 3.0], 10.0, [1.0, 2.0, 3.0]),
    ([3.0, 3.0, 3.0], 6.0, [2.0, 2.0, 2.0]),
    ([10.0, 1.0, 10.0], 9.0, [4.0, 1.0, 4.0]),
    ([5.0, 1.0, 3.0], 7.0, [3.0, 1.0, 3.0]),
    ([5.0, 0.0], 2.0, [2.0, 0.0]),
    ([5.0, 5.0], 0.0, [0.0, 0.0]),
    ([], 5.0, []),
], ids=["exactly enough", "plenty", "equal", "one is modest", "the second is met exactly", "one asks for nothing",
        "nothing to share", "nobody"])
def test_shares_are_max_min_fair(demands, capacity, shares):
    assert share_fairly(np.array(demands), capacity).tolist() == pytest.approx(shares)


def test_demands_that_fit_but_for_rounding_are_met_in_full():
    demands = np.array([6.8, 20.2, 10.3, 13.2, 37.5, 14.1, 24.3, 49, 48.1, 36.3, 27.1, 13.9, 8.1, 48.5, 25.9, 5.9])
    assert demands.sum() > 389.2
    assert share_fairly(demands, 389.2).tolist() == demands.tolist()


def test_random_shares_use_the_capacity_up_and_favour_nobody():
    random = np.random.default_rng(5)
    for _ in range(300):
        demands = random.uniform(0, 10, random.integers(1, 30))
        capacity = random.uniform(0, 1.2) * demands.sum()
        shares = share_fairly(demands, capacity)
        assert shares.sum() == pytest.approx(min(capacity, demands.sum()))
        assert (shares <= demands + 1e-9).all()
        held_back = shares < demands - 1e-9
        if held_back.any():
            assert shares[held_back].min() == pytest.approx(shares.max())
