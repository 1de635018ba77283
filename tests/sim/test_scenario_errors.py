"""What is said of scenario files that are wrong, to the letter."""
import json
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest
from scenario_files import Desk, small

from kolt_sim.scenario.load import ScenarioError, load

DEEP = "expected at most 16 arrays and objects within each other, found more"
KINDS = "link and up, or link and flap, or path and rate, or path and neighbours, or client and to, or cpu"
PATHS = '"ethernet", "plc", "2.4g", "5g", "5g_2"'
LINE = "expected one line of text, 1 to 100 characters"
MEMBERS = ("title, about, duration, tick, seed, default_path, cpu, parent_known, settings, paths, clients, streams, "
           "events, expect, notes")


@pytest.fixture
def desk(tmp_path: Path) -> Desk:
    return Desk(tmp_path)


def table(rows: list[tuple]) -> Any:
    """Rows of a name, what is done and the problems that it makes."""
    return pytest.mark.parametrize(("given", "problems"), [row[1:] for row in rows], ids=[row[0] for row in rows])


# Syntax

@table([
    ("an empty file", "", ["line 1 column 1: expected a value, found the end of the file"]),
    ("blanks", " \n\n ", ["line 3 column 2: expected a value, found the end of the file"]),
    ("no JSON", "title: x", ['line 1 column 1: expected a value, found "title"']),
    ("a comment", '{\n  // no\n}', ['line 2 column 3: expected a member\'s name in double quotes, found "/"']),
    ("a comma too many", '{"title": 1,}', ['line 1 column 13: expected a member\'s name in double quotes, found "}"']),
    ("no colon", '{"title" 1}', ['line 1 column 10: expected ":" after the member\'s name, found "1"']),
    ("no comma", '[1\n 23]', ['line 2 column 2: expected "," or the end of the object or array, found "23"']),
    ("an open object", '{"a": 1', ['line 1 column 8: expected "," or the end of the object or array, '
                                   'found the end of the file']),
    ("more than one value", '{} {}', ['line 1 column 4: expected the end of the file, found "{"']),
    ("an open text", '["abc', ['line 1 column 2: expected a closing quote for the text that begins here, '
                               'found "\\""']),
    ("a line break in a text", '["a\nb"]', ["line 1 column 4: expected an escape such as \\n for a control "
                                           'character in a text, found "\\n"']),
    ("a bad escape", '["\\q"]', ['line 1 column 3: expected a valid escape after the backslash, found "\\\\"']),
    ("a bad code", '["\\u12"]', ['line 1 column 4: expected four hexadecimal digits after \\u, found "u12"']),
    ("no UTF-8", b'{"a":\n "\xff"}', ["line 2 column 3: expected UTF-8, found byte 0xff"]),
    ("half a letter", b'["\xc3', ["line 1 column 3: expected UTF-8, found byte 0xc3"]),
    ("UTF-16", '{}'.encode("utf-16-le") + b"\xff", ["line 1 column 5: expected UTF-8, found byte 0xff"]),
    ("deep arrays", "[" * 100_000, [DEEP]),
    ("deep objects", '{"a":' * 100_000, [DEEP]),
    ("17 levels", "[" * 17 + "]" * 17, [DEEP]),
    ("16 levels", "[" * 16 + "]" * 16, ["expected an object, found [[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]"]),
    ("an array", "[1, 2]", ["expected an object, found [1, 2]"]),
    ("a text", '"home"', ['expected an object, found "home"']),
    ("null", "null", ["expected an object, found null"]),
    ("NaN", "NaN", ["expected an object, found NaN"]),
    ("a large file", b" " * (16 * 1024 * 1024 + 1), ["expected a file of at most 16 MiB, found a larger one"]),
])
def test_syntax(desk: Desk, given: bytes | str, problems: list[str]) -> None:
    assert desk.problems(given) == problems


