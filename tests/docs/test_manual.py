"""The manual pages: without a complaint of mandoc, and with each program's options as the program itself tells them."""
import re
import subprocess
from pathlib import Path

import pytest

from tree import TOP, build_directory, files, name_of

PAGES = [page for page in files("docs/man/*") if re.search(r"\.[1-8]$", page.name)]
PLAIN = {"kolt-demo", "kolt-event", "kolt-ubusd"}  # of few words, and none of them asks for help
PROGRAM_PAGES = [page for page in PAGES if page.suffix in (".1", ".8") and page.stem not in PLAIN]

# Pages of other packages that ours may refer to.
KNOWN = {"bridge(8)", "ip(8)", "journalctl(1)", "logread(8)", "prometheus(1)", "syslog(3)", "systemd(1)", "tc(8)"}

OPTION = re.compile(r"(?<![\w-])--?[a-zA-Z][\w-]*")
COMMAND = re.compile(r"^    ([a-z]+)  ", re.MULTILINE)  # as argparse lists them
MARK = re.compile(r'<h[12] class="S[hs]"[^>]*><a[^>]*>(?P<title>.*?)</a>|<dt.*?>(?P<item>.*?)</dt>', re.DOTALL)
FLAG = re.compile(r'<code class="Fl">(.*?)</code>', re.DOTALL)


def mandoc(*arguments: str | Path) -> str:
    return subprocess.run(["mandoc", *arguments], capture_output=True, text=True).stdout


def complaints_about(page: Path) -> list[str]:
    """All that mandoc has to say; whether other pages are installed is nothing about this one."""
    lint = mandoc("-T", "lint", "-W", "style", page)
    return [line for line in lint.splitlines() if f"{page}:" in line and "referenced manual not found" not in line]


def page_options(page: Path, commands: list[str]) -> dict[str, set[str]]:
    """The options that a page explains, under "" or the command that its section is called after."""
    options: dict[str, set[str]] = {"": set()}
    section = ""
    for mark in MARK.finditer(mandoc("-T", "html", page)):
        if mark["title"] is not None:
            section = mark["title"] if mark["title"] in commands else ""
        else:
            options.setdefault(section, set()).update(FLAG.findall(mark["item"]))
    return options


def help_of(page: Path, *command: str) -> str:
    program = next(iter(files(f"*/{page.stem}")), build_directory() / "bin" / page.stem)  # a script, or built
    wanted = ["-h"] if page.stem == "kolt" else ["--help"]
    told = subprocess.run([program, *command, *wanted], capture_output=True, text=True)
    assert told.returncode == 0, told.stderr
    return told.stdout + told.stderr


def synopsis_options(page: Path) -> set[str]:
    html = mandoc("-T", "html", page)
    return set(FLAG.findall(html[html.index('id="SYNOPSIS"'):html.index('id="DESCRIPTION"')]))


@pytest.mark.parametrize("page", PAGES, ids=name_of)
def test_mandoc_has_no_complaint(page):
    assert complaints_about(page) == []


@pytest.mark.parametrize("page", PROGRAM_PAGES, ids=name_of)
def test_a_page_explains_the_options_that_the_program_tells_and_no_others(page):
    text = help_of(page)
    commands = COMMAND.findall(text)
    told = {command: set(OPTION.findall(help_of(page, command))) for command in commands}
    explained = page_options(page, commands)
    everywhere = explained.pop("")
    assert everywhere == set(OPTION.findall(text))
    assert {command: explained.get(command, set()) | everywhere for command in commands} == told


@pytest.mark.parametrize("page", PROGRAM_PAGES, ids=name_of)
def test_the_synopsis_names_only_what_is_explained(page):
    commands = COMMAND.findall(help_of(page))
    assert synopsis_options(page) <= set().union(*page_options(page, commands).values())


@pytest.mark.parametrize("page", PAGES, ids=name_of)
def test_a_page_is_called_what_its_file_is_called_and_refers_to_pages_that_exist(page):
    source = page.read_text()
    assert re.search(rf"^\.Dt {page.stem.upper()} {page.suffix[1:]}$", source, re.MULTILINE)
    referred = {f"{name}({section})" for name, section in re.findall(r"\bXr (\S+) (\d)", source)}
    assert referred <= KNOWN | {f"{other.stem}({other.suffix[1:]})" for other in PAGES}


# The check itself

def test_a_fault_of_a_page_is_found(tmp_path):
    page = tmp_path / "kolt.8"
    page.write_text((TOP / "docs/man/kolt.8").read_text().replace(".Sh FILES", ".Bogus\n.Sh FILES"))
    assert any("unknown macro" in complaint for complaint in complaints_about(page))


def test_an_option_counts_where_it_is_explained_and_not_where_it_is_mentioned(tmp_path):
    page = tmp_path / "x.1"
    page.write_text(".Dd November 22, 2026\n.Dt X 1\n.Os\n.Sh NAME\n.Nm x\n.Nd y\n.Sh DESCRIPTION\n.Bl -tag -width Ds\n"
                    ".It Fl a , Fl -all Ar z\nNot\n.Fl b .\n.El\n.Ss run\n.Bl -tag -width Ds\n.It Fl -fast\n.El\n")
    assert page_options(page, ["run"]) == {"": {"-a", "--all"}, "run": {"--fast"}}
