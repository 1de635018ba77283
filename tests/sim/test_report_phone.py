"""The report page in the hand: whole on a narrow screen, and by touch all that a pointer would find."""
import sys
from pathlib import Path

import pytest
from browser import Browser
from result_fixture import busy_home

from kolt_sim.view import verdict
from kolt_sim.view.report import render_report

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / part) for part in ("linux/mesh", "tests/mesh")]

PHONE = 360
# What a person must not have to look for beyond the screen's edge.
OUTSIDE = """
(() => {
  for (const one of document.querySelectorAll("details")) one.open = true;
  const found = [];
  for (const box of document.querySelectorAll(".scroll")) {
    if (box.scrollWidth > box.clientWidth) found.push(box.closest("section").id + " scrolls");
  }
  for (const one of document.querySelectorAll("td, th, dt, dd, p, li, button, figcaption")) {
    const {left, right} = one.getBoundingClientRect();
    if (left < 0 || right > innerWidth) found.push(one.tagName + " " + one.textContent.slice(0, 40));
  }
  return found;
})()
"""


def mesh_page() -> str:
    from kolt_mesh import page
    from records import made_up
    return page.render(made_up())


PAGES = {"modelled": lambda: render_report(busy_home()), "mesh": mesh_page}


@pytest.fixture(scope="module")
def pages(tmp_path_factory: pytest.TempPathFactory) -> dict[str, Path]:
    directory = tmp_path_factory.mktemp("pages")
    for name, render in PAGES.items():
        (directory / f"{name}.html").write_text(render(), encoding="utf-8")
    return {name: directory / f"{name}.html" for name in PAGES}


@pytest.fixture
def phone(browser: Browser) -> Browser:
    return browser.become(PHONE, 740, touch=True)


@pytest.mark.parametrize("name", PAGES)
def test_nothing_lies_beyond_the_edge_of_a_phone(phone: Browser, pages: dict[str, Path], name: str) -> None:
    phone.open(pages[name])
    assert phone.ask("innerWidth") == PHONE == phone.ask("document.documentElement.scrollWidth")
    assert phone.ask(OUTSIDE) == []


def test_no_time_and_no_heading_of_a_record_is_broken_on_a_phone(phone: Browser, pages: dict[str, Path]) -> None:
    phone.open(pages["modelled"])
    phone.ask(OUTSIDE)  # which opens all lists
    heights = phone.ask("[...document.querySelectorAll('#records :is(th, td:first-child)')].map(one => {"
                        "const range = document.createRange(); range.selectNodeContents(one);"
                        "return range.getBoundingClientRect().height; })")
    assert len(heights) > 50 and max(heights) < 26


@pytest.mark.parametrize("width", [500, 768, 901, 1280])
def test_nothing_lies_beyond_the_edge_of_other_windows(browser: Browser, pages: dict[str, Path], width: int) -> None:
    browser.become(width)
    for page in pages.values():
        browser.open(page)
        assert browser.ask(OUTSIDE) == []


@pytest.mark.parametrize("name", PAGES)
def test_no_word_of_a_heading_is_broken_on_a_phone(phone: Browser, pages: dict[str, Path], name: str) -> None:
    phone.open(pages[name])
    broken = phone.ask("""[...document.querySelectorAll("thead th, tbody th, .head")].flatMap(one => {
        const range = document.createRange(), texts = document.createTreeWalker(one, NodeFilter.SHOW_TEXT), found = [];
        for (let text = texts.nextNode(); text; text = texts.nextNode()) {
          for (const word of text.data.matchAll(/[a-z]+/gi)) {
            range.setStart(text, word.index);
            range.setEnd(text, word.index + word[0].length);
            if (range.getClientRects().length > 1) found.push(word[0]);
          }
        }
        return found;
    })""")
    assert broken == []


