"""The part of the report that sets the daemon beside simpler ways to use the links."""
import re

import pytest
from result_fixture import busy_home
from test_report import Page

from kolt_sim.view import report, report_beside


@pytest.fixture(scope="module", name="page")
def make_page() -> Page:
    return Page(report.render_report(busy_home()))


def table(result: dict) -> list[list[str]]:
    """The cells of each row of the table, without the headings that a narrow window shows beside them."""
    text = re.sub(r'<span class="head">.*?</span>', "", report_beside.section(result))
    rows = re.findall(r"<tr><th scope=row>(.*?)</tr>", text)
    return [[re.sub(r"<[^>]*>", "", cell) for cell in re.split(r"</th>|</td>", row)[:-1]] for row in rows]


def test_every_way_has_a_row_with_what_the_daemon_is_by_it() -> None:
    result = busy_home(60)
    for side, goodput in {"with": 400.0, "best_link": 200.0, "hash": 320.0, "weighted_hash": 410.0, "without": 100.0,
                          "ideal": 500.0}.items():
        storm = 0.0 if side == "with" else 60.0
        result["judgement"][side] |= {"goodput": goodput, "changes": 3, "storm_seconds": storm}
    result["ratios"] = {"gain": 4.0, "of_ideal": 80.0, "by_best_link": 2.0, "by_hash": 1.25, "by_weighted_hash": 0.976}
    assert table(result) == [
        ["With the daemon", "400.0", "-", "81 %", "3", "0"], ["Best link alone", "200.0", "2.00", "61 %", "3", "60"],
        ["Flow hash", "320.0", "1.25", "61 %", "3", "60"], ["Weighted flow hash", "410.0", "0.98", "61 %", "3", "60"],
        ["Without the daemon", "100.0", "4.00", "12 %", "3", "60"],
        ["Ideal placement", "500.0", "0.80", "97 %", "-", "-"]]


def test_what_nobody_carries_is_no_measure() -> None:
    result = busy_home(60)
    result["ratios"] = dict.fromkeys(result["ratios"])
    assert {row[2] for row in table(result)} == {"-"}


def test_the_page_says_which_link_without_means_and_that_storms_are_free(page: Page) -> None:
    assert "Without: all traffic on 5 GHz, or on the cable; storms cost it no goodput." in page.text
    assert "A broadcast storm costs no goodput in this model" in page.text


def test_the_luck_of_hash_functions_is_told(page: Page) -> None:
    low, high = busy_home()["judgement"]["hash"]["goodput_range"]
    assert f"they carried {low:.1f} to {high:.1f} Mbit/s, weighted" in page.text


def test_the_plot_shows_the_daemon_and_each_way_over_time(page: Page) -> None:
    result = busy_home()
    drawn = {one["label"]: one["values"] for one in page.plots()["beside"]["series"]}
    assert drawn == {title: [round(value, 2) for value in result["series"]["total"][member]] for title, member in (
        ("With the daemon", "goodput"), ("Best link alone", "best_link"), ("Flow hash", "hash"),
        ("Weighted flow hash", "weighted_hash"))}
