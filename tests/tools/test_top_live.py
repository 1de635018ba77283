"""The live table, in terminals of several sizes and kinds."""
import re
import signal

import pytest
import top_node
from top_node import OWN, STEERED, in_terminal, sample

node = top_node.node

FOOTER = "Enter why is it here"
HOME = "\x1b[H"
TAKEN, GIVEN_BACK = "\x1b[?1049h", "\x1b[?1049l"
CLEARING = re.compile(r"\x1b\[[KJ]")
COLOURS = re.compile(r"\x1b\[\d*m")
LONG = ["-i", "60"]  # so that only keys make pictures


def pictures(seen: dict) -> list[list[str]]:
    """The lines of each picture, as they stand on the screen."""
    inside = seen["raw"].split(TAKEN, 1)[1].rsplit("\x1b[?7h", 1)[0]
    return [re.split("\r+\n", CLEARING.sub("", COLOURS.sub("", one))) for one in inside.split(HOME)[1:]]


def row_of(picture: list[str], text: str) -> str:
    return next(line for line in picture if text in line)


def test_the_table_shows_paths_and_clients_and_says_the_keys(node):
    seen = in_terminal(node, LONG, [["wait", FOOTER], ["keys", "q"]])
    picture = pictures(seen)[0]
    assert picture[0].startswith("kolt-top  mode RE")
    assert row_of(picture, "wlan0.1  hot").split()[:5] == ["2.4g", "wlan0.1", "hot", "85%", "144"]
    assert row_of(picture, STEERED).split()[1:4] == ["wlan0.1", "wlan0.1", "5g_2"]
    assert seen["status"] == 0 and FOOTER in picture[-1]


@pytest.mark.parametrize("rows, columns", [(24, 80), (10, 60), (3, 20), (1, 1), (60, 200)])
def test_a_picture_fits_the_terminal(node, rows, columns):
    seen = in_terminal(node, LONG, [["wait", HOME], ["keys", "q"]], rows=rows, columns=columns)
    for picture in pictures(seen):
        assert len(picture) <= rows
        assert max(map(len, picture)) <= max(columns, 45)  # a name is not cut; the terminal cuts what is behind its edge


def test_a_wide_terminal_has_more_columns(node):
    seen = in_terminal(node, LONG, [["wait", FOOTER], ["resize", 24, 120], ["wait", FOOTER], ["keys", "q"]])
    narrow, wide = pictures(seen)[0], pictures(seen)[-1]
    assert "SCORE" not in row_of(narrow, "QUOTA") and "SCORE" in row_of(wide, "QUOTA")


def test_a_low_terminal_keeps_the_chosen_client_in_sight(node):
    seen = in_terminal(node, LONG, [["wait", FOOTER], ["keys", "G"], ["wait", f"> {OWN}"], ["keys", "q"]], rows=14)
    assert len(pictures(seen)[-1]) == 14


def test_enter_says_why_and_escape_goes_back(node):
    steps = [["wait", FOOTER], ["keys", "\x1b[B"], ["wait", FOOTER], ["keys", "\r"], ["wait", "Esc back"], ["keys", "\x1b"],
             ["wait", FOOTER], ["keys", "q"]]
    seen = in_terminal(node, LONG, steps, rows=40)
    why = "\n".join(pictures(seen)[2])
    assert "The next period pins it to the chosen path." in why and "may-move" in why


def test_a_client_that_was_named_is_explained_first(node):
    seen = in_terminal(node, [*LONG, "--client", STEERED.lower()], [["wait", "Esc back"], ["keys", "q"]], rows=40)
    assert f"{STEERED} on br-lan" in pictures(seen)[0]


def test_space_reads_the_node_at_once(node):
    steps = [["wait", FOOTER], ["keys", " "], ["wait", FOOTER], ["keys", "q"]]
    begin = node.mark()
    in_terminal(node, LONG, steps)
    checks = [entry for entry in node.journal(begin, "netlink_msg") if entry["args"]["type"] == 0]
    assert len(checks) == 2 * 2  # two bridges, two readings


@pytest.mark.parametrize("end", [["keys", "q"], ["keys", "\x03"], ["signal", int(signal.SIGTERM)],
                                 ["signal", int(signal.SIGINT)], ["signal", int(signal.SIGHUP)]])
def test_the_terminal_is_as_before_however_it_ends(node, end):
    seen = in_terminal(node, LONG, [["wait", FOOTER], end])
    assert seen["status"] == 0
    assert seen["raw"].endswith(GIVEN_BACK) and seen["raw"].count("\x1b[?25h") == 1


def test_a_suspended_table_gives_the_terminal_back_meanwhile(node):
    steps = [["wait", FOOTER], ["keys", "\x1a"], ["stopped"], ["signal", int(signal.SIGCONT)], ["wait", FOOTER], ["keys", "q"]]
    seen = in_terminal(node, LONG, steps)
    assert seen["status"] == 0 and seen["raw"].count(TAKEN) == 2 and seen["raw"].count(GIVEN_BACK) == 2


def test_no_color_leaves_out_every_colour(node):
    plain = in_terminal(node, LONG, [["wait", FOOTER], ["keys", "q"]], NO_COLOR="1")
    coloured = in_terminal(node, LONG, [["wait", FOOTER], ["keys", "q"]], NO_COLOR="")
    assert not COLOURS.search(plain["raw"]) and COLOURS.search(coloured["raw"])
    assert not COLOURS.search(pictures(plain)[0][0])


@pytest.mark.parametrize("kind", ["dumb", ""])
def test_a_terminal_that_cannot_draw_gets_plain_lines(node, kind):
    seen = in_terminal(node, ["--once"], [], TERM=kind)
    assert "\x1b" not in seen["raw"] and "path bridge=br-lan" in seen["raw"]
    refused = in_terminal(node, ["--live"], [], TERM=kind)
    assert refused["status"] == 2 and "needs a terminal" in refused["raw"]


def test_a_bridge_that_is_away_is_told(node):
    node.deactivate_bridge("br-guest")
    seen = in_terminal(node, LONG, [["wait", FOOTER], ["keys", "q"]])
    assert "br-guest  0 clients  is not there" in pictures(seen)[0]


def test_names_cannot_steer_the_terminal(node):
    configuration = sample.config()
    configuration["bridges"]["\x1b]0;owned\x07"] = {"path_selection": True}
    node.write_json("/etc/kolt.json", configuration)
    seen = in_terminal(node, LONG, [["wait", FOOTER], ["keys", "q"]])
    assert "?]0;owned?" in seen["raw"] and "\x1b]0;" not in seen["raw"]
