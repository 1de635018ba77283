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


def test_every_member_of_an_object_that_the_page_names_is_there():
    source = (SOURCES / "show_json.cpp").read_text()
    named = set(re.findall(r"^\.Va ([a-z_ ,]+)$", page().split(".Ss JSON")[1].split(".Ss ")[0], re.MULTILINE))
    members = {name for line in named for name in re.split(r"[ ,]+", line) if name and not name.startswith("_")}
    assert len(members) > 8 and not [name for name in members if f'"{name}"' not in source]
