"""The files are as .editorconfig tells an editor to write them."""
import configparser
import fnmatch
from pathlib import Path

import pytest

from tree import TOP, files, name_of


def settings_of(name: str) -> dict[str, str]:
    """What .editorconfig says of a file; a later section counts more."""
    parser = configparser.ConfigParser()
    parser.read_string("[top]\n" + (TOP / ".editorconfig").read_text())
    settings: dict[str, str] = {}
    for section in parser.sections()[1:]:
        for pattern in section.strip("{}").split(",") if section.startswith("{") else [section]:
            if fnmatch.fnmatch(name if "/" in pattern else Path(name).name, pattern.replace("**", "*")):
                settings |= parser[section]
    return settings


def problems_of(name: str, content: bytes) -> list[str]:
    settings = settings_of(name)
    problems = []
    lines = content.split(b"\n")
    if settings["end_of_line"] == "lf" and b"\r" in content:
        problems.append("a carriage return")
    if settings["insert_final_newline"] == "true" and content and not content.endswith(b"\n"):
        problems.append("no line feed at the end")
    if settings["trim_trailing_whitespace"] == "true" and any(line.endswith((b" ", b"\t")) for line in lines):
        problems.append("blanks at the end of a line")
    if settings["indent_style"] == "space" and any(line.startswith(b"\t") for line in lines):
        problems.append("a tab at the begin of a line")
    if settings["charset"] == "utf-8":
        try:
            content.decode()
        except UnicodeDecodeError:
            problems.append("no UTF-8")
    return [f"{name}: {problem}" for problem in problems]


def test_every_file_keeps_the_editor_settings():
    assert [problem for path in files() for problem in problems_of(name_of(path), path.read_bytes())] == []


@pytest.mark.parametrize("name, content, count", [
    ("src/x.cpp", b"int x;\n", 0), ("src/x.cpp", b"int x;", 1), ("a.py", b"x \n\ty\r\n\xff\n", 4),
    ("packaging/Makefile", b"all:\n\ttrue\n", 0), ("tests/fuzz/corpus/fuzz_a/b", b"\t\r\xff ", 0)])
def test_what_an_editor_would_not_write_is_found(name, content, count):
    assert len(problems_of(name, content)) == count
