"""The report page: what it says, that it stands alone, and that foreign texts stay texts."""
import base64
import hashlib
import json
import re
from html.parser import HTMLParser
from pathlib import Path

import pytest
from result_fixture import busy_home, plain_home

from kolt_sim.view import report, report_data

NASTY = '</script><script>alert(1)</script><img src=x onerror="alert(2)">&amp;\u2028'


class Page(HTMLParser):
    """The elements of a page with their attributes, and the contents of its scripts and styles."""

    def __init__(self, text: str) -> None:
        super().__init__(convert_charrefs=True)
        self.elements: list[tuple[str, dict]] = []
        self.raw: dict[str, list[str]] = {"script": [], "style": []}
        self.words: list[str] = []
        self._within = ""
        self.feed(text)
        self.close()

    def handle_starttag(self, tag: str, attributes: list) -> None:
        self.elements.append((tag, dict(attributes)))
        self._separate(tag)
        if tag in self.raw:
            self._within = tag
            self.raw[tag].append("")

    def handle_endtag(self, tag: str) -> None:
        self._separate(tag)
        if tag == self._within:
            self._within = ""

    def _separate(self, tag: str) -> None:
        """A link stands within a text, whatever else begins or ends separates two."""
        if tag != "a":
            self.words.append(" ")

    def handle_data(self, data: str) -> None:
        if self._within:
            self.raw[self._within][-1] += data
        else:
            self.words.append(data)

    @property
    def text(self) -> str:
        return " ".join("".join(self.words).split())

    @property
    def data(self) -> dict:
        return json.loads(self.raw["script"][0])

    def plots(self) -> dict[str, dict]:
        return {plot["id"]: plot for plot in self.data["plots"]}


@pytest.fixture(scope="module")
def busy() -> Page:
    return Page(report.render_report(busy_home()))


def hostile_home() -> dict:
    """A result in which every text that a scenario can bring tries to become markup."""
    result = busy_home(60)
    for key in ("title", "about", "name"):
        result["scenario"][key] = NASTY
    result["scenario"]["notes"] = [NASTY]
    result["expectations"].append({"what": NASTY, "measured": NASTY, "met": False})
    result["events"] = [{"time": 3.0, "text": NASTY}]
    result["moves"] = [{"time": 4.0, "stream": NASTY, "client": NASTY, "origin": NASTY, "target": NASTY}]
    result["placements"] = [{"time": 5.0, "client": NASTY, "path": NASTY}]
    result["judgement"]["with"]["worst_client"]["name"] = NASTY
    result["series"]["paths"][NASTY] = result["series"]["paths"].pop("plc0") | {"type": NASTY}
    result["series"]["storm_without"][7] = [NASTY, "eth0"]
    return result


# What it says

def test_a_good_run_is_called_as_expected(busy: Page) -> None:
    assert "✓ As expected All of 3 expectations met. Broadcast storm: never Without the daemon: 180 s" in busy.text


def test_each_expectation_is_marked_in_words() -> None:
    result = busy_home(60)
    result["expectations"] = [{"what": "bounces at most 2", "measured": "5", "met": False},
                              {"what": "goodput gain at least 1.5", "measured": "2.1", "met": True}]
    text = Page(report.render_report(result)).text
    assert "✗ Not as expected 1 of 2 expectations not met." in text
    assert "✗ not met bounces at most 2 5" in text
    assert "✓ met goodput gain at least 1.5 2.1" in text


def test_a_storm_with_the_daemon_raises_the_alarm() -> None:
    result = busy_home(60)
    result["judgement"]["with"]["storm_seconds"] = 12.0
    text = Page(report.render_report(result)).text
    assert "✗ Not as expected" in text
    assert "STORM with the daemon: 12 s" in text


def test_the_figures_stand_beside_each_other(busy: Page) -> None:
    assert re.search(r"with the daemon without ideal goodput, Mbit/s 4\d\d\.\d 1\d\d\.\d 5\d\d\.\d", busy.text)
    assert re.search(r"\d\.\d\d × the goodput without the daemon \d\d % of the goodput of an ideal", busy.text)


def test_path_changes_stand_below_moves_and_placements(busy: Page) -> None:
    changes = len(busy_home()["moves"]) + 7
    assert ("stream moves, back 50, 2 0, 0 - client placements, back 17, 0 0, 0 - calm minutes, % 100 100 - "
            f"path changes {changes} 0 - overloads 2 0 -") in busy.text


def test_missing_ratios_are_not_numbers() -> None:
    result = busy_home(60)
    result["ratios"] = dict.fromkeys(result["ratios"])
    assert "- the goodput without the daemon - of the goodput of an ideal placement" in Page(
        report.render_report(result)).text


def test_facts_and_notes_of_the_scenario_are_told(busy: Page) -> None:
    assert "10:00 simulated · a tick every 1 s · period of the daemon 5 s · seed 7" in busy.text
    assert "The daemon moves at most two streams of a client in a period." in busy.text


def test_a_scenario_without_notes_has_no_empty_list() -> None:
    result = busy_home(60)
    result["scenario"]["notes"] = []
    assert "Notes" not in Page(report.render_report(result)).text


