"""kolt-check as it is called: options, what it prints where, and its status."""
import json
import re
import subprocess
from pathlib import Path

import pytest

from check_tool import PROGRAM, SHIPPED, TOP, check, run

SOUND = '{"enable": true, "bridges": {}, "param": {"period": 5}, "interfaces": {}}'
MISSPELT = SOUND.replace('"period": 5', '"period": 5,\n  "hightreshold": 1')


@pytest.fixture
def file(tmp_path: Path) -> Path:
    return tmp_path / "kolt.json"


def test_sound_file_has_status_0_and_no_finding(file: Path) -> None:
    file.write_text(SOUND)
    done = run(file)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith("kolt runs with:\n\nbridges: 0\n")
    quiet = run("--quiet", file)
    assert (quiet.returncode, quiet.stdout) == (0, "")


def test_finding_has_status_1_and_its_place_as_compilers_write_it(file: Path) -> None:
    file.write_text(MISSPELT)
    done = run("-q", file)
    said = '2:3: warning: "hightreshold" is no setting of "param"; did you mean "high_threshold"? [unknown-key]\n'
    assert (done.returncode, done.stdout, done.stderr) == (1, f"{file}:{said}", "")
    assert run(file).stdout.startswith(f"{file}:{said}\nkolt runs with:\n")


@pytest.mark.parametrize("words", [[], ["a", "b"], ["--unknown", "a"], ["-x"], ["--json"]])
def test_wrong_command_has_status_2_and_says_how_to_call_it(words: list[str]) -> None:
    done = run(*words)
    assert (done.returncode, done.stdout) == (2, "")
    assert "usage: kolt-check [--json] [--quiet] FILE\n" in done.stderr


@pytest.mark.parametrize("path, reason", [("/nonexistent", "No such file or directory"), ("/", "Is a directory")])
def test_file_that_cannot_be_read_has_status_2(path: str, reason: str) -> None:
    done = run(path)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", f"kolt-check: {path}: {reason}\n")


def test_text_that_is_no_json_has_status_2_and_its_place(file: Path) -> None:
    file.write_text('{\n  "enable": true\n  "param": {}\n}\n')
    done = run(file)
    assert done.returncode == 2
    assert done.stdout.startswith(f"{file}:3:3: error: no JSON, object value separator ',' expected: the daemon does not")
    assert "kolt runs with" not in done.stdout


def test_full_disk_has_status_2(file: Path) -> None:
    file.write_text(SOUND)
    with open("/dev/full", "w") as full:
        done = subprocess.run([PROGRAM, file], stdout=full, stderr=subprocess.PIPE, text=True)
    assert done.returncode == 2
    assert done.stderr == "kolt-check: standard output: No space left on device\n"


def test_version_is_the_projects() -> None:
    version = re.search(r"project\(kolt VERSION ([0-9.]+)", (TOP / "CMakeLists.txt").read_text())
    assert version
    assert run("--version").stdout == f"kolt-check {version[1]}\n"


def test_help_names_every_option_and_status() -> None:
    done = run("--help")
    assert (done.returncode, done.stderr) == (0, "")
    for word in ("--json", "--quiet", "--settings", "--version", "--help", "Status: 0", "1 findings", "2 the file"):
        assert word in done.stdout
    assert run("-h").stdout == done.stdout


def test_a_dash_is_standard_input() -> None:
    assert run("-q", "-", stdin=MISSPELT.encode()).stdout.startswith("-:2:3: warning: ")


