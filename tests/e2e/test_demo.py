"""The demonstration and the node for a terminal: what a new user sees, on a pipe too, and when something is missing."""
import os
import re
import select
import signal
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

from kolt_node.control import PYTHON, ROOT

sys.path.insert(0, str(ROOT / "platform/sim"))

import demo  # noqa: E402

COMMANDS = {"demo": ROOT / "platform/sim/demo.py", "kolt-node": ROOT / "platform/sim/kolt-node"}
LIMIT_SECONDS = 60.0

Start = Callable[..., subprocess.Popen]


@pytest.fixture
def start(build: Path) -> Iterator[Start]:
    """Starts a command with a bare environment; whatever a test left running is ended with it."""
    started = []

    def start(name: str, path: str = "/usr/sbin:/usr/bin:/sbin:/bin", **how: object) -> subprocess.Popen:
        streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE} | how
        started.append(subprocess.Popen([PYTHON, COMMANDS[name]], text=True, start_new_session=True,
                                        env={"PATH": path, "KOLT_BUILD": str(build)} | streams.pop("env", {}), **streams))
        return started[-1]
    yield start
    for process in started:
        process.kill()
        process.communicate()


@pytest.fixture(scope="module")
def told(build: Path) -> list[tuple[float, str]]:
    """The demonstration's lines on a pipe, each with the seconds from its coming to the end."""
    lines = []
    with subprocess.Popen([PYTHON, COMMANDS["demo"]], stdout=subprocess.PIPE, text=True,
                          env={"PATH": "/usr/bin:/bin", "KOLT_BUILD": str(build)}) as process:
        while line := process.stdout.readline():
            lines.append((time.monotonic(), line.rstrip("\n")))
    assert process.returncode == 0
    end = time.monotonic()
    return [(end - when, line) for when, line in lines]


def text_of(told: list[tuple[float, str]]) -> str:
    return "\n".join(line for _, line in told)


# The demonstration

def test_what_the_demonstration_shows_comes_as_it_happens(told: list[tuple[float, str]]) -> None:
    left = {line: seconds for seconds, line in told}
    assert left["=== Start"] > left["=== The Ethernet backhaul comes up"] + 0.9  # in between the bridge settles for a second
    assert left["=== A calm period. Clients are pinned to the path with the most capacity"] > 1.5


def test_every_column_is_explained_before_it_is_shown(told: list[tuple[float, str]]) -> None:
    lines = [line for _, line in told]
    for heads in (r"  bridge +port +(type .*)", r"  path +(PHY rate +busy +quota)"):
        first = next(number for number, line in enumerate(lines) if re.fullmatch(heads, line))
        for title in re.split(r"\s{2,}", re.fullmatch(heads, lines[first])[1]):
            assert any(re.match(rf"  {re.escape(title)} +\w", line) for line in lines[:first]), title


def test_the_story_is_the_same_on_a_busy_machine(told: list[tuple[float, str]]) -> None:
    assert [line for _, line in told if re.match(r"  wlan0\.1 +144 ", line)] == [
        f"  wlan0.1        144   {busy} %  {quota:5.1f} %" for busy, quota in ((50, 40), (92, 0), (92, 0), (35, 55))]
    assert text_of(told).count(" moves from wlan0.1 to wlan2.1") == 6


def test_the_last_lines_say_what_to_try_next(told: list[tuple[float, str]]) -> None:
    closing = text_of(told).rpartition("\n\n")[2]
    assert closing.startswith("Try next: ")
    for program in re.findall(r"[\w-]+(?:/[\w-]+)+", closing):
        assert os.access(ROOT / program, os.X_OK), program
    assert len(re.findall(r"[\w-]+(?:/[\w-]+)+", closing)) >= 2


def test_the_words_of_the_library_have_a_legend() -> None:
    for title, _ in demo.COLUMNS.values():
        assert f"\n  {title} " in demo.LEGEND


# What stands in the way

def say_no(tmp_path: Path, name: str, script: str) -> str:
    """A PATH on which a program of the system answers as it does where something is forbidden."""
    program = tmp_path / name
    program.write_text(f"#!/bin/sh\n{script}\n")
    program.chmod(0o755)
    return f"{tmp_path}:/usr/bin:/bin"


def ending(process: subprocess.Popen) -> tuple[int, list[str]]:
    _, errors = process.communicate(timeout=LIMIT_SECONDS)
    return process.returncode, errors.splitlines()


@pytest.mark.parametrize("name", COMMANDS)
def test_a_missing_right_is_one_line_and_a_status(start: Start, tmp_path: Path, name: str) -> None:
    path = say_no(tmp_path, "unshare", "echo 'unshare: unshare failed: Operation not permitted' >&2; exit 1")
    assert ending(start(name, path)) == (2, [
        f"{name}: this machine does not allow the namespaces that a simulated node needs: unshare: unshare failed: "
        "Operation not permitted; run it as root, in a container as a privileged one"])


@pytest.mark.parametrize("name", COMMANDS)
def test_a_missing_program_is_one_line_that_names_it(start: Start, tmp_path: Path, name: str) -> None:
    status, (line,) = ending(start(name, str(tmp_path)))
    assert status == 2 and line.startswith(f"{name}: ") and "unshare: No such file or directory" in line


@pytest.mark.parametrize("name", COMMANDS)
def test_a_missing_build_is_told_with_the_way_to_it(start: Start, tmp_path: Path, name: str) -> None:
    status, lines = ending(start(name, env={"KOLT_BUILD": str(tmp_path)}))
    assert status == 2 and lines[1] == f"{name}: build it with: cmake --preset release && cmake --build --preset release"
    assert lines[0].endswith("holds no build: bin/kolt is missing") and len(lines) == 2


def test_a_full_disk_is_one_line(start: Start) -> None:
    with open("/dev/full", "w") as full:
        assert ending(start("demo", stdout=full)) == (2, ["demo: No space left on device"])


def test_a_reader_that_has_gone_ends_it_silently(start: Start) -> None:
    process = start("demo")
    assert process.stdout.readline().startswith("A range extender")
    process.stdout.close()
    assert ending(process) == (128 + signal.SIGPIPE, [])


@pytest.mark.parametrize("name", COMMANDS)
def test_an_interrupt_is_one_line(start: Start, name: str) -> None:
    process = start(name)
    assert select.select([process.stdout], [], [], LIMIT_SECONDS)[0]
    os.killpg(process.pid, signal.SIGINT)
    assert ending(process) == (128 + signal.SIGINT, [f"{name}: interrupted"])


# The node for a terminal

def test_typed_lines_reach_the_daemon(start: Start) -> None:
    process = start("kolt-node", stdin=subprocess.PIPE)
    process.stdin.write('event kolt.link_state {"LINK_WIFI_5G_2": 0}\nnonsense\nquit\n')
    process.stdin.flush()
    output, errors = process.communicate(timeout=LIMIT_SECONDS)
    assert process.returncode == 0 and output.endswith("the daemon ended with status 0\n")
    assert "Lines that you can type:" in errors
    assert re.match(r" +\d+\.\d{6} +\S", output)  # seconds since the beginning, of a message or of a call
