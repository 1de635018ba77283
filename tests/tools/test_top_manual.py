"""The manual page of kolt-top says what the program takes and tells, and is well-formed."""
import re
import subprocess

import pytest
from top_node import TOP, build_directory

PAGE = TOP / "docs/man/kolt-top.1"
SOURCES = TOP / "tools/top"


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


def test_the_page_names_every_member_of_an_object_and_no_other():
    source = (SOURCES / "show_json.cpp").read_text()
    members = set(re.findall(r'\badd(?:_\w+)?\(\w+, "(\w+)",', source))
    named = {name for line in re.findall(r"^\.(?:It )?Va (.*)$", section("JSON"), re.MULTILINE)
             for name in re.findall(r"\w+", line) if not name.startswith("_")}
    assert named == members and len(named) > 40


def test_the_page_names_every_metric_and_its_labels_and_no_other():
    source = (SOURCES / "show_prometheus.cpp").read_text()
    named = set(re.findall(r"\w+", " ".join(re.findall(r"^\.Li (.*)$", section("Prometheus"), re.MULTILINE))))
    labels = set(re.findall(r'[{,](\w+)=\\?"', source))
    assert labels == {"mode", "bridge", "link", "port"}
    assert named == set(re.findall(r"\bkolt_(?:node|read|bridge|path)_\w+", source)) | labels and len(named) > 20