@table([
    ("that is not there", "none.json", ["none.json: cannot be read: No such file or directory"]),
    ("that is a directory", "/", ["/: cannot be read: Is a directory"]),
    ("below a file", "/dev/null/a.json", ["/dev/null/a.json: cannot be read: Not a directory"]),
    ("with an impossible name", "a\0b", ["a\\u0000b: cannot be read: embedded null byte"]),
    ("with a name of two lines", "a\nb.json", ["a\\nb.json: cannot be read: No such file or directory"]),
    ("with a name that is no text", "\udcff", ["\\udcff: cannot be read: No such file or directory"]),
])
def test_a_file(given: str, problems: list[str]) -> None:
    with pytest.raises(ScenarioError) as caught:
        load(given)
    assert caught.value.problems == problems


def test_a_member_that_comes_twice_is_named_with_its_path(desk: Desk) -> None:
    text = json.dumps(small())
    text = text.replace('"title"', '"tick": 1, "tick": 1, "title"').replace('"rate": 866', '"rate": 866, "rate": 5')
    assert desk.problems(text) == ["tick: expected the member once, found it 3 times",
                                   "paths.5g.rate: expected the member once, found it 2 times"]


def test_a_member_that_comes_twice_does_not_hide_what_else_is_wrong(desk: Desk) -> None:
    text = json.dumps(small() | {"cpu": -1}).replace('"title"', '"title": "x", "title"')
    assert desk.problems(text) == ["title: expected the member once, found it 2 times",
                                   "cpu: expected a number from 0 to 100 (percent), found -1"]


# Form

def put(*way: str | int, value: Any) -> Callable[[dict], None]:
    """Sets one member of the small scenario."""
    def change(document: dict) -> None:
        for step in way[:-1]:
            document = document[step]
        document[way[-1]] = value
    return change


def drop(*way: str | int) -> Callable[[dict], None]:
    def change(document: dict) -> None:
        for step in way[:-1]:
            document = document[step]
        del document[way[-1]]
    return change


def event(**members: Any) -> Callable[[dict], None]:
    return put("events", value=[members])


