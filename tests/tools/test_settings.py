"""The table of settings, and what has to agree with it: schema, guide, manual page, and the daemon's sources."""
import importlib.machinery
import importlib.util
import json
import random
import re
from pathlib import Path
from types import ModuleType

import jsonschema
import pytest

from check_tool import SHIPPED, TOP, check, described, settings

SCHEMA = json.loads((TOP / "packaging/kolt.schema.json").read_text())
GUIDE = (TOP / "docs/settings.md").read_text()
MANUAL = (TOP / "docs/man/kolt.json.5").read_text()
ROWS = settings()
VALID = jsonschema.Draft202012Validator(SCHEMA)
INTERFACE = {"type": "ethernet"}


def row_name(row: dict) -> str:
    return f"{row['section']}_{row['key']}"


def schema_maker() -> ModuleType:
    loader = importlib.machinery.SourceFileLoader("make_schema", str(TOP / "scripts/make-schema"))
    spec = importlib.util.spec_from_loader("make_schema", loader)
    assert spec
    module = importlib.util.module_from_spec(spec)
    loader.exec_module(module)
    return module


def file_with(row: dict, value: object) -> dict:
    """A sound file but for this setting's value."""
    file: dict = {"enable": True, "bridges": {"br-lan": {}}, "param": {"period": 5, "eth_vlan_id": 7,
                  "plc_vlan_backhaul_id": 8, "plc_vlan_guest_id": 9, "iptv_vlan_id": 10, "iptv_vlan_backhaul_id": 11,
                  "plc_vlan_iptv_id": 12},
                  "interfaces": {f"use{number}": INTERFACE | {"exchange": number} for number in range(1, 7)} |
                  {"eth0": dict(INTERFACE), "eth1": dict(INTERFACE)}, "backhual": {"eth0": {"couple": "eth1"}}}
    owner = {"file": file, "bridge": file["bridges"]["br-lan"], "param": file["param"],
             "interface": file["interfaces"]["eth0"], "couple": file["backhual"]["eth0"]}[row["section"]]
    owner[row["key"]] = value
    return file


def candidates(row: dict) -> list:
    values = [None, True, 1, 0, -1, 1.5, 2.0, "1", "", "5g", [], {}, 10**20, 1e300]
    if row["kind"] == "number":
        low, high = row["range"]
        values += [low, high, low - 1, high + 1]
    return values


# Findings that depend on other parts of the file, which no schema compares.
ELSEWHERE = {"unread-key", "unused-vlan", "left-out", "no-partner", "equal-names", "long-name", "never-flushed"}


def test_the_schema_is_one() -> None:
    jsonschema.Draft202012Validator.check_schema(SCHEMA)


def test_the_schema_is_what_the_table_makes() -> None:
    assert (TOP / "packaging/kolt.schema.json").read_text() == schema_maker().text(ROWS)


@pytest.mark.parametrize("path", SHIPPED, ids=lambda path: path.name)
def test_shipped_configuration_is_valid(path: Path) -> None:
    VALID.validate(json.loads(path.read_text()))


@pytest.mark.parametrize("row", ROWS, ids=row_name)
def test_schema_and_kolt_check_agree_about_values(row: dict) -> None:
    for value in candidates(row):
        if row["key"] in ("enable", "couple") and value is None:
            continue  # what a null leaves out is another matter than its type
        file = file_with(row, value)
        found = {one["code"] for one in check(json.dumps(file))["findings"]} - ELSEWHERE
        if row["key"] == "couple" and isinstance(value, str):
            continue  # which names are good depends on the interfaces
        assert VALID.is_valid(file) == (not found), (value, found)


def test_schema_and_kolt_check_agree_about_keys() -> None:
    chooser = random.Random(5)
    for row in ROWS:
        letters = list(row["key"])
        chooser.shuffle(letters)
        wrong = "".join(letters) + "_"
        file = file_with(row | {"key": wrong}, True)
        assert not VALID.is_valid(file)
        assert [one["code"] for one in check(json.dumps(file))["findings"]] == ["unknown-key"]


@pytest.mark.parametrize("section, capacity", [("bridges", 8), ("interfaces", 128), ("backhual", 16)])
def test_schema_and_kolt_check_agree_about_capacities(section: str, capacity: int) -> None:
    entry = {"bridges": {}, "interfaces": INTERFACE, "backhual": {"couple": "x0"}}[section]
    for count in (capacity, capacity + 1):
        file = {"enable": True, "bridges": {}, "param": {"period": 5}, "interfaces": {}, "backhual": {}}
        file[section] = {f"x{number}": entry for number in range(count)}
        found = {one["code"] for one in check(json.dumps(file))["findings"]} - ELSEWHERE
        assert (VALID.is_valid(file), found) == ((True, set()) if count == capacity else (False, {"too-many"}))


