"""One copy of every frame everywhere, on a machine that may be busy."""
from collections.abc import Callable

from kolt_mesh.frames import Census

TIMES = 3


def assert_one_copy(play: Callable[[], Census]) -> None:
    """
    Plays until no frame was lost, a few times at most: on a busy machine a link may look lost, and what is under way when its
    frames move is lost. Frames that come twice, circle, or are lost though nothing moved are never right.
    """
    for _ in range(TIMES):
        census = play()
        assert not census.duplicates() and not census.circled(), (census.duplicates(), census.circled())
        assert not census.unexplained(), (census.unexplained(), census.overrun)
        if not census.lost():
            break
    assert census.exactly_one(), census.lost()
