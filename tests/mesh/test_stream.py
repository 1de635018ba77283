"""What is told from a stream of numbered frames."""
import time

import pytest
from kolt_mesh import stream, topology
from kolt_mesh.kinds import OneLink

MS = 1_000_000


def frames(*numbers: int) -> list[tuple[int, int]]:
    """Frames that were sent a millisecond apart."""
    return [(number, 7 + number * MS) for number in numbers]


@pytest.mark.parametrize("seen, sent, lost, duplicates, reordered, outage, at", [
    ([], 0, 0, 0, 0, 0, 0),
    ([], 9, 9, 0, 0, 0.009, 0),
    ([0, 1, 2, 3], 4, 0, 0, 0, 0, 0),
    ([0, 1, 5, 6], 7, 3, 0, 0, 0.003, 0.001),
    ([2, 3], 4, 2, 0, 0, 0, 0),
    ([0, 1, 1, 2], 3, 0, 1, 0, 0, 0),
    ([0, 2, 1, 3], 4, 0, 0, 1, 0, 0),
    ([0, 2, 4, 5, 9], 10, 5, 0, 0, 0.003, 0.005),
    ([0, 1, 2], 8, 5, 0, 0, 0.005, 0.002),
])
def test_gaps_losses_and_copies_are_counted(seen, sent, lost, duplicates, reordered, outage, at):
    told = stream.judge(frames(*seen), 0.001, sent)
    assert (told.sent, told.lost, told.duplicates, told.reordered) == (sent, lost, duplicates, reordered)
    assert told.outage == pytest.approx(outage) and told.at == pytest.approx(at)
    assert told.open == (outage > 0 and (not seen or lost == sent - 1 - seen[-1]))


def test_a_sender_that_was_held_up_is_no_outage():
    assert stream.judge([(0, 0), (1, 1 * MS), (2, 80 * MS), (3, 81 * MS)], 0.001, 4).outage == 0.0


def test_a_link_that_never_comes_back_is_an_outage_to_the_end(make_lab):
    lab = make_lab(topology.pair(1), OneLink())
    with stream.Stream(lab, "h1", "h2", 0.005) as running:
        lab.wait(0.3)
        began = time.monotonic()
        lab.cut("a-b 5g")
        lab.wait(0.5)
        seen = running.end()
        lasted = time.monotonic() - began
    assert 0.45 < seen.outage < lasted + 0.05 and seen.at > 0.1 and seen.open


@pytest.mark.parametrize("what", ["cut", "silence"])
def test_a_lost_link_shows_as_an_outage_of_its_length(make_lab, what):
    lab = make_lab(topology.pair(1), OneLink())
    with stream.Stream(lab, "h1", "h2", 0.002) as running:
        lab.wait(0.4)
        getattr(lab, what)("a-b 5g")
        lab.wait(0.3)
        lab.restore("a-b 5g")
        lab.wait(1.5)
        seen = running.end()
    assert seen.outage > 0.25 and not seen.open  # the carrier's return may be told late
    assert seen.lost >= 100 and seen.duplicates == 0


def test_frames_of_a_link_that_is_whole_all_arrive(make_lab):
    lab = make_lab(topology.pair(1), OneLink())
    with stream.Stream(lab, "h2", "h1", 0.002) as running:
        lab.wait(0.5)
        seen = running.end()
    assert seen.sent > 100 and (seen.lost, seen.duplicates, seen.outage) == (0, 0, 0.0)
