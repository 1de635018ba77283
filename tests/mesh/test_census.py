"""What is made of counted frames: which losses have a reason."""
from collections import Counter

from kolt_mesh.frames import Census

FIRST, SECOND = ("a", "wlan0"), ("a", "wlan1")


def census(ways: list[tuple[str, str]], lost: int) -> Census:
    """Frames of the host h1 to h2, each by the port of `ways`; the one with the number `lost` got no further than that."""
    sent = [("h1", number) for number in range(len(ways))]
    made = Census(sent=sent, copies={"h1": Counter(), "h2": Counter(one for one in sent if one[1] != lost)})
    for one, port in zip(sent, ways, strict=True):
        made.passes.setdefault(port, Counter())[one] += 1
    return made


def test_a_frame_lost_on_a_way_that_lasts_has_no_reason():
    found = census([FIRST] * 4, 2)
    assert found.lost() == 1 and found.unexplained() == [f"h1's frame 2 passed only {[FIRST]}"]


def test_a_frame_lost_while_the_way_became_another_has_one():
    found = census([FIRST, FIRST, FIRST, SECOND], 2)
    assert found.lost() == 1 and not found.unexplained()


def test_what_arrives_needs_none():
    assert not census([FIRST, SECOND], -1).unexplained() and census([FIRST, SECOND], -1).exactly_one()