FORM = [
    ("no duration", drop("duration"), ["duration: missing member; expected a number above 0 and at most 1000000 "
                                       "(seconds)"]),
    ("no title", drop("title"), [f"title: missing member; {LINE}"]),
    ("no clients", drop("clients"), ["clients: missing member; expected an array of at most 256 clients"]),
    ("no expectation of a storm", drop("expect", "storm_without"),
     ["expect.storm_without: missing member; expected true or false"]),
    ("no rate", drop("paths", "plc", "rate"), ["paths.plc.rate: missing member; expected a number from 1 to 10000 "
                                              "(Mbit/s)"]),
    ("no place", drop("clients", 1, "at"),
     ['clients[1].at: missing member; expected one of "uplink", "eth1", "wlan0-a", "wlan1-a", "wlan0-b.1", '
      '"wlan1-b.1", "away"']),
    ("on without off", drop("streams", 0, "off"),
     ["streams[0].off: missing member; expected a number above 0 and at most 1000000 (seconds)"]),
    ("off without on", drop("streams", 0, "on"),
     ["streams[0].on: missing member; expected a number above 0 and at most 1000000 (seconds)"]),
    ("a misspelt member", put("streams", 1, "dmand", value=1), ['streams[1].dmand: unknown member; did you mean '
                                                               '"demand"?']),
    ("an unknown member", put("zzz", value=1), [f"zzz: unknown member; known are {MEMBERS}"]),
    ("an unknown path", put("paths", "6g", value={"rate": 1}),
     ["paths.6g: unknown member; known are ethernet, plc, 2.4g, 5g, 5g_2"]),
    ("an odd member", put("paths", "a b\n", value={}),
     ['paths["a b\\n"]: unknown member; known are ethernet, plc, 2.4g, 5g, 5g_2']),
    ("a very long member", put("expect", "x" * 5000, value={}),
     ['expect["' + "x" * 36 + "...]: unknown member; known are storm_without, gain, of_ideal, worst_client, bounces, "
      "calm, relief, moves_at_least, moves_at_most, settled_by"]),
    ("a member with a dot", put("paths", "2.4g", value=3), ['paths["2.4g"]: expected an object, found 3']),
    ("an unknown setting", put("settings", "periods", value=3), ['settings.periods: unknown member; did you mean '
                                                                '"period"?']),
    ("a setting out of bounds", put("settings", "high_threshold", value=101),
     ["settings.high_threshold: expected an integer from 0 to 100 (percent), found 101"]),
    ("a truth for a number", put("settings", "period", value=True),
     ["settings.period: expected an integer from 1 to 3600 (seconds), found true"]),
    ("a number for a truth", put("settings", "cpu_limit", value=1),
     ["settings.cpu_limit: expected true or false, found 1"]),
    ("a truth for a rate", put("paths", "5g", "rate", value=True),
     ["paths.5g.rate: expected a number from 1 to 10000 (Mbit/s), found true"]),
    ("a truth for a count", put("clients", 1, "count", value=True),
     ["clients[1].count: expected an integer from 1 to 256, found true"]),
    ("null", put("cpu", value=None), ["cpu: expected a number from 0 to 100 (percent), found null"]),
    ("half a stream", put("streams", 0, "count", value=2.5), ["streams[0].count: expected an integer from 1 to 5000, "
                                                             "found 2.5"]),
    ("no demand at all", put("streams", 0, "demand", value=0),
     ["streams[0].demand: expected a number above 0 and at most 10000 (Mbit/s), found 0"]),
    ("a short tick", put("tick", value=0.05), ["tick: expected a number from 0.1 to 10 (seconds), found 0.05"]),
    ("a negative seed", put("seed", value=-1), ["seed: expected an integer from 0 to 4294967295, found -1"]),
    ("an unknown kind", put("streams", 0, "kind", value="downlod"),
     ['streams[0].kind: expected one of "download", "upload", "video", "small", found "downlod"']),
    ("an unknown place", put("clients", 0, "at", value="wlan9"),
     ['clients[0].at: expected one of "uplink", "eth1", "wlan0-a", "wlan1-a", "wlan0-b.1", "wlan1-b.1", "away", '
      'found "wlan9"']),
    ("a list for a place", put("clients", 0, "at", value=["eth1"]),
     ['clients[0].at: expected one of "uplink", "eth1", "wlan0-a", "wlan1-a", "wlan0-b.1", "wlan1-b.1", "away", '
      'found ["eth1"]']),
    ("capitals in a name", put("clients", 0, "name", value="TV"),
     ['clients[0].name: expected a name of 1 to 40 lower-case letters, digits and hyphens, found "TV"']),
    ("a name with a line's end", put("clients", 0, "name", value="tv\n"),
     ['clients[0].name: expected a name of 1 to 40 lower-case letters, digits and hyphens, found "tv\\n"']),
    ("an empty name", put("streams", 0, "name", value=""),
     ['streams[0].name: expected a name of 1 to 40 lower-case letters, digits and hyphens, found ""']),
    ("a title of two lines", put("title", value="a\nb"), [f'title: {LINE}, found "a\\nb"']),
    ("half a letter in the title", put("title", value="\ud800"), [f'title: {LINE}, found "\\ud800"']),
    ("a long title", put("title", value="é" * 200), [f'title: {LINE}, found "' + "é" * 36 + "..."]),
    ("an empty note", put("notes", 1, value=""), ['notes[1]: expected one line of text, 1 to 2000 characters, '
                                                 'found ""']),
    ("no path at all", put("paths", value={}), ["paths: expected an object with at least one path, found {}"]),
    ("neighbours of a wire", put("paths", "plc", "neighbours", value=20),
     ["paths.plc.neighbours: expected no such member (only Wi-Fi paths have it), found 20"]),
    ("fading of a wire", put("paths", "plc", "fading", value={"depth": 3}),
     ['paths.plc.fading: expected no such member (only Wi-Fi paths have it), found {"depth": 3}']),
    ("an array for an object", put("expect", value=[]), ["expect: expected an object, found []"]),
    ("an object for an array", put("clients", value={}), ["clients: expected an array of at most 256 clients, "
                                                         "found {}"]),
    ("a long value", put("events", value={"at": list(range(1000))}),
     ['events: expected an array of at most 100000 events, found {"at": [0, 1, 2, 3, 4, 5, 6, 7, 8, 9,...']),
    ("too many notes", put("notes", value=["n"] * 101),
     ['notes: expected an array of at most 100 texts, found ["n", "n", "n", "n", "n", "n", "n", "...']),
]