def test_every_plot_has_a_figure_with_a_caption_and_a_text_alternative(busy: Page) -> None:
    ids = [attributes["id"] for tag, attributes in busy.elements if tag == "figure"]
    assert ids == ["plot-total", "plot-beside", "plot-utilisation", "plot-goodput", "plot-quota", "plot-rate",
                   "plot-clients", "plot-broadcast"]
    assert sum(tag == "figcaption" for tag, _ in busy.elements) == len(ids)
    told = [attributes["aria-label"] for _, attributes in busy.elements if attributes.get("role") == "img"]
    assert len(told) == len(ids)
    assert re.search(r"Utilisation of each path over time\. .*5 GHz \(wlan1\.1\): mean \d+\.\d, highest \d+", told[2])
    assert "Ethernet (eth0): down 420 s, broadcast 180 s." in told[-1]


def test_long_lists_are_cut_and_say_so() -> None:
    result = busy_home(600)
    result["moves"] = result["moves"] * 10
    assert f"Stream moves (200 of {len(result['moves'])})" in Page(report.render_report(result)).text


def test_a_move_from_no_path_is_told_so(busy: Page) -> None:
    assert "no path Power line" in busy.text


def test_series_without_values_are_replaced_by_a_sentence() -> None:
    page = Page(report.render_report(plain_home()))
    assert "The daemon gave no path a quota." in page.text
    assert "The daemon pinned no client." in page.text
    assert "Stream moves: none." in page.text
    assert list(page.plots()) == ["total", "beside", "utilisation", "goodput", "rate", "broadcast"]


def test_a_run_that_left_no_frame_still_makes_a_page() -> None:
    result = plain_home(1)
    result["series"] = {"time": [], "paths": {}, "total": {name: [] for name in result["series"]["total"]},
                        "storm": [], "storm_without": []}
    page = Page(report.render_report(result))
    assert page.plots() == {}
    assert page.text.count("There is nothing to show.") == 5


def test_values_that_are_no_numbers_leave_gaps() -> None:
    result = busy_home(20)
    result["series"]["paths"]["wlan1.1"]["utilisation"][3] = float("nan")
    result["series"]["paths"]["wlan1.1"]["utilisation"][4] = float("inf")
    series = Page(report.render_report(result)).plots()["utilisation"]["series"]
    values = next(one["values"] for one in series if one["label"] == "5 GHz (wlan1.1)")
    assert values[3] is None and values[4] is None and values[5] is not None


def test_the_threshold_of_the_daemon_is_left_out_when_unknown() -> None:
    result = busy_home(60)
    del result["scenario"]["high_threshold"]
    page = Page(report.render_report(result))
    assert page.data["threshold"] is None
    assert "Level line" not in page.text


# Foreign texts

def test_texts_of_a_scenario_stay_texts() -> None:
    page = Page(report.render_report(hostile_home()))
    assert len(page.raw["script"]) == 3
    assert not any(tag == "img" for tag, _ in page.elements)
    assert not any(name.startswith("on") for _, attributes in page.elements for name in attributes)
    assert page.text.count("<script>alert(1)</script>") >= 10


def test_data_for_the_plots_arrives_unchanged() -> None:
    data = Page(report.render_report(hostile_home())).data
    assert data["events"] == [[3.0, NASTY]]
    assert data["moves"] == [[4.0, NASTY, NASTY, 1]]
    assert NASTY in data["names"]


def test_a_script_cannot_end_its_element() -> None:
    assert report._inline_script('a = "</SCRIPT><!-- x";') == 'a = "\\x3c/SCRIPT>\\x3c!-- x";'


# It stands alone

def test_the_page_refers_to_nothing_outside(busy: Page) -> None:
    for tag, attributes in busy.elements:
        assert tag not in ("link", "base", "iframe", "object", "embed", "audio", "video", "form"), tag
        assert not {"src", "srcset", "data", "poster", "action"} & attributes.keys(), (tag, attributes)
        assert attributes.get("href", "#").startswith("#"), attributes
    for style in busy.raw["style"]:
        assert "url(" not in style and "@import" not in style
    assert not any("sourceMappingURL" in part for parts in busy.raw.values() for part in parts)


def test_the_policy_allows_exactly_the_scripts_of_the_page(busy: Page) -> None:
    policy = next(a["content"] for _, a in busy.elements if a.get("http-equiv") == "Content-Security-Policy")
    allowed = re.findall(r"'sha256-([^']+)'", policy)
    assert allowed == [base64.b64encode(hashlib.sha256(script.encode()).digest()).decode()
                       for script in busy.raw["script"][1:]]
    assert "default-src 'none'" in policy


def test_the_licence_of_the_library_is_in_the_page(busy: Page) -> None:
    assert "Permission is hereby granted, free of charge" in busy.text
    assert "Dan Vanderkam" in busy.text


def test_a_missing_library_is_named_with_its_package(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    monkeypatch.setattr(report, "LIBRARY", tmp_path)
    with pytest.raises(report.ReportError, match="needs the package libjs-dygraphs: .*dygraph.min.js: No such file"):
        report.render_report(plain_home())


def test_the_page_is_written_as_utf_8(tmp_path: Path) -> None:
    report.write_report(plain_home(), tmp_path / "page.html")
    assert "✗ Not as expected" in (tmp_path / "page.html").read_text(encoding="utf-8")


def test_an_hour_of_five_paths_stays_small() -> None:
    text = report.render_report(busy_home(3600))
    assert len(text.encode()) < 1_500_000
    data = Page(text).data
    for plot in data["plots"]:
        for series in plot.get("series", []):
            assert len(series["values"]) == len(data["times"]) <= report_data.MAX_ROWS