def test_json_holds_findings_and_values(file: Path) -> None:
    file.write_text('{"enable": true, "bridges": {"br-lan": {"loop_avoidance": true}}, "param": {"period": 5, '
                    '"high_threshold": 150, "plc_vlan_guest_id": 20}, "interfaces": {"plc1": {"type": "plc", "exchange": '
                    '5}, "wlan0": {"type": "5g"}, "eth0": {"type": "ethernet", "exchange": 1}}, '
                    '"backhual": {"wlan0": {"couple": "plc20"}}}')
    done = run("--json", file)
    assert (done.returncode, done.stderr) == (1, "")
    told = json.loads(done.stdout)
    assert (told["file"], told["starts"], told["enabled"]) == (str(file), True, True)
    assert [(one["line"], one["level"], one["code"]) for one in told["findings"]] == [
        (1, "warning", "changed-value"), (1, "warning", "left-out")]
    assert told["bridges"] == [{"name": "br-lan", "loop_avoidance": True, "path_selection": False}]
    assert told["param"]["high_threshold"] == {"value": 100, "from": "changed", "given": "150"}
    assert told["param"]["wifi_rate_check"] == {"value": True, "from": "default"}
    assert told["param"]["period"] == {"value": 5, "from": "file", "given": "5"}
    assert [(one["name"], one["key"], one["type"]) for one in told["interfaces"]] == [
        ("plc20", "plc1", "plc"), ("wlan0", "wlan0", "5g")]
    assert told["couples"] == [{"lan": "wlan0", "guest": "plc20", "key": "wlan0"}]
    assert [(one["section"], one["key"]) for one in told["left_out"]] == [("interfaces", "eth0")]


def test_what_the_daemon_decides_itself_is_marked(file: Path) -> None:
    ports = {name: {"type": kind, "nonrelay": True} for name, kind in (("eth0", "ethernet"), ("plc0", "plc"), ("wlan0", "5g"))}
    whole = {"enable": True, "bridges": {"br-lan": {"loop_avoidance": True}}, "param": {"period": 5}, "interfaces": ports}
    file.write_text(json.dumps(whole))
    done = run(file)
    assert re.findall(r"^  (\S+) .* (\w*relay\S*)$", done.stdout, re.MULTILINE) == [
        ("eth0", "nonrelay*"), ("plc0", "nonrelay*"), ("wlan0", "nonrelay")]
    assert "\n  * until its bridge is programmed; then work mode and traffic decide\n" in done.stdout
    flags = {one["name"]: one["settings"]["nonrelay"] for one in check(file.read_text())["interfaces"]}
    assert [name for name, flag in flags.items() if flag.get("overwritten")] == ["eth0", "plc0"]
    file.write_text(json.dumps(whole | {"bridges": {"br-lan": {}}}))
    assert "*" not in run(file).stdout and "overwritten" not in json.dumps(check(file.read_text()))


def test_disabled_daemon_and_one_that_does_not_start_are_told_apart(file: Path) -> None:
    file.write_text('{"enable": false}')
    assert run(file).stdout.startswith("kolt is disabled and ends at once.")
    file.write_text(SOUND.replace('"interfaces": {', '"interfaces": {"x": {}'))
    done = run(file)
    assert done.returncode == 1
    assert "\nkolt does not start with this file." in done.stdout
    assert check(file.read_text())["starts"] is False


def test_nothing_of_a_file_drives_a_terminal(file: Path) -> None:
    file.write_bytes(b'{"enable": true, "\x1b[2J\x9b": 1, "bridges": {"\xc2\x9b\xff": {}}, "param": {"period": "\x07"}}')
    for words in ([], ["--json"]):
        done = run(*words, file)
        assert done.returncode == 1
        assert not re.search(r"[\x00-\x09\x0b-\x1f\x7f-\x9f]", done.stdout)


@pytest.mark.parametrize("path", SHIPPED, ids=lambda path: path.name)
def test_shipped_configuration_leaves_nothing_to_say(path: Path) -> None:
    done = run("--quiet", path)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_large_file_is_read_in_moments(file: Path) -> None:
    file.write_text(SOUND.replace('"bridges": {}', '"bridges": {}, "comment": "' + "x" * (8 << 20) + '"'))
    assert run("-q", file).stdout.count("\n") == 1


def test_the_program_needs_json_c_and_the_c_library_alone(delivered: Path) -> None:
    needed = subprocess.run(["objdump", "-p", delivered / "kolt-check"], check=True, capture_output=True, text=True).stdout
    libraries = {line.split()[1].split(".so")[0] for line in needed.splitlines() if "NEEDED" in line}
    assert {name for name in libraries if not name.startswith("ld-")} <= {"libjson-c", "libc", "libm"}