@table(FORM)
def test_form(desk: Desk, given: Callable, problems: list[str]) -> None:
    assert desk.problems_after(given) == problems


@table([
    ("that is no object", put("events", value=[7]), ["events[0]: expected an object, found 7"]),
    ("without members", event(),
     [f"events[0]: expected the members of one kind of event ({KINDS}), found no members"]),
    ("without a kind", event(at=3),
     [f'events[0]: expected the members of one kind of event ({KINDS}), found the members "at"']),
    ("with half a kind that two share", event(at=3, link="5g"),
     ["events[0]: expected the members of one kind of event (link and up, or link and flap), "
      'found the members "at", "link"']),
    ("of two kinds", event(at=3, cpu=5, link="5g", up=True),
     ["events[0]: expected the members of one kind of event (link and up, or cpu), "
      'found the members "at", "cpu", "link", "up"']),
    ("without a time", event(link="5g", up=True),
     ["events[0].at: missing member; expected a number from 0 to 1000000 (seconds)"]),
    ("of a kind that one member tells", event(at=3, to="away"),
     ["events[0].client: missing member; expected the name of a client group or member"]),
    ("with an unknown member", event(at=3, path="5g", rate=5, ovr=2), ['events[0].ovr: unknown member; did you mean '
                                                                      '"over"?']),
    ("with a member of another kind", event(at=3, cpu=5, over=2),
     ["events[0].over: unknown member; known are at, cpu"]),
    ("with several wrong values", event(at=-1, link="6g", up=1),
     ["events[0].at: expected a number from 0 to 1000000 (seconds), found -1",
      f'events[0].link: expected one of {PATHS}, found "6g"', "events[0].up: expected true or false, found 1"]),
    ("about a wire's neighbours", event(at=3, path="plc", neighbours=3),
     ['events[0].path: expected a Wi-Fi path ("2.4g", "5g" or "5g_2"), found "plc"']),
    ("with a wrong flap", event(at=3, link="5g", flap={"down": 0, "times": 1001}),
     ["events[0].flap.up: missing member; expected a number above 0 and at most 1000000 (seconds)",
      "events[0].flap.down: expected a number above 0 and at most 1000000 (seconds), found 0",
      "events[0].flap.times: expected an integer from 1 to 1000, found 1001"]),
])
def test_an_event(desk: Desk, given: Callable, problems: list[str]) -> None:
    assert desk.problems_after(given) == problems


@pytest.mark.parametrize(("literal", "found"), [
    ("NaN", "NaN"), ("Infinity", "Infinity"), ("-Infinity", "-Infinity"), ("1e999", "1e999"), ("-1e400", "-1e400"),
    ("1e300", "1e+300"), ("9" * 20, "9" * 20), ("9" * 50, "9" * 37 + "..."), ("9" * 5000, "9" * 37 + "...")])
def test_a_number_beyond_all_bounds(desk: Desk, literal: str, found: str) -> None:
    text = json.dumps(small() | {"duration": "HERE", "seed": "HERE"}).replace('"HERE"', literal)
    assert desk.problems(text) == [
        f"duration: expected a number above 0 and at most 1000000 (seconds), found {found}",
        f"seed: expected an integer from 0 to 4294967295, found {found}"]


# Fit

def clients(*groups: dict) -> Callable[[dict], None]:
    return lambda document: document["clients"].extend({"at": "uplink"} | group for group in groups)


def streams(*groups: dict) -> Callable[[dict], None]:
    plain = {"client": "phone", "peer": "gateway", "kind": "upload", "demand": 1}
    return lambda document: document["streams"].extend(plain | group for group in groups)


def quicker(document: dict) -> None:
    document |= {"duration": 20_000, "tick": 0.1}