@pytest.mark.parametrize("section", ["enable", "bridges", "param", "interfaces"])
def test_schema_and_kolt_check_agree_about_what_has_to_be_there(section: str) -> None:
    file = file_with(ROWS[0], True)
    del file[section]
    assert not VALID.is_valid(file)
    assert {one["code"] for one in check(json.dumps(file))["findings"]} & {"missing-setting", "missing-section"}


@pytest.mark.parametrize("name", ["", ".", "..", "a/b", "a b", "a:b", "abcdefghijklmnop", "abcdefghijklmno", "br-lan"])
def test_schema_and_kolt_check_agree_about_names(name: str) -> None:
    file = {"enable": True, "bridges": {name: {}}, "param": {"period": 5}, "interfaces": {}}
    assert VALID.is_valid(file) == (not check(json.dumps(file))["findings"])


def test_the_guide_describes_every_setting_with_its_range_and_default() -> None:
    sections = dict(re.findall(r"^## .*`(\w+)`.*\n((?:(?!^## ).*\n)+)", GUIDE, re.MULTILINE))
    headed = {"file": "enable", "bridge": "bridges", "param": "param", "interface": "interfaces", "couple": "backhual"}
    for section, title in headed.items():
        told = re.findall(r"^\*\*`(\w+)`\*\* \(([^)]*)\)", sections[title], re.MULTILINE)
        assert sorted(told) == sorted((row["key"], described(row)) for row in ROWS if row["section"] == section)


def test_the_manual_page_describes_every_setting_with_its_range_and_default() -> None:
    told = re.findall(r"^\.It Ic (\w+) Pq (.*)$", MANUAL, re.MULTILINE)
    assert told == [(row["key"], described(row)) for row in ROWS]


@pytest.mark.parametrize("text, end", [(GUIDE, "Flags are"), (MANUAL, "A text of digits")], ids=["guide", "manual"])
def test_the_numbers_that_are_not_clamped_are_named(text: str, end: str) -> None:
    named = set(re.findall(r"\b[a-z]+(?:_[a-z]+)+\b|\bclass\b|\bperiod\b", text.split("Not clamped are")[1].split(end)[0]))
    numbers = [row for row in ROWS if row["kind"] == "number" and row["member"]]
    past = [(row, file_with(row, row["range"][1] + 1)) for row in numbers]
    values = [(row, check(json.dumps(file))) for row, file in past]
    kept = {row["key"]: (told["param"] if row["section"] == "param" else told["interfaces"][6]["settings"])[row["key"]]["value"]
            for row, told in values}
    assert named == {row["key"] for row in numbers if kept[row["key"]] != row["range"][1]}


def test_the_manual_page_of_kolt_check_explains_every_code() -> None:
    sources = "".join(path.read_text() for path in (TOP / "tools/check").glob("*.cpp"))
    codes = set(re.findall(r'"((?:[a-z]+|utf8)(?:-[a-z]+)+)"', sources)) - {"no-param", "br-lan", "kolt-check"}
    page = (TOP / "docs/man/kolt-check.1").read_text()
    assert set(re.findall(r"^\.It Li (\S+)$", page, re.MULTILINE)) == codes


# What holds no setting: written by the daemon, never read, or made of the entry as a whole.
WITHOUT_KEY = {"param": {"bcast_port_plc", "low_threshold"}, "interface": {"name", "ifindex", "type"}}


@pytest.mark.parametrize("section, header", [("param", "config.h"), ("interface", "interface.h")])
def test_every_member_of_a_record_has_its_row(section: str, header: str) -> None:
    record = (TOP / "src/core" / header).read_text().split(f"struct config_{section} {{")[1].split("\n};")[0]
    members = re.findall(r"^    [a-z]\w* (\w+)(?:\[\w+\])?(?: = [^;]*)?(?:\{\})?;", record, re.MULTILINE)
    assert len(members) > 5
    rows = {row["member"] for row in ROWS if row["section"] == section} - {""}
    assert set(members) == rows | WITHOUT_KEY[section] and not rows & WITHOUT_KEY[section]


def daemon_sources() -> str:
    files = [path for path in (TOP / "src").rglob("*.cpp") if not re.fullmatch("config(_load|_entry)?.cpp", path.name)]
    return "".join(path.read_text() for path in files)


# The loader itself reads the VLAN ids, for the names.
@pytest.mark.parametrize("row", [row for row in ROWS if row["member"] and "_vlan_" not in row["key"]], ids=row_name)
def test_what_is_said_to_have_no_effect_is_what_no_source_reads(row: dict) -> None:
    owner = "param" if row["section"] == "param" else r"\w+"
    member = r"is_nonrelay\(\)" if row["member"] == "relay" else rf"{row['member']}\b"
    assert bool(re.search(rf"{owner}(?:\.|->){member}", daemon_sources())) == row["read"]


def test_the_getters_that_nothing_calls_are_those_without_effect() -> None:
    assert "config_get_util_compensation" not in daemon_sources()
    assert [row["key"] for row in ROWS if not row["read"] and not row["member"]] == ["util_compensation"]
