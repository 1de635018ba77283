"""What scripts/steps.sh promises: signs of life, the first cause of a failure, a clean environment, nothing left behind."""
import os
import re
import select
import signal
import subprocess
import time
from pathlib import Path

import pytest

STEPS = Path(__file__).resolve().parents[2] / "scripts/steps.sh"
LIMIT_SECONDS = 60.0


@pytest.fixture
def start(tmp_path):
    """Starts a script of the given steps, whose logs are in tmp_path; whatever it left is ended with the test."""
    started = []

    def start(steps: str, heartbeat: str = "1", **variables: str) -> subprocess.Popen:
        script = f"set -euo pipefail\n. {STEPS}\nstart_steps\n{steps}\n"
        started.append(subprocess.Popen(
            ["env", "--default-signal", "bash", "-c", script], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True,
            env={"PATH": os.environ["PATH"], "LOGS": str(tmp_path), "HEARTBEAT_SECONDS": heartbeat} | variables))
        return started[-1]
    yield start
    for process in started:
        process.kill()
        process.communicate()


@pytest.fixture
def run(start):
    """Runs a script of the given steps: its status, its output, its errors."""
    def run(*steps: str, **how: str) -> tuple[int, list[str], list[str]]:
        process = start("\n".join(steps), **how)
        out, err = process.communicate(timeout=LIMIT_SECONDS)
        return process.returncode, out.splitlines(), err.splitlines()
    return run


def write(path: Path, text: str) -> str:
    path.write_text(text)
    return str(path)


def pid_in(path: Path) -> int:
    """What a process that was just started writes there."""
    deadline = time.monotonic() + LIMIT_SECONDS
    while not (path.exists() and path.read_text().endswith("\n")):
        assert time.monotonic() < deadline
        time.sleep(0.01)
    return int(path.read_text())


# Signs of life

def test_a_quiet_command_is_told_about_with_the_time_and_the_step(run):
    status, out, _ = run("step Waiting for it", "run slow sleep 3.5")
    assert status == 0
    beats = [line for line in out if re.fullmatch(r"   0:0\d Waiting for it", line)]
    assert 2 <= len(beats) <= 9


def test_the_sign_of_life_comes_every_half_minute_by_itself():
    assert 0 < int(re.search(r"HEARTBEAT_SECONDS:-(\d+)", STEPS.read_text())[1]) < 30


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_ends_all_that_was_started(start, tmp_path, number):
    process = start(f"begin slow bash -c 'sleep 100 & echo $! >{tmp_path}/pid; wait'\nawait slow", heartbeat="1")
    assert re.match(r"   0:0\d ", process.stdout.readline())
    sleeper = os.pidfd_open(pid_in(tmp_path / "pid"))
    os.kill(process.pid, number)
    process.communicate(timeout=LIMIT_SECONDS)  # the end of its output: nobody holds that open any more
    assert process.returncode == 128 + number
    assert select.select([sleeper], [], [], LIMIT_SECONDS)[0]


def test_the_signs_of_life_end_even_with_a_killed_script(start, tmp_path):
    process = start(f"begin slow bash -c 'echo $$ >{tmp_path}/pid; exec sleep {LIMIT_SECONDS}'\nawait slow")
    assert process.stdout.readline()
    os.kill(process.pid, signal.SIGKILL)
    process.communicate(timeout=LIMIT_SECONDS / 2)  # the end of its output, while the command still runs
    os.kill(pid_in(tmp_path / "pid"), signal.SIGKILL)


# Failures

def test_a_failure_names_the_log_and_ends_with_the_first_cause(run, tmp_path):
    status, _, err = run("run broken bash -c 'echo fine; echo FAILED tests/a.py::b - no; echo FAILED c; exit 3'",
                         "echo not reached")
    assert status == 1
    assert re.fullmatch(rf"failed after 0:0\d, see {tmp_path}/broken\.log", err[-2])
    assert err[-1] == "first cause: FAILED tests/a.py::b - no"


def test_all_that_runs_at_once_comes_to_its_end_and_the_first_failure_is_told(run, tmp_path):
    status, out, err = run("begin bad bash -c 'echo error: lost; exit 1'", "begin good bash -c 'sleep 0.5; echo 3 passed'",
                           "await bad good")
    assert (status, out) == (1, ["3 passed"])
    assert err[-1] == "first cause: error: lost"


@pytest.mark.parametrize("log, cause", [
    ("[1/9] Building x\nFAILED: x.o\nc++ x.cpp\nx.cpp:7:2: error: no such thing\nx.cpp:9:1: error: more\n",
     "x.cpp:7:2: error: no such thing"),
    ("-- fine\nCMake Error at CMakeLists.txt:3 (find_package):\n  none\n",
     "CMake Error at CMakeLists.txt:3 (find_package):"),
    ("1/3 Test  #1: a ....   Passed\n 2/3 Test  #2: b ....***Failed  0.1 sec\nx.cpp:3: error: in a test\n",
     "2/3 Test  #2: b ....***Failed  0.1 sec"),
    ("2/3 Test #2: b ....Subprocess aborted***Exception:\n", "2/3 Test #2: b ....Subprocess aborted***Exception:"),
    ("..E\nERROR tests/x.py::y - OSError\n1 error in 2 s\n", "ERROR tests/x.py::y - OSError"),
    ("working\nno space left\n\n", "no space left")])
def test_the_first_cause_is_a_test_or_an_error_or_the_last_line(run, tmp_path, log, cause):
    _, _, err = run(f"run broken bash -c 'cat {write(tmp_path / 'text', log)}; exit 1'")
    assert err[-1] == f"first cause: {cause}"


# What is shown and counted

def test_closing_lines_stay_visible_and_their_tests_are_counted(run, tmp_path):
    closings = ["100% tests passed, 0 tests failed out of 1500", "12 passed in 3.4s", "style: 7 files formatted"]
    text = write(tmp_path / "text", "noise\n" + "\n".join(closings) + "\nafter\n")
    assert run(f"run all cat {text}", "echo $TESTS_PASSED")[1] == [*closings, "1512"]


def test_a_command_without_a_closing_line_shows_its_last(run):
    assert run("run it printf 'a\\nb\\n'")[1] == ["b"]


def test_nothing_of_the_caller_s_environment_leaks(run, tmp_path):
    _, out, _ = run("begin it MINE=1 env", f"await it; cat {tmp_path}/it.log", CMAKE_CXX_COMPILER_LAUNCHER="x", TERM="x",
                    LC_ALL="de_DE.UTF-8", PYTHONUNBUFFERED="1", HOME="/nobody")
    assert sorted(out[1:]) == [f"HOME={tmp_path}/home", "LC_ALL=C.UTF-8", "MINE=1",
                               "PATH=/usr/sbin:/usr/bin:/sbin:/bin"]


def test_a_command_obeys_the_signals_that_the_caller_ignores(run):
    assert run("trap '' HUP", "run it bash -c 'kill -HUP $$; echo ignored'")[0] == 1
