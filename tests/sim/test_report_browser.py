"""The report page in a real browser: the plots are drawn, in the colours of the paths, and answer to the pointer."""
import base64
import hashlib
import json
import re
from collections.abc import Callable
from pathlib import Path

import pytest
from browser import Browser
from result_fixture import busy_home, plain_home

from kolt_sim.view.report import render_report

ALL_PATHS = {"path-ethernet", "path-plc", "path-2-4g", "path-5g", "path-5g-2"}
WIFI = {"path-2-4g", "path-5g", "path-5g-2"}
OTHERS = {"with", "without", "ideal", "alarm", "down", "best-link", "hash", "weighted-hash"}

COLLECT_FAULTS = """
window.faults = [];
addEventListener("error", event => faults.push(event.message));
addEventListener("unhandledrejection", event => faults.push(String(event.reason)));
addEventListener("securitypolicyviolation", event => faults.push("blocked " + event.violatedDirective));
"""
# For each figure: how many pixels are drawn, and how many of them (well covered ones) have each of the named colours.
COUNT_PIXELS = """
const style = getComputedStyle(document.documentElement);
const colours = NAMES.map(name => [name, style.getPropertyValue("--" + name).trim().match(/[0-9a-f]{2}/g)
  .map(part => parseInt(part, 16))]);
function look(figure) {
  const seen = {canvases: 0, width: 0, height: 0, drawn: 0, colours: {}};
  for (const canvas of figure.querySelectorAll("canvas")) {
    const pixels = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
    seen.canvases++;
    seen.width = canvas.clientWidth;
    seen.height = canvas.clientHeight;
    for (let at = 0; at < pixels.length; at += 4) {
      if (pixels[at + 3] === 0) continue;
      seen.drawn++;
      if (pixels[at + 3] < 100) continue;
      for (const [name, rgb] of colours) {
        if (rgb.every((part, index) => Math.abs(part - pixels[at + index]) < 12)) {
          seen.colours[name] = (seen.colours[name] || 0) + 1;
        }
      }
    }
  }
  return seen;
}
const found = Object.fromEntries([...document.querySelectorAll("figure")].map(one => [one.id, look(one)]));
const answer = {faults, found, loaded: performance.getEntriesByType("resource").map(entry => entry.name),
  spill: document.documentElement.scrollWidth - document.documentElement.clientWidth};
"""
POINT = """
function point(kind, target, share) {
  const box = document.querySelector("#plot-rate .plot").getBoundingClientRect();
  target.dispatchEvent(new MouseEvent(kind, {bubbles: true, button: 0, clientX: box.left + share * box.width,
    clientY: box.top + box.height / 2}));
}
const canvases = document.querySelectorAll("#plot-rate canvas"), canvas = canvases[canvases.length - 1];
const labels = () => Object.fromEntries([...document.querySelectorAll("figure")].map(one =>
  [one.id, [...one.querySelectorAll(".dygraph-axis-label-x")].map(label => label.textContent)]));
"""
HOVER = POINT + """
point("mousemove", canvas, 0.5);
const answer = {faults, legends: Object.fromEntries([...document.querySelectorAll("figure")].map(one =>
  [one.id, one.querySelector(".legend").textContent]))};
"""
ZOOM = POINT + """
const button = document.getElementById("whole"), before = {labels: labels(), hidden: button.hidden};
point("mousedown", canvas, 0.3);
point("mousemove", document, 0.4);
point("mouseup", document, 0.4);
const zoomed = {labels: labels(), hidden: button.hidden};
point("dblclick", canvas, 0.5);
const answer = {faults, before, zoomed, after: {labels: labels(), hidden: button.hidden}};
"""


Ask = Callable[..., dict]


@pytest.fixture
def ask(browser: Browser, tmp_path: Path) -> Ask:
    def ask(result: dict, script: str, *, width: int = 1280, dark: bool = False, whole: bool = True) -> dict:
        """Runs a script in the report of a result, on the whole run unless asked not to; returns its `answer`."""
        digest = base64.b64encode(hashlib.sha256(COLLECT_FAULTS.encode()).digest()).decode()
        text = render_report(result).replace("script-src ", f"script-src 'sha256-{digest}' ", 1)
        page = tmp_path / "page.html"
        page.write_text(text.replace("</title>", f"</title><script>{COLLECT_FAULTS}</script>", 1), encoding="utf-8")
        browser.become(width, 1000, dark=dark).open(page)
        if whole:
            browser.ask("document.getElementById('whole').click()")
        names = json.dumps(sorted(ALL_PATHS | OTHERS))
        return browser.ask(f"(() => {{{script.replace('NAMES', names)}\nreturn answer;}})()")
    return ask


def paths_in(seen: dict) -> set[str]:
    return {name for name, count in seen["colours"].items() if name in ALL_PATHS and count >= 20}


