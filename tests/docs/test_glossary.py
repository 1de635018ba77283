"""The glossary: its words are in order, and each is explained once."""
import re

import pytest

from tree import TOP, anchors

PAGE = TOP / "docs/glossary.md"
TITLES = re.findall(r"^## (.*)$", PAGE.read_text(), re.MULTILINE)


def test_the_words_stand_in_alphabetical_order_and_once_each():
    assert TITLES == sorted(set(TITLES), key=str.lower)


def test_every_word_is_explained():
    sections = re.split(r"^## .*$", PAGE.read_text(), flags=re.MULTILINE)[1:]
    assert [title for title, text in zip(TITLES, sections) if len(text.split()) < 5] == []


@pytest.mark.parametrize("word", ["relay", "nonrelay", "class", "compatibility-group", "couple", "need-ha", "hd", "ha",
                                  "work-modes", "path", "quota", "stream", "far-client", "adjusting-period", "storm"])
def test_other_pages_may_count_on_these_words(word):
    assert word in anchors(PAGE)


def test_the_readme_lists_words_that_it_has_and_the_demonstration_names_it():
    listed = re.search(r"\[glossary\]\(docs/glossary\.md\) has the words:\s([^.]*)\.", (TOP / "README.md").read_text())
    assert listed is not None
    words = [word.strip().lower() for word in re.split(r",\s", listed[1])]
    assert len(words) > 4 and not set(words) - {title.lower() for title in TITLES}
    assert PAGE.name in (TOP / "platform/sim/demo.py").read_text()
