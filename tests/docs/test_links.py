"""Every link in a document, and every page that a program names, leads somewhere."""
import re
from pathlib import Path

import pytest

from tree import CODE, CODE_BLOCK, TOP, anchors, files, name_of

LINK = re.compile(r"\[[^]]*\]\(<?([^)\s>]+)>?(?: \"[^\"]*\")?\)|^\[[^]]+\]: +<?(\S+?)>?$", re.MULTILINE)
ELSEWHERE = re.compile(r"[a-z][a-z0-9+.-]*:", re.IGNORECASE)  # another machine's, such as mailto: and https:
NAMED_PAGE = re.compile(r"\bdocs/[\w/-]+\.md(?:#[\w-]+)?")
NAMED_PATH = re.compile(r"`((?:bench|cmake|compat|docs|linux|packaging|platform|scripts|sim|src|tests|tools)/[\w./-]+)[` ]")
PROGRAMS = ("*.py", "*.cpp", "*.h", "*.c", "*.html", "*.js", "*.cmake", "*CMakeLists.txt", "scripts/*", "sim/kolt-sim",
            "linux/mesh/kolt-mesh", "platform/sim/kolt-node", "tools/*", "bench/*", "packaging/*", "docs/man/*")

PAGES = files("*.md")


def problem_with(target: str, folder: Path, page: Path | None = None) -> str | None:
    """What is wrong with a link as seen from a folder; one that is only an anchor points into `page`."""
    path, _, anchor = target.partition("#")
    place = (folder / path).resolve() if path else page
    if place is None or not place.exists():
        return f"{target}: there is no such file"
    if not place.is_relative_to(TOP):
        return f"{target}: leads out of the tree"
    if anchor and (place.suffix != ".md" or anchor not in anchors(place)):
        return f"{target}: has no such heading"
    return None


def problems_of(page: Path) -> list[str]:
    prose = CODE.sub("", CODE_BLOCK.sub("", page.read_text()))
    targets = [inline or reference for inline, reference in LINK.findall(prose)]
    found = [problem_with(target, page.parent, page) for target in targets if not ELSEWHERE.match(target)]
    return [problem for problem in found if problem]


@pytest.mark.parametrize("page", PAGES, ids=name_of)
def test_every_relative_link_of_a_page_leads_somewhere(page):
    assert problems_of(page) == []


@pytest.mark.parametrize("page", PAGES, ids=name_of)
def test_every_path_that_a_page_names_is_there(page):
    named = {path.rstrip(".") for path in NAMED_PATH.findall(page.read_text())}
    assert [path for path in sorted(named) if not (TOP / path).exists()] == []


def test_every_page_that_a_program_names_is_there():
    problems = []
    for program in files(*PROGRAMS):
        named = NAMED_PAGE.findall(program.read_text(errors="replace"))
        problems += [f"{name_of(program)}: {problem}" for target in named if (problem := problem_with(target, TOP))]
    assert problems == []


# The check itself

@pytest.mark.parametrize("text, problems", [
    ("[here](#a-heading) [there](other.md#b--c-d) [it](./other.md)", []),
    ("[here](#heading)", ["#heading: has no such heading"]),
    ("[gone](gone.md)", ["gone.md: there is no such file"]),
    ("[there](other.md#a-heading)", ["other.md#a-heading: has no such heading"]),
    ("`[code](gone.md)` and\n```\n[code](gone.md)\n```\n", []),
    ("[web](https://example.org/#x) [mail](mailto:a@example.org)", []),
    ("[a][b]\n\n[b]: gone.md\n", ["gone.md: there is no such file"]),
    ("[out](../../../../../../../../etc)", ["../../../../../../../../etc: leads out of the tree"])])
def test_a_link_that_leads_nowhere_is_found(tmp_path, monkeypatch, text, problems):
    monkeypatch.setattr("test_links.TOP", tmp_path)
    (tmp_path / "other.md").write_text("# Other\n\n## B & *C* D\n")
    page = tmp_path / "page.md"
    page.write_text(f"# A heading\n\n{text}\n")
    assert problems_of(page) == problems


def test_headings_of_the_same_words_are_numbered(tmp_path):
    page = tmp_path / "page.md"
    page.write_text("# need-HA\n## `Work` modes\n## Work modes\n```\n# no heading\n```\n")
    assert anchors(page) == {"need-ha", "work-modes", "work-modes-1"}