@table([
    ("a default path that is not there", put("default_path", value="2.4g"),
     ['default_path: expected a path of this scenario ("plc", "5g"), found "2.4g"']),
    ("a default path that is left out", lambda document: (document.pop("default_path"), document["paths"].pop("5g"),
                                                          document.update(events=[])),
     ['default_path: expected a path of this scenario ("plc"), found "5g"']),
    ("too many ticks", quicker, ["duration: expected at most 100000 ticks of 0.1 s, found 200000"]),
    ("a tick longer than all", lambda document: document.update(duration=2, tick=3, events=[], streams=[],
                                                                expect={"storm_without": True}),
     ["tick: expected at most the duration (2 s), found 3"]),
    ("a tick that does not divide the period", put("tick", value=2),
     ["tick: expected a divisor of the daemon's period (3 s), found 2"]),
    ("a tick that does not divide the packaged period", lambda document: document.update(tick=2, settings={}),
     ["tick: expected a divisor of the daemon's period (5 s), found 2"]),
    ("a tick that nearly divides the period", put("tick", value=0.333333333333),
     ["tick: expected a divisor of the daemon's period (3 s), found 0.333333333333"]),
    ("a tick longer than the period", put("tick", value=6),
     ["tick: expected a divisor of the daemon's period (3 s), found 6"]),
    ("a period that is no whole number of ticks", lambda document: document.update(tick=0.7, settings={"period": 5}),
     ["tick: expected a divisor of the daemon's period (5 s), found 0.7"]),
    ("relief after the end", put("expect", "relief", value=301),
     ["expect.relief: expected at most the duration (300 s), found 301"]),
    ("settling after the end", put("expect", "settled_by", value=300.5),
     ["expect.settled_by: expected at most the duration (300 s), found 300.5"]),
    ("moves that cannot be", put("expect", "moves_at_least", value=10),
     ["expect.moves_at_most: expected at least moves_at_least (10), found 9"]),
])
def test_the_run(desk: Desk, given: Callable, problems: list[str]) -> None:
    assert desk.problems_after(given) == problems


@table([
    ("a client group twice", clients({"name": "phone"}),
     ['clients[2].name: expected another name, found "phone", which clients[1] has']),
    ("a group named as a member", clients({"name": "phone-2"}),
     ['clients[2].name: expected another name, found "phone-2", which clients[1] has']),
    ("a member named as a group", clients({"name": "tv-1", "count": 2}, {"name": "tv", "count": 2}),
     ['clients[3].name: expected a name whose members are not in clients[2], found "tv-1", which clients[2] has']),
    ("a stream group twice", streams({"name": "call"}),
     ['streams[2].name: expected another name, found "call", which streams[1] has']),
    ("a stream named as a member", streams({"name": "film-4"}),
     ['streams[2].name: expected another name, found "film-4", which streams[0] has']),
    ("too many clients", clients({"name": "a", "count": 253}),
     ["clients: expected at most 256 clients in all (the daemon sees no more entries of a bridge), found 257"]),
    ("too many streams", streams(*({"name": name, "count": 5000} for name in "abcd")),
     ["streams: expected at most 20000 streams in all, found 20005"]),
    ("too many events",
     put("events", value=[{"at": 1, "link": "5g", "flap": {"down": 1, "up": 1, "times": 1000}}] * 51),
     ["events: expected at most 100000 events in all, found 102000"]),
])
def test_names_and_amounts(desk: Desk, given: Callable, problems: list[str]) -> None:
    assert desk.problems_after(given) == problems


@table([
    ("of an unknown client", put("streams", 0, "client", value="phon"),
     ['streams[0].client: expected the name of a client group or member, found "phon"; did you mean "phone"?']),
    ("to an unknown peer", put("streams", 1, "peer", value="zzz"),
     ['streams[1].peer: expected the name of a client group or member, found "zzz"']),
    ("of a member too many", put("streams", 1, "client", value="phone-4"),
     ['streams[1].client: expected the name of a client group or member, found "phone-4"; did you mean "phone-3"?']),
    ("to itself", put("streams", 0, "peer", value="phone"),
     ['streams[0].peer: expected another client than the stream\'s own, found "phone"']),
    ("to a member of its own group", put("streams", 0, "peer", value="phone-3"),
     ['streams[0].peer: expected two clients for each stream, found "phone-3" at both ends of stream 3']),
    ("that starts at the end", lambda document: (document["streams"][0].pop("end"),
                                                 document["streams"][0].update(start=300)),
     ["streams[0].start: expected a time before the end of the run (300 s), found 300"]),
    ("that ends as it starts", put("streams", 0, "end", value=10),
     ["streams[0].end: expected a time after the start (10 s), found 10"]),
    ("that ends after the run", put("streams", 0, "end", value=301),
     ["streams[0].end: expected at most the duration (300 s), found 301"]),
])
def test_a_stream(desk: Desk, given: Callable, problems: list[str]) -> None:
    assert desk.problems_after(given) == problems


