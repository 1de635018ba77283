"""How unit tests are run: each in a process of its own, and whatever way a bad one ends, it is named and counted."""
import contextlib
import os
import re
import subprocess
import time
from pathlib import Path

import pytest

TOP = Path(__file__).resolve().parents[2]
EXAMPLES = TOP / "build/debug/bin/each-alone-examples"
UNIT_TESTS = TOP / "scripts/unit-tests"
LIMIT_SECONDS = 100
MARK = f"KOLT_UNIT_TESTS_OF={os.getpid()}"  # in the environment of whatever is started here


@pytest.fixture(scope="module")
def program() -> Path:
    if not EXAMPLES.exists():
        pytest.fail(f"{EXAMPLES.relative_to(TOP)} is missing: build the debug preset", pytrace=False)
    return EXAMPLES


@pytest.fixture(scope="module")
def examples(program) -> subprocess.CompletedProcess:
    name, _, value = MARK.partition("=")
    return subprocess.run([program, "--each-alone=4", "--at-most=5"], capture_output=True, text=True, timeout=LIMIT_SECONDS,
                          env={"ASAN_OPTIONS": "symbolize=0", name: value})  # takes seconds


@pytest.fixture(scope="module")
def told(examples) -> dict[str, tuple[str, str]]:
    """For each test its verdict, and what was written by it."""
    verdict = re.compile(r"^\d+/10 Test each-alone-examples\.Example\.(\w+) (.*?) \d+\.\d+ sec\n", re.MULTILINE)
    parts = verdict.split(examples.stdout)
    assert parts[0] == ""
    return {name: (verdict, text) for name, verdict, text in zip(parts[1::3], parts[2::3], parts[3::3], strict=True)}


# The programs

def test_passed_and_failed_tests_are_counted(examples):
    assert examples.returncode == 1
    assert examples.stdout.splitlines()[-1] == "30% tests passed, 7 tests failed out of 10"


@pytest.mark.parametrize("name", ["PassesAsTheFirstOfItsProcess", "PassesAsTheFirstOfItsProcessToo",
                                  "PassesAndLeavesAChildBehind"])
def test_a_test_that_passes_shows_nothing_else(told, name):
    assert told[name][0] == "Passed"
    assert told[name][1] in ("", "30% tests passed, 7 tests failed out of 10\n")


@pytest.mark.parametrize("name, verdict, shown", [
    ("FailsAnExpectation", "***Failed", "what the test has to say"),
    ("EndsWithStatusZeroBeforeItsEnd", "***Failed", "[ RUN      ] Example.EndsWithStatusZeroBeforeItsEnd"),
    ("IsEndedByASignal", "***Exception: Aborted", "[ RUN      ] Example.IsEndedByASignal"),
    ("DoesNotEnd", "***Timeout", "about to wait"),
    ("SkipsItself", "***Failed", "[  SKIPPED ]"),
    ("LosesMemory", "***Failed", "ERROR: LeakSanitizer: detected memory leaks"),
    ("ReadsBehindABlock", "***Failed", "ERROR: AddressSanitizer: heap-buffer-overflow")])
def test_a_test_that_ends_badly_is_named_with_all_that_it_wrote(told, name, verdict, shown):
    assert told[name][0] == verdict
    assert shown in told[name][1]


def left_behind() -> list[str]:
    found = []
    for path in Path("/proc").glob("[0-9]*/environ"):
        with contextlib.suppress(OSError):  # it has ended
            found += [path.parent.name] * (MARK.encode() in path.read_bytes().split(b"\0"))
    return found


def test_what_a_test_started_is_ended_with_it(examples):
    deadline = time.monotonic() + 10  # a process that was killed is there for a moment still
    while left_behind() and time.monotonic() < deadline:
        time.sleep(0.05)
    assert left_behind() == []


def test_one_test_is_run_by_its_name(program):
    done = subprocess.run([program, "--gtest_filter=*.FailsAnExpectation"], capture_output=True, text=True)
    assert done.returncode == 1
    assert "1 FAILED TEST" in done.stdout and "Running 1 test " in done.stdout


# All programs of a build

@pytest.fixture
def run(tmp_path):
    """Runs a build of programs that are scripts: the status, and what was written."""
    def run(*options: str, **programs: str) -> tuple[int, list[str]]:
        (tmp_path / "bin").mkdir()
        (tmp_path / "unit-programs").write_text("".join(f"{name}\n" for name in programs))
        for name, script in programs.items():
            program = tmp_path / "bin" / name
            program.write_text(f"#!/bin/sh\n{script}\n")
            program.chmod(0o755)
        done = subprocess.run([UNIT_TESTS, *options, tmp_path], capture_output=True, text=True)
        return done.returncode, done.stdout.splitlines()
    return run


def closing(failed: int, count: int) -> str:
    return f"echo '{100 * (count - failed) // count}% tests passed, {failed} tests failed out of {count}'"


def test_the_tests_of_all_programs_are_counted_together(run):
    assert run(one=closing(0, 3), two=closing(0, 4)) == (0, ["100% tests passed, 0 tests failed out of 7"])


def test_a_failed_test_of_one_program_is_shown_and_counted(run):
    failed = "2/3 Test one.A.B ***Failed 0.01 sec"
    status, lines = run(one=f"echo '{failed}'; {closing(1, 3)}; exit 1", two=closing(0, 4))
    assert (status, lines) == (1, [failed, "85% tests passed, 1 tests failed out of 7"])


@pytest.mark.parametrize("script", ["exit 0", "exit 3", f"{closing(0, 3)}; exit 1", f"{closing(0, 3)}; kill -9 $$",
                                    "echo '0% tests passed, 0 tests failed out of 0'"])
def test_a_program_that_does_not_come_to_a_good_end_fails(run, script):
    status, lines = run(one=script, two=closing(0, 4))
    assert status == 1
    assert "***Failed" in lines[0] and lines[0].startswith("1/1 Test one ")
    assert ", 1 tests failed out of " in lines[-1]


def test_a_build_without_programs_fails(run):
    assert run() == (1, ["0% tests passed, 0 tests failed out of 0"])


def test_programs_can_be_left_out(run):
    assert run("--without", "linux_kernel_", linux_kernel_a="exit 1", core=closing(0, 4))[1][-1].endswith("out of 4")
