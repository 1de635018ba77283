"""What the views say of the run without the daemon and of the simpler ways."""
import pytest

from fake_run import fake_run
from homes import home, path, stream
from kolt_sim.compare import SilentView
from kolt_sim.view import beside, plain

RADIO = [path("5g", 866), path("5g_2", 1201)]
CABLE = path("ethernet", 940)


def result(paths: list = RADIO, **other) -> dict:
    return fake_run(home(paths, {"gateway": "uplink", "tv": "eth1"}, [stream("film", "tv", "gateway", demand=200)],
                         **other), SilentView())


@pytest.mark.parametrize(("paths", "default", "told"), [
    (RADIO, "5g", "all traffic on 5 GHz"), (RADIO, "5g_2", "all traffic on 2nd 5 GHz"),
    ([CABLE, *RADIO], "5g_2", "all traffic on 2nd 5 GHz, or on the cable"),
    ([CABLE, *RADIO], "ethernet", "all traffic on Ethernet")])
def test_without_the_daemon_is_told_with_its_link_and_that_storms_are_free(paths, default, told):
    made = result(paths, default_path=default)
    assert beside.without_sentence(made) == f"without: {told}; storms cost it no goodput"


def test_the_goodput_of_each_simpler_way_is_told():
    assert beside.beside_sentence(result()) == (
        "beside: best link 120.0, flow hash 140.0, weighted hash 184.0 Mbit/s")


def test_the_plain_summary_tells_both_below_the_gain():
    made = result()
    lines = plain.summary(made)
    assert lines[1].startswith("goodput is 2.25 times")
    assert lines[2:4] == [beside.without_sentence(made), beside.beside_sentence(made)]
