"""What a recorded run says about its links."""
from types import SimpleNamespace

import pytest
from kolt_mesh.record import LinkSeries, Record, uneven
from kolt_mesh.topology import pair


def recorded(**busy: float) -> Record:
    record = Record("home", "", "", "kolt", 1.0, time=[1.0, 2.0, 3.0], total=[10.0, 20.0, 30.0])
    for kind, value in busy.items():
        kind = {"two": "2.4g", "five": "5g", "second": "5g_2"}[kind]
        record.links[f"a-b {kind}"] = LinkSeries(kind, 50.0, utilisation=[0.0, value, value])
    return record


@pytest.mark.parametrize("busy, idle", [
    ({"five": 90, "second": 85, "two": 30}, []),
    ({"five": 90, "second": 85, "two": 29}, ["a-b 2.4g"]),
    ({"five": 49, "second": 1, "two": 1}, []),
    ({"five": 50, "second": 1, "two": 31}, ["a-b 5g_2"]),
])
def test_a_link_idles_when_another_beside_it_is_busy(busy, idle):
    lab = SimpleNamespace(topology=pair(3))
    assert uneven(lab, recorded(**busy), 2.0, 4.0) == idle


def test_means_are_taken_of_the_time_that_is_asked_for():
    assert recorded().mean_total(2.0, 4.0) == 25.0
    assert recorded(five=80).mean_utilisation("a-b 5g", 0.0, 4.0) == pytest.approx(160 / 3)
    assert recorded().mean_total(9.0, 10.0) == 0.0