@table([
    ("at the end", event(at=300, cpu=5),
     ["events[0].at: expected a time before the end of the run (300 s), found 300"]),
    ("on a link that is not there", event(at=3, link="ethernet", up=True),
     ['events[0].link: expected a path of this scenario ("plc", "5g"), found "ethernet"']),
    ("on a path that is not there", event(at=3, path="5g_2", neighbours=3),
     ['events[0].path: expected a path of this scenario ("plc", "5g"), found "5g_2"']),
    ("of an unknown client", event(at=3, client="gatway", to="away"),
     ['events[0].client: expected the name of a client group or member, found "gatway"; did you mean "gateway"?']),
    ("whose flaps go on after the end", event(at=200, link="5g", flap={"down": 10, "up": 50, "times": 3}),
     ["events[0].flap: expected the last change before the end of the run (300 s), found it at 330 s"]),
    ("whose flaps go on to the end", event(at=200, link="5g", flap={"down": 40, "up": 20, "times": 2}),
     ["events[0].flap: expected the last change before the end of the run (300 s), found it at 300 s"]),
])
def test_an_event_that_does_not_fit(desk: Desk, given: Callable, problems: list[str]) -> None:
    assert desk.problems_after(given) == problems


# Together

def test_all_problems_come_together_in_the_order_of_the_file(desk: Desk) -> None:
    def change(document: dict) -> None:
        document["streams"][0]["kind"] = "?"
        del document["streams"][1]["demand"]
        document["paths"]["5g"] |= {"rate": 0, "neighbours": 96}
        document["cpu"] = document.pop("cpu") * -1
    assert desk.problems_after(change) == [
        "paths.5g.rate: expected a number from 1 to 10000 (Mbit/s), found 0",
        "paths.5g.neighbours: expected a number from 0 to 95 (percent), found 96",
        'streams[0].kind: expected one of "download", "upload", "video", "small", found "?"',
        "streams[1].demand: missing member; expected a number above 0 and at most 10000 (Mbit/s)",
        "cpu: expected a number from 0 to 100 (percent), found -30"]


def test_the_parts_are_compared_only_when_the_form_is_right(desk: Desk) -> None:
    def change(document: dict) -> None:
        document |= {"cpu": -1, "default_path": "2.4g"}
    assert desk.problems_after(change) == ["cpu: expected a number from 0 to 100 (percent), found -1"]


def test_all_parts_that_do_not_fit_come_together(desk: Desk) -> None:
    def change(document: dict) -> None:
        document["default_path"] = "2.4g"
        document["streams"][0]["peer"] = "nobody"
        document["events"][4]["client"] = "someone"
    assert desk.problems_after(change) == [
        'default_path: expected a path of this scenario ("plc", "5g"), found "2.4g"',
        'streams[0].peer: expected the name of a client group or member, found "nobody"',
        'events[4].client: expected the name of a client group or member, found "someone"']


def test_no_more_than_a_hundred_problems_are_listed(desk: Desk) -> None:
    problems = desk.problems_after(put("streams", value=[1] * 1500))
    assert problems[:-1] == [f"streams[{index}]: expected an object, found 1" for index in range(100)]
    assert problems[-1] == "and more problems"


def test_the_error_reads_as_its_problems(tmp_path: Path) -> None:
    desk = Desk(tmp_path)
    desk.file.write_text(json.dumps(small() | {"cpu": -1, "seed": -1}))
    with pytest.raises(ScenarioError) as caught:
        load(desk.file)
    assert str(caught.value) == (f"{desk.file}: seed: expected an integer from 0 to 4294967295, found -1\n"
                                 f"{desk.file}: cpu: expected a number from 0 to 100 (percent), found -1")
