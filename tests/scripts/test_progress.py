"""What a person sees while scripts install and build: that it goes on, what failed, and nothing when nothing is to do."""
import contextlib
import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

TOP = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(TOP / "tests/sim"), str(TOP / "platform/sim")]

from terminal import open_terminal  # noqa: E402

SCRIPTS = TOP / "scripts"
SLOW = "work() { echo step one; sleep 2.2; echo step two; sleep 2.2; printf 'step three'; }"


@pytest.fixture
def tools(tmp_path):
    """Stands in for programs of the system: `tools(name, script)` puts one where install-needs finds it first."""
    def put(name: str, script: str) -> None:
        program = tmp_path / "bin" / name
        program.parent.mkdir(exist_ok=True)
        program.write_text(f"#!/bin/sh\n{script}\n")
        program.chmod(0o755)
    return put


@pytest.fixture
def run(tmp_path):
    def run(script: str, path: str = "", **how: object) -> subprocess.CompletedProcess:
        return subprocess.run(["/bin/bash", "-c", f"set -euo pipefail\n{script}"], capture_output=True, text=True,
                              env={"PATH": path or f"{tmp_path}/bin:/usr/bin:/bin", "PROGRESS_SECONDS": "1"}, **how)
    return run


def source(script: str) -> str:
    return f". {SCRIPTS}/progress.sh\n{script}"


# Progress

def test_what_takes_long_is_told_with_its_title_and_its_last_line(run):
    done = run(source(f"{SLOW}\nwith_progress Building work; echo ready"))
    title, *beats = done.stderr.splitlines()
    assert (done.returncode, done.stdout, title) == (0, "ready\n", "Building")
    assert len(beats) >= 2 and all(re.fullmatch(r"   0:0\d step (one|two|three)", beat) for beat in beats)


def test_what_is_quick_says_nothing_even_while_the_clock_s_second_turns(run):
    about_to_turn = "until [[ ${EPOCHREALTIME#*[.,]} == 9[5-9]* ]]; do sleep 0.005; done"
    done = run(source(f"work() {{ sleep 0.1; echo hello; }}\n{about_to_turn}\nwith_progress Building work"))
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_what_fails_shows_all_that_it_wrote_and_keeps_its_status(run):
    done = run(source("work() { echo one; echo; echo two >&2; printf three; return 7; }\nwith_progress Building work"))
    assert (done.returncode, done.stdout, done.stderr) == (
        7, "", "one\n\ntwo\nthree\nBuilding: failed with status 7, for the reason above\n")


def read_to_the_end(terminal: int) -> str:
    shown = b""
    with open(terminal, "rb", buffering=0) as file, contextlib.suppress(OSError):  # its other side has been closed
        while data := file.read(4096):
            shown += data
    return shown.decode()


def test_a_terminal_shows_the_last_line_in_place_and_is_left_clean():
    master, slave = open_terminal()
    done = subprocess.Popen(["/bin/bash", "-c", source(f"{SLOW}\nwith_progress Building work")], stderr=slave)
    os.close(slave)
    shown = read_to_the_end(master)
    assert done.wait() == 0
    assert re.search(r"\r\x1b\[KBuilding 0:0\d step one\r.*Building 0:0\d step two", shown)
    assert shown.endswith("\r\x1b[K") and "\n" not in shown


# Installing

INSTALLED = 'for last; do :; done; case $last in here*) echo installed ;; *) exit 1 ;; esac'


def test_nothing_missing_is_silent(run, tools):
    tools("dpkg-query", INSTALLED)
    tools("apt-get", "echo must not run >&2; exit 1")
    done = run(f"{SCRIPTS}/install-needs here-1 here-2")
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_what_is_installed_is_named_and_apt_is_followed(run, tools, tmp_path):
    tools("dpkg-query", INSTALLED)
    tools("id", "echo 0")
    tools("apt-get", f'echo "$*" >>{tmp_path}/asked; echo "Get:1 something"; sleep 1.2')
    done = run(f"{SCRIPTS}/install-needs here-1 gone-1 gone-2")
    assert done.returncode == 0 and done.stdout == ""
    assert done.stderr.startswith("Installing: gone-1 gone-2\n") and " Get:1 something\n" in done.stderr
    asked = (tmp_path / "asked").read_text().splitlines()
    assert asked[0].startswith("update") and asked[1].endswith("--no-install-recommends gone-1 gone-2")


def test_a_failed_installation_is_one_line_below_what_apt_says(run, tools):
    tools("dpkg-query", INSTALLED)
    tools("id", "echo 0")
    tools("apt-get", "echo 'E: Unable to locate package'; exit 100")
    done = run(f"{SCRIPTS}/install-needs gone-1")
    assert done.returncode == 100
    assert done.stderr.splitlines() == ["Installing: gone-1", "E: Unable to locate package",
                                        "Installing: failed with status 100, for the reason above"]


@pytest.mark.parametrize("sudo", [False, True], ids=["no sudo", "sudo refuses"])
def test_without_the_right_to_install_the_command_for_root_is_told(run, tools, tmp_path, sudo):
    tools("dpkg-query", INSTALLED)
    tools("id", "echo 1000")
    for name in ("bash", "dirname", "grep", "env"):
        (tmp_path / "bin" / name).symlink_to(f"/usr/bin/{name}")
    if sudo:
        tools("sudo", "exit 1")
    done = run(f"{SCRIPTS}/install-needs gone-1 gone-2", path=f"{tmp_path}/bin")
    assert (done.returncode, done.stderr) == (1, "Please install as root: apt-get install gone-1 gone-2\n")


def test_a_system_without_debian_packages_is_told_what_is_needed_and_may_go_on(run, tmp_path):
    (tmp_path / "bin").mkdir()
    for name in ("bash", "dirname", "env"):
        (tmp_path / "bin" / name).symlink_to(f"/usr/bin/{name}")
    done = run(f"{SCRIPTS}/install-needs gone-1", path=f"{tmp_path}/bin")
    assert (done.returncode, done.stderr) == (0, "No Debian packages here: this needs what Debian has in gone-1\n")
