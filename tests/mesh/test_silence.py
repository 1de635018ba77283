"""Links and programs that are silent for so long that the others draw conclusions from it."""
import signal

from copies import assert_one_copy
from kolt_mesh import frames, topology
from kolt_mesh.frames import Broadcasts, Census
from kolt_mesh.kolt import Kolt

INTERVAL_MS = 30
MEMORY = 200 * INTERVAL_MS / 1000  # of a neighbour that is silent, in seconds
SETTLES = 20.0


def test_a_link_that_was_silent_for_long_lets_nothing_circle_when_it_returns(make_lab):
    link = "second-gateway ethernet"
    lab = make_lab(topology.load("two-roots"), Kolt(kolt=False, options=("--interval", str(INTERVAL_MS))))
    assert frames.reachable(lab, SETTLES)
    with Broadcasts(lab) as counting:
        counting.run(1.0, gap=0.01)  # so that the link has carried something before
        lab.silence(link)
        counting.run(MEMORY + 1.5, gap=0.05)
        lab.restore(link)
        counting.run(1.0)
        counting.listen()
    assert not counting.census.circled()
    assert frames.reachable(lab, SETTLES)


def test_a_kolt_bridged_that_was_stopped_for_a_while_goes_on_as_if_nothing_had_been(make_lab):
    lab = make_lab(topology.pair(3), Kolt(kolt=False))
    assert frames.reachable(lab, SETTLES)
    held = lab.kind.nodes["b"]

    def play() -> Census:
        with Broadcasts(lab) as counting:
            counting.run(0.5, gap=0.01)
            held.signal(held.bridged, signal.SIGSTOP)
            counting.run(1.0, gap=0.01)
            held.signal(held.bridged, signal.SIGCONT)
            counting.run(1.5)
            counting.listen()
        return counting.census

    assert_one_copy(play)
