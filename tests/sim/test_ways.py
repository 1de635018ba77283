"""The simpler ways to use the links, the best one and hashes of the flows, against values worked out by hand."""
import numpy as np
import pytest

from homes import path
from kolt_sim.model.air import Link
from kolt_sim.model.bridge import NOWHERE
from kolt_sim.model.ways import BestLink, FlowHash, carried

MANY = 40_000  # flows, so that shares of them are near what is to be expected


def links(*rates: float) -> list[Link]:
    """Links that carry half of these rates."""
    return [Link(path(kind, rate), 1) for kind, rate in zip(("2.4g", "5g", "5g_2"), rates)]


def shares(way: FlowHash, count: int) -> list[float]:
    return [float((way.path == index).mean()) for index in range(count)]


# The best single link

def test_the_best_link_is_the_one_that_carries_most():
    made = BestLink(3, links(100, 800, 600))
    made.place()
    assert made.path.tolist() == [1, 1, 1]


def test_the_best_link_changes_with_what_the_links_carry():
    home = links(100, 800, 600)
    made = BestLink(1, home)
    seen = []
    for neighbours in (0, 20, 30, 20, 30):  # 400, 320, 280, 320 and 280 Mbit/s beside 300
        home[1].set_neighbours(0, neighbours, 0)
        home[1].update(0)
        made.place()
        seen.append(int(made.path[0]))
    assert seen == [1, 1, 2, 1, 2]


def test_of_two_equal_links_the_best_one_is_not_left():
    home = links(100, 600, 600)
    made = BestLink(1, home)
    home[1].up = False
    made.place()
    home[1].up = True
    made.place()
    assert made.path.tolist() == [2]


def test_the_cable_is_a_link_like_others():
    home = [Link(path("ethernet", 940), 1), *links(100, 1201)]
    made = BestLink(1, home)
    made.place()
    assert made.path.tolist() == [0]


def test_without_any_link_nothing_has_a_path():
    home = links(100, 800)
    ways = [BestLink(2, home), FlowHash(2, home, False, 0), FlowHash(2, home, True, 0)]
    for link in home:
        link.up = False
    for way in ways:
        way.place()
    assert [way.path.tolist() for way in ways] == [[NOWHERE] * 2] * 3
    assert carried(ways[0].path, np.array([5.0, 5.0]), home).tolist() == [0.0, 0.0]


# Hashes

def test_a_plain_hash_gives_each_link_as_many_flows():
    made = FlowHash(MANY, links(100, 800, 600), False, 0)
    made.place()
    assert shares(made, 3) == pytest.approx([1 / 3] * 3, abs=0.01)


def test_a_weighted_hash_gives_each_link_flows_by_what_it_carries():
    made = FlowHash(MANY, links(100, 800, 600), True, 0)
    made.place()
    assert shares(made, 3) == pytest.approx([1 / 15, 8 / 15, 6 / 15], abs=0.01)


@pytest.mark.parametrize("weighted", [False, True])
def test_a_link_that_goes_down_loses_its_flows_and_gets_the_same_ones_back(weighted):
    home = links(800, 800, 800)
    made = FlowHash(MANY, home, weighted, 0)
    made.place()
    before = made.path
    home[1].up = False
    made.place()
    assert (made.path[before != 1] == before[before != 1]).all()
    assert shares(made, 3) == pytest.approx([1 / 2, 0, 1 / 2], abs=0.01)
    home[1].up = True
    made.place()
    assert (made.path == before).all()


def test_a_weighted_hash_moves_no_more_flows_than_it_must():
    home = links(800, 800)
    made = FlowHash(MANY, home, True, 0)
    made.place()
    before = made.path
    home[1].set_rate(0, 400, 0)
    home[1].update(0)
    made.place()
    assert set(before[made.path != before]) == {1}
    assert float((made.path != before).mean()) == pytest.approx(1 / 2 - 1 / 3, abs=0.01)


def test_a_plain_hash_heeds_no_rates():
    home = links(800, 800)
    made = FlowHash(MANY, home, False, 0)
    made.place()
    before = made.path
    home[1].set_rate(0, 50, 0)
    home[1].update(0)
    made.place()
    assert (made.path == before).all()


def test_functions_differ_and_each_is_the_same_every_time():
    home = links(800, 800, 800)
    made = [FlowHash(100, home, False, function) for function in (0, 0, 1)]
    for way in made:
        way.place()
    assert (made[0].path == made[1].path).all()
    assert (made[0].path != made[2].path).any()


# What is carried

def test_each_link_is_shared_fairly_by_the_streams_that_are_on_it():
    wish = np.array([100.0, 10.0, 100.0, 30.0, 0.0])
    got = carried(np.array([0, 0, 0, 1, 0]), wish, links(300, 100))  # 150 and 50 Mbit/s
    assert got.tolist() == [70.0, 10.0, 70.0, 30.0, 0.0]


def test_a_link_that_is_down_carries_nothing_of_what_is_put_on_it():
    home = links(300, 100)
    home[0].up = False
    assert carried(np.array([0, 1]), np.array([5.0, 5.0]), home).tolist() == [0.0, 5.0]