def check_busy(answer: dict) -> None:
    assert answer["faults"] == []
    assert answer["loaded"] == []
    for name, seen in answer["found"].items():
        assert seen["canvases"] == 2, name
        assert seen["width"] > 200 and seen["height"] > 100, (name, seen)
        assert seen["drawn"] > 2000, (name, seen)
    assert {name.removeprefix("plot-"): paths_in(seen) for name, seen in answer["found"].items()} == {
        "total": set(), "beside": set(), "utilisation": ALL_PATHS, "goodput": ALL_PATHS, "quota": WIFI,
        "rate": ALL_PATHS, "clients": {"path-5g", "path-5g-2"}, "broadcast": {"path-ethernet", "path-5g"}}
    total, broadcast = (answer["found"][name]["colours"] for name in ("plot-total", "plot-broadcast"))
    assert {"with", "without", "ideal", "alarm"} <= total.keys()
    assert {"with", "best-link", "hash", "weighted-hash"} <= answer["found"]["plot-beside"]["colours"].keys()
    assert broadcast["alarm"] > 100 and broadcast["down"] > 100


@pytest.mark.parametrize("how", [{}, {"dark": True}, {"dark": True, "width": 768}, {"dark": True, "width": 360}, {"width": 500}],
                         ids=["light", "dark", "dark-768", "dark-360", "narrow"])
def test_every_plot_is_drawn_in_the_colours_of_its_paths(ask: Ask, how: dict) -> None:
    answer = ask(busy_home(), COUNT_PIXELS, **how)
    check_busy(answer)
    assert answer["spill"] == 0  # nothing is wider than the window


def test_a_long_run_is_drawn_too(ask: Ask) -> None:
    check_busy(ask(busy_home(3600), COUNT_PIXELS))


@pytest.mark.parametrize("result", [plain_home(1, ["2.4g"]), busy_home(1, kinds=["2.4g"])], ids=["plain", "busy"])
def test_one_tick_of_one_path_is_drawn(ask: Ask, result: dict) -> None:
    answer = ask(result, COUNT_PIXELS)
    assert answer["faults"] == []
    for name in ("utilisation", "goodput", "rate"):
        assert paths_in(answer["found"][f"plot-{name}"]) == {"path-2-4g"}, name
    assert answer["found"]["plot-quota"]["canvases"] == 0
    assert answer["found"]["plot-clients"]["canvases"] == 0


def test_the_pointer_shows_the_values_of_that_time_in_every_plot(ask: Ask) -> None:
    answer = ask(busy_home(), HOVER)
    assert answer["faults"] == []
    times = {re.search(r"at (\d+:\d\d)$", legend)[1] for legend in answer["legends"].values()}
    assert len(times) == 1, answer["legends"]
    assert re.search(r"5 GHz \(wlan1\.1\)\d+", answer["legends"]["plot-utilisation"])
    assert "Ethernet:carries broadcast" in answer["legends"]["plot-broadcast"]
    assert "Storm without it:storm of eth0, wlan1.1" in answer["legends"]["plot-broadcast"]


def test_a_long_run_opens_where_most_happens_and_says_so(ask: Ask) -> None:
    answer = ask(busy_home(), POINT + """
        const answer = {faults, labels: labels(), told: document.getElementById("shown").textContent,
                        hidden: document.getElementById("whole").hidden};
        """, whole=False)
    assert answer["faults"] == [] and answer["hidden"] is False
    assert answer["told"] == "Shown: 0:00 to 2:35 of 10:00, where most happens."
    assert {(labels[0], labels[-1]) for labels in answer["labels"].values()} == {("0:00", "2:30")}


def test_a_drag_zooms_all_plots_and_a_double_click_shows_all_again(ask: Ask) -> None:
    answer = ask(busy_home(), ZOOM)
    assert answer["faults"] == []
    before, zoomed, after = answer["before"], answer["zoomed"], answer["after"]
    assert before["labels"]["plot-total"][0] == "0:00" and before["labels"]["plot-total"][-1] == "10:00"
    assert all(labels == zoomed["labels"]["plot-rate"] for labels in zoomed["labels"].values()), zoomed
    assert zoomed["labels"]["plot-rate"] != before["labels"]["plot-rate"]
    assert after == before
    assert (before["hidden"], zoomed["hidden"]) == (True, False)


def test_texts_of_a_scenario_run_nothing(ask: Ask) -> None:
    nasty = '</script><script>faults.push("ran")</script><img src=x onerror="faults.push(1)">'
    result = busy_home(60)
    result["scenario"]["title"] = nasty
    result["events"] = [{"time": 3.0, "text": nasty}]
    result["series"]["paths"][nasty] = result["series"]["paths"].pop("plc0") | {"type": nasty}
    result["moves"] = [{"time": 4.0, "stream": nasty, "client": nasty, "origin": nasty, "target": nasty}]
    answer = ask(result, 'const answer = {faults, images: document.images.length, '
                         'moves: document.querySelector(".moves").textContent};')
    assert answer["faults"] == []
    assert answer["images"] == 0
    assert nasty in answer["moves"]