def test_a_table_of_more_columns_than_a_phone_has_room_for_is_stacked(phone: Browser, tmp_path: Path,
                                                                      monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(verdict, "SIDES", verdict.SIDES * 2)
    monkeypatch.setattr(verdict, "HEADINGS", verdict.HEADINGS * 2)
    (tmp_path / "wide.html").write_text(render_report(busy_home()), encoding="utf-8")
    phone.open(tmp_path / "wide.html")
    assert phone.ask(OUTSIDE) == []
    assert phone.ask("document.querySelector('#figures tbody tr').innerText").split("\n")[:2] == [
        "goodput, Mbit/s", "with the daemon"]


@pytest.mark.parametrize("name", PAGES)
def test_every_value_of_a_path_stands_beside_its_heading_on_a_phone(phone: Browser, pages: dict[str, Path],
                                                                    name: str) -> None:
    phone.open(pages[name])
    heads = phone.ask("[...document.querySelectorAll('#paths thead th')].slice(1).map(one => one.textContent)")
    rows = phone.ask("[...document.querySelectorAll('#paths tbody tr')].map(row => row.innerText.split('\\n')"
                     ".map(line => line.trim()).filter(line => line))")
    assert len(heads) >= 5 and len(rows) >= 3
    for row in rows:
        assert row[1::2] == heads and all(row[2::2])


# By touch

AXIS = "[...document.querySelectorAll('#plot-total .dygraph-axis-label-x')].map(label => label.textContent)"
SHOWN = "document.getElementById('shown').textContent"
LEGEND = "document.querySelector('#plot-rate .legend').innerText"


def plot_place(phone: Browser, name: str) -> tuple[float, float, float]:
    """Where a plot lies when it is in view: its left and right edge, and the height of its middle."""
    return tuple(phone.ask(f"""(() => {{
        const plot = document.querySelector("#plot-{name} .plot");
        plot.scrollIntoView({{block: "center", behavior: "instant"}});
        const box = plot.getBoundingClientRect();
        return [box.left, box.right, box.top + box.height / 2];
    }})()"""))


def test_the_buttons_move_in_the_run_by_touch(phone: Browser, pages: dict[str, Path]) -> None:
    phone.open(pages["modelled"])
    told = []
    for button in ("whole", "closer", "later", "later", "wider", "earlier"):
        phone.tap(f"#{button}")
        told.append(phone.ask(SHOWN))
    assert told == ["Shown: the whole run, 10:00.", "Shown: 2:30 to 7:30 of 10:00.", "Shown: 5:00 to 10:00 of 10:00.",
                    "Shown: 5:00 to 10:00 of 10:00.", "Shown: the whole run, 10:00.", "Shown: the whole run, 10:00."]


def test_the_buttons_are_large_enough_for_a_finger(phone: Browser, pages: dict[str, Path]) -> None:
    phone.open(pages["modelled"])
    sizes = phone.ask("[...document.querySelectorAll('#zoom button')].map(one => [one.offsetWidth, one.offsetHeight])")
    assert len(sizes) == 5 and all(width >= 40 and height >= 40 for width, height in sizes)


def test_a_touch_reads_the_values_and_a_finger_that_moves_goes_on_reading(phone: Browser, pages: dict[str, Path]) -> None:
    phone.open(pages["modelled"])
    phone.ask("document.getElementById('whole').click()")
    assert "at " not in phone.ask(LEGEND)
    left, right, middle = plot_place(phone, "rate")
    phone.touch((left + 0.5 * (right - left), middle))
    first = phone.ask(LEGEND)
    phone.touch((left + 0.5 * (right - left), middle), (left + 0.7 * (right - left), middle),
                (left + 0.8 * (right - left), middle))
    second = phone.ask(LEGEND)
    assert "at 3:" in first and "at 7:" in second, (first, second)
    assert phone.ask("document.querySelector('#plot-total .legend').innerText").endswith(second[-4:])  # and all plots follow
    assert phone.ask(SHOWN) == "Shown: the whole run, 10:00."


DOUBLE_CLICK = """
(all => all[all.length - 1].dispatchEvent(new MouseEvent("dblclick", {bubbles: true})))(
  document.querySelectorAll("#plot-rate canvas"));
"""
OVERLAPS = """
[...document.querySelectorAll(".rail")].flatMap(rail => {
  const boxes = [...rail.querySelectorAll("button")].map(one => one.getBoundingClientRect());
  return boxes.slice(1).filter((box, index) => box.left < boxes[index].right - 1);
}).length
"""
FACT = "document.getElementById('fact')"


def fact(browser: Browser) -> str:
    """What the box of facts says, if it is shown where a person can see it."""
    return browser.ask(f"""(() => {{
        const box = {FACT}.getBoundingClientRect();
        const seen = !{FACT}.hidden && box.left >= 0 && box.top >= 0 && box.right <= innerWidth && box.bottom <= innerHeight;
        return seen ? {FACT}.innerText : "";
    }})()""")


def test_markers_keep_apart_for_a_finger(browser: Browser, pages: dict[str, Path]) -> None:
    browser.become(768, touch=True).open(pages["modelled"])
    assert browser.ask(OVERLAPS) == 0
    sizes = browser.ask("[...document.querySelectorAll('.rail button')].map(one => [one.offsetWidth, one.offsetHeight])")
    assert len(sizes) > 20 and all(width >= 32 and height >= 28 for width, height in sizes)


@pytest.mark.parametrize("selector, number, told", [
    ("#plot-total .rail.events button", 0, "1: 0:15 client phone-3 to uplink"),
    ("#plot-total .rail.events button", 1, "2: 2:00 neighbours of 5g go to 40 %\n3: 2:06 neighbours of 2.4g go to 20 %"),
    ("#plot-broadcast .rail.events button", 0, "1: 0:15 client phone-3 to uplink"),
    (".moves button", 0, "0:20 to 0:40\n4 × 5 GHz → 2.4 GHz"),
    (".moves button", -1, "5 GHz → 2nd 5 GHz"),
    ("#plot-quota .term", 0, "quota\nWhat the daemon may still put on a path"),
    ("#figures .term", 0, "with the daemon\nThe node as kolt runs it"),
    ("#words dd .term", 0, "stream\nThe packets between"),
])
def test_a_touch_tells_what_a_marker_or_a_word_means(phone: Browser, pages: dict[str, Path], selector: str, number: int,
                                                     told: str) -> None:
    phone.open(pages["modelled"])
    if number < 0:
        number += phone.ask(f"document.querySelectorAll('{selector}').length")
    assert fact(phone) == ""
    phone.tap(selector, number)
    assert told in fact(phone).replace("\n\n", "\n")
    phone.tap(selector, number)
    assert fact(phone) == ""


def test_a_fact_goes_when_something_else_is_touched_or_the_plots_change(phone: Browser, pages: dict[str, Path]) -> None:
    phone.open(pages["modelled"])
    for gone in (lambda: phone.tap("h1"), lambda: phone.key("Escape"), lambda: phone.ask(DOUBLE_CLICK)):
        phone.tap("#plot-total .rail.events button")
        assert fact(phone)
        gone()
        assert fact(phone) == ""


def test_an_event_leads_to_its_row_in_the_list(phone: Browser, pages: dict[str, Path]) -> None:
    phone.open(pages["modelled"])
    phone.tap("#plot-total .rail.events button", 1)
    phone.tap("#fact a")
    top, bottom = phone.ask("(box => [box.top, box.bottom])(document.getElementById('event-2').getBoundingClientRect())")
    assert -1 <= top < bottom <= 740 and fact(phone) == ""


def test_a_pointer_that_is_over_it_tells_it_too(browser: Browser, pages: dict[str, Path]) -> None:
    browser.become(1280).open(pages["modelled"])
    browser.point("#plot-total .rail.events button")
    assert "phone-3 to uplink" in fact(browser)
    browser.point("h2")
    assert fact(browser) == ""
