"""The manual page of kolt-top says what the program takes and tells, and is well-formed."""
import re
import subprocess
from collections import Counter

import pytest
from top_node import TOP, build_directory

PAGE = TOP / "docs/man/kolt-top.1"
SOURCES = TOP / "tools/top"
# Whose members stand in a part of the page, behind what it begins with: the functions that add them.
OBJECTS = {"": ["node_of"], "settings": ["settings_of"], "bridges": ["bridge_of"],
           "paths": ["path_of", "streams_of", "traffic_of", "measured_of"], "clients": ["client_of"],
           "client": ["why_of", "stream_of"]}


def page() -> str:
    return PAGE.read_text()


def test_the_page_has_nothing_to_complain_about_but_pages_that_are_not_installed():
    done = subprocess.run(["mandoc", "-T", "lint", PAGE], capture_output=True, text=True)
    complaints = (done.stdout + done.stderr).splitlines()
    assert [line for line in complaints if not re.search(r"referenced manual not found: Xr kolt", line)] == []


def test_every_option_is_described_and_no_other():
    told = subprocess.run([build_directory() / "bin/kolt-top", "--help"], capture_output=True, text=True, check=True).stdout
    taken = set(re.findall(r'\{"([a-z-]+)", (?:no|required)_argument', (SOURCES / "options.cpp").read_text()))
    described = {name for line in re.findall(r"^\.It (Fl .*)$", page(), re.MULTILINE)
                 for name in re.findall(r"Fl -([a-z-]+)", line)}
    assert taken == described and len(taken) > 8
    assert set(re.findall(r"--([a-z-]+)", told)) == taken


@pytest.mark.parametrize("function", ["top_place_word", "top_stream_place_word", "top_bridge_state", "top_path_state"])
def test_every_word_of_the_tables_is_explained(function):
    body = (SOURCES / "why.cpp").read_text().split(f" *{function}(" if "path_state" not in function else f" {function}(")[1]
    words = re.findall(r'"([a-z][a-z-]+)"', body.split("\n}\n")[0])
    assert words and not [word for word in words if not re.search(rf"^\.Cm .*\b{word}\b", page(), re.MULTILINE)]


def section(title: str) -> str:
    return page().split(f".Ss {title}\n")[1].split("\n.S")[0]


def added(source: str) -> list[str]:
    return re.findall(r'\badd(?:_\w+)?\(\w+, "(\w+)",', source)


def test_the_page_names_every_member_of_an_object_and_no_other():
    source = (SOURCES / "show_json.cpp").read_text()
    bodies = re.findall(r"^json_object \*(\w+)\((.*?)^}$", source, re.MULTILINE | re.DOTALL)
    listed, _, _ = section("JSON").partition(".El\n")
    first, *parts = re.split(r"^\.It Va (\w+)$", listed, flags=re.MULTILINE)
    told = {"": first} | dict(zip(parts[::2], parts[1::2], strict=True))
    assert told.keys() == OBJECTS.keys()
    for title, functions in OBJECTS.items():
        members = [name for function, body in bodies if function in functions for name in added(body)]
        named = re.findall(r"\w+", " ".join(re.findall(r"^\.Va (.*)$", told[title], re.MULTILINE)))
        assert Counter(named) == Counter(members) and members, title
    counted = [function for functions in OBJECTS.values() for function in functions]
    assert {function for function, body in bodies if added(body)} == set(counted)


def test_the_page_names_every_metric_and_its_labels_and_no_other():
    source = (SOURCES / "show_prometheus.cpp").read_text()
    named = set(re.findall(r"\w+", " ".join(re.findall(r"^\.Li (.*)$", section("Prometheus"), re.MULTILINE))))
    labels = set(re.findall(r'[{,](\w+)=\\?"', source))
    assert labels == {"mode", "bridge", "link", "port"}
    assert named == set(re.findall(r"\bkolt_(?:node|read|bridge|path)_\w+", source)) | labels and len(named) > 20
