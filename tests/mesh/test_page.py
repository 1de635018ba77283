"""The page of plots about a run, and the lines that sum it up."""
import json
import re

from kolt_mesh import page
from kolt_mesh.command import summary
from kolt_mesh.record import Expectation
from records import TICKS, made_up


def drawn(text: str) -> dict:
    return json.loads(re.search(r'<script type="application/json" id="data">(.*?)</script>', text, re.DOTALL)[1])


def test_the_page_draws_every_link_and_the_total():
    data = drawn(page.render(made_up()))
    plots = {plot["id"]: plot for plot in data["plots"]}
    assert [one["label"] for one in plots["utilisation"]["series"]] == ["a-b 2.4g", "a-b 5g", "b-c ethernet"]
    assert plots["total"]["series"][0]["values"][:2] == [40.0, 41.0]
    assert len(data["times"]) == TICKS == len(plots["goodput"]["series"][0]["values"])


def test_the_page_shows_when_a_link_was_lost_and_carried_broadcast():
    lanes = {lane["detail"] + lane["label"]: lane["spans"] for lane in
             next(plot for plot in drawn(page.render(made_up()))["plots"] if plot["id"] == "broadcast")["lanes"]}
    assert lanes["a-b5g"] == [[1.0, 16.0, "broadcast"], [16.0, 26.0, "down"], [26.0, 41.0, "broadcast"]]
    assert lanes["a-b2.4g"] == []


def test_the_page_lists_events_with_their_times():
    text = page.render(made_up())
    assert drawn(text)["events"] == [[15.2, "a-b 5g is cut"], [25.1, "a-b 5g is back"]]
    assert "Events (2)" in text and 'id="event-2"' in text


def test_foreign_texts_stay_texts():
    assert "Two nodes &amp; a &lt;b&gt;cable&lt;/b&gt;." in page.render(made_up())


def test_the_verdict_says_what_was_not_met():
    missed = made_up(expectations=[Expectation("no connection is lost", "it ended", False)])
    assert "✗ Not as expected" in page.render(missed) and "✓ As expected" in page.render(made_up())
    assert "NOT MET  no connection is lost: it ended" in summary(missed)
    assert "met      no connection is lost: none" in summary(made_up())


def test_a_run_for_comparison_is_not_judged():
    text = page.render(made_up(expectations=[]))
    assert "For comparison" in text and "expected</p>" not in text


def test_a_home_without_links_says_that_there_is_nothing_to_show():
    text = page.render(made_up(links={}))
    assert text.count("There is nothing to show.") == 3
    assert [plot["id"] for plot in drawn(text)["plots"]] == ["total"]
