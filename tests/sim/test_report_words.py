"""The words of the report pages: each that a page shows in a heading is explained in it."""
import re
import sys
from pathlib import Path

import pytest
from result_fixture import busy_home, plain_home
from test_report import Page, hostile_home

from kolt_sim.view import report_words
from kolt_sim.view.report import render_report
from kolt_sim.view.report_words import WORDS, anchor, explained

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / part) for part in ("linux/mesh", "tests/mesh")]


def mesh_page() -> str:
    from kolt_mesh import page
    from records import made_up
    return page.render(made_up(figures=FIGURES))


FIGURES = [(name, "1") for name in ("arriving before the first event", "longest time without a frame",
                                    "lost in full queues and by the cut", "broadcasts meanwhile",
                                    "download over 6 streams")]
PAGES = {"busy": lambda: render_report(busy_home()), "quiet": lambda: render_report(plain_home()), "mesh": mesh_page}


@pytest.fixture(scope="module", params=PAGES)
def text(request: pytest.FixtureRequest) -> str:
    return PAGES[request.param]()


# The pages

def test_every_name_of_a_figure_a_column_and_a_plot_has_an_explained_word(text: str) -> None:
    figures = re.search(r'<section id="figures".*?</section>', text, re.DOTALL)[0]
    beside = "".join(re.findall(r'<section id="beside".*?</section>', text, re.DOTALL))
    paths = re.search(r'<section id="paths".*?</section>', text, re.DOTALL)[0]
    names = (re.findall(r"<th scope=row>(.*?)</th>", beside) + re.findall(r"<th scope=\w+>(.*?)</th>", figures)
             + re.findall(r"<th scope=col>(.*?)</th>", paths) + re.findall(r"<figcaption><b>(.*?)</b>", text))
    assert len(names) > 12
    assert [name for name in names if 'class="term"' not in name] == []


def test_every_link_leads_to_a_meaning_and_every_meaning_is_linked(text: str) -> None:
    page = Page(text)
    linked = {attributes["href"].removeprefix("#") for tag, attributes in page.elements if attributes.get("class") == "term"}
    meanings = [attributes["id"] for tag, attributes in page.elements if attributes.get("id", "").startswith("word-")]
    assert set(meanings) == linked and len(meanings) == len(linked)


def test_the_sources_glossary_is_named(text: str) -> None:
    assert "The sources of kolt have all its words in docs/glossary.md." in Page(text).text


def test_texts_of_a_scenario_are_not_taken_for_words_of_the_page() -> None:
    result = hostile_home()
    result["scenario"]["title"] = result["scenario"]["about"] = "a storm of streams"
    result["scenario"]["notes"] = ["goodput"]
    text = render_report(result)
    assert text.count("a storm of streams") == 3 and "<li>goodput</li>" in text


@pytest.mark.parametrize("word", ["relay", "nonrelay", "class", "compatibility group", "couple", "need-HA", "work mode",
                                  "path", "client", "stream", "quota", "utilisation", "goodput", "relief", "storm"])
def test_the_words_of_the_daemon_are_those_of_the_glossary(word: str) -> None:
    glossary = (Path(__file__).resolve().parents[2] / "docs/glossary.md").read_text(encoding="utf-8")
    headings = [heading.lower() for heading in re.findall(r"^## (.*)$", glossary, re.MULTILINE)]
    assert word in WORDS and (word.lower() in headings or f"{word.lower()}s" in headings)


# Linking

@pytest.mark.parametrize("text, linked", [
    ("Quota of each path", ["quota", "path"]), ("the path of a path", ["path"]), ("stream moves", ["stream move"]),
    ("without", ["without the daemon"]), ("without acknowledgements", []), ("HA-entry, pathway, rerate", []),
    ("mean PHY rate", ["PHY rate"]), ('<b title="path">no storm</b> &rate;', ["storm"])])
def test_the_first_of_each_word_is_linked_and_nothing_within_markup(text: str, linked: list[str]) -> None:
    made = explained(text)
    assert re.findall(r'<a class="term" href="#([\w-]+)">', made) == [anchor(word) for word in linked]
    assert re.sub(r"<a [^>]*>|</a>", "", made) == text


def test_no_word_is_explained_by_itself_and_none_twice() -> None:
    assert len({anchor(word) for word in WORDS}) == len(WORDS)
    for word, meaning in WORDS.items():
        assert f'"#{anchor(word)}"' not in explained(meaning, word)
        assert meaning.endswith(".") and len(meaning) < 250


def test_a_meaning_brings_the_words_that_it_needs() -> None:
    made = report_words.section(explained("bounce"))
    assert all(f'id="{anchor(word)}"' in made for word in ("bounce", "stream", "path", "mesh", "link"))
    assert "word-seed" not in made
    assert report_words.section("") == ""
