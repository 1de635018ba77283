"""Each line that ends a program or tells of a failure has its cause and cure in the guide, and the guide has no other."""
import json
import re

import pytest

import log_lines
from log_lines import Source, Unreadable, bridged_lines, bridged_reasons, daemon_lines, lines_of
from tree import TOP

GUIDE = (TOP / "docs/troubleshooting.md").read_text()
DAEMON, BRIDGED = GUIDE.split("\n## kolt-bridged\n")


def described(text: str, kind: str) -> list[str]:
    """The lines of the guide's blocks of a kind, with a * for what is filled in."""
    blocks = re.findall(rf"^```{kind}\n(.*?)^```", text, re.MULTILINE | re.DOTALL)
    return [re.sub(r"\*+", "*", re.sub(r"<[^>]*>", "*", line)) for block in blocks for line in block.splitlines()]


@pytest.mark.parametrize("in_the_guide, in_the_sources", [
    (described(DAEMON, "log"), daemon_lines()),
    (described(BRIDGED, "log"), bridged_lines()),
    (described(BRIDGED, "reason"), bridged_reasons())], ids=["kolt", "kolt-bridged", "its reasons"])
def test_the_guide_has_each_line_of_the_sources_once_and_no_other(in_the_guide, in_the_sources):
    assert sorted(in_the_guide) == sorted(in_the_sources)


def test_each_block_of_lines_has_a_cause_and_a_cure():
    sections = [section for section in re.split(r"^#{2,3} ", GUIDE, flags=re.MULTILINE) if "```" in section]
    assert len(sections) > 20
    assert [section.splitlines()[0] for section in sections
            if section.count("**Cause.**") != 1 or section.count("**Cure.**") != 1] == []


def test_each_event_that_the_guide_has_the_reader_send_has_an_attribute():
    """The daemon drops one without."""
    told = re.findall(r"(?:send|kolt-event) `?(kolt\.\w+)((?: '(\{.*?\})')?`?(?: with the\s+present\s+states)?)", GUIDE)
    assert len(told) > 3
    assert [name for name, rest, attributes in told if not (json.loads(attributes) if attributes else "with" in rest)] == []


# The reader of the sources

def said(*body: str, head: str = "") -> set[str]:
    text = f'{head}\nnamespace {{\n}} // namespace\n\nint probe(const char *name, const char *text) {{\n'
    return lines_of(Source("src/x.cpp", text + "\n".join(f"    {line}" for line in body) + "\n}\n"))


@pytest.mark.parametrize("line, found", [
    ('KOLT_ERROR("get %.16s stat " \n "failed: %d\\n", name, 1);', "probe: Error: get * stat failed: *"),
    ('KOLT_FATAL("parse config");', "probe: Fatal: parse config"),
    ('KOLT_FATAL_ERRNO_AS("other", "%s", "socket");', "other: Fatal(*): socket"),
    ('KOLT_ERROR_AS(OPERATION, "x, (y) // z");', "named: Error: x, (y) // z"),
    ('KOLT_ERROR("%s", why.text);', "probe: Error: *"),
    ('kolt_flush_tables(*config, flush, {__func__, __LINE__, "flush"});', "probe: Error: flush")])
def test_a_line_is_read_with_its_function(line, found):
    assert said(line, head='constexpr char OPERATION[] = "named";') == {found}


def test_what_is_no_failure_or_no_code_is_no_line():
    assert said('KOLT_INFO("a");', 'KOLT_DEBUG("b");', '// KOLT_ERROR("c");', 'puts("KOLT_ERROR(\\"d\\");");',
                '/* KOLT_FATAL("e"); */') == set()


def test_a_text_is_followed_through_a_macro_and_a_function():
    macro = '#define CALL(call, ...) \\\n    do { \\\n        KOLT_ERROR_AS("x", #call); \\\n    } while (0)\n'
    assert said("CALL(bridgeA, 1);", "CALL(bridgeB);", head=macro) == {"x: Error: bridgeA", "x: Error: bridgeB"}
    caller = 'void refuse(int fd, const char *step) {\n    KOLT_ERROR_AS("x", "%s", step);\n}\n'
    assert said('refuse(1, "bind");', 'refuse(2, "add");', head=caller) == {"x: Error: bind", "x: Error: add"}


@pytest.mark.parametrize("line", [
    "KOLT_ERROR(name);", 'KOLT_ERROR_AS(name, "x");', 'syslog(LOG_ERR, "x");', 'KOLT_SYSLOG(LOG_ERR, "f", "x");',
    "kolt_flush_tables(*config, flush, report);"])
def test_a_line_that_cannot_be_told_is_refused_and_not_left_out(line):
    with pytest.raises(Unreadable):
        said(line)


def test_the_programs_have_lines_to_be_read():
    assert len(daemon_lines()) > 60 and len(bridged_lines()) > 20 and len(log_lines.bridged_reasons()) > 30
