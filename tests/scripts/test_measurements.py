"""What bench/run tells: its words, its order, and the line that names what broke its limit."""
import subprocess
import sys
from pathlib import Path

import pytest

BENCH = Path(__file__).resolve().parents[2] / "bench"
sys.path.insert(0, str(BENCH))

import measurements  # noqa: E402
import period  # noqa: E402
import telling  # noqa: E402
from telling import Limit, verdict  # noqa: E402

KEPT = Limit("stripped binary", "81,352 bytes", "<= 85,000 bytes", True)
SLOW = Limit("start: exec to last programming call", "51.01 ms", "< 50 ms", False)
LATE = Limit("link notification to first flush", "12.84 ms", "< 10 ms", False)
REPORT = """
Running period-bench
A whole period with 255 clients and 5,000 streams takes 61.1 ms, and 36.5 ms of processor time:
Limits at 255 clients and 5,000 streams
own work of a period                                                  2.34 ms    <    2  BROKEN
ranking, times faster than the plain scan per client                 43.19 times >=   20  kept
For comparison: the plain scan alone takes 10.3 times all of the period's own work.
"""


@pytest.fixture
def calm(monkeypatch):
    monkeypatch.setattr(telling, "busy", lambda: "")


# The verdict

@pytest.mark.parametrize("limits, unable, line, status", [
    ([KEPT, KEPT], [], "verdict: all 2 limits kept", 0),
    ([KEPT], [], "verdict: the limit is kept, stripped binary", 0),
    ([KEPT, SLOW, LATE], [], "verdict: 2 of 3 limits BROKEN: start: exec to last programming call: 51.01 ms, limit < 50 ms; "
                             "link notification to first flush: 12.84 ms, limit < 10 ms", 1),
    ([KEPT, KEPT], ["period"], "verdict: could not measure period; all 2 limits kept", 2),
    ([], ["period", "footprint"], "verdict: could not measure period and footprint", 2),
    ([], [], "verdict: nothing here has a limit", 0)])
def test_one_line_says_what_became_of_the_limits(calm, limits, unable, line, status):
    assert verdict(limits, unable) == (line, status)


@pytest.mark.parametrize("load, said", [(0.5, False), (99.0, True)])
def test_a_busy_machine_is_told_beside_a_broken_limit_only(monkeypatch, load, said):
    monkeypatch.setattr(telling.os, "getloadavg", lambda: (load, 0.0, 0.0))
    assert ("(the machine was busy: load 99.0 on " in verdict([SLOW], [])[0]) == said
    assert "busy" not in verdict([KEPT, KEPT], [])[0]


def test_the_report_on_a_period_names_its_limits():
    assert period.limits(REPORT, 1) == [
        Limit("own work of a period", "2.34 ms", "< 2 ms", False),
        Limit("ranking, times faster than the plain scan per client", "43.19 times", ">= 20 times", True)]
    assert not period.limits("no such line", 1)[0].kept  # however it is told, a broken limit is not lost


def test_a_report_begins_with_the_whole_period():
    told = period.in_order(REPORT, "sizes\n").splitlines()
    assert told[0].startswith("A whole period") and told[-1] == "sizes" and "Running period-bench" in told


# The measurements

@pytest.fixture
def run(tmp_path, monkeypatch, capfd, calm):
    """Takes measurements that are made up: a name and what its program does."""
    def run(*words: str, **programs: str) -> tuple[int, list[str]]:
        for name, program in programs.items():
            (tmp_path / f"{name}.py").write_text(
                f"import sys\nsys.path.insert(0, {str(BENCH)!r})\nfrom pathlib import Path\nimport telling\n"
                f"limits = Path(sys.argv[sys.argv.index('--limits') + 1])\n{program}\n")
        monkeypatch.setattr(measurements, "HERE", tmp_path)
        monkeypatch.setattr(sys, "argv", ["measurements", "build", *programs, "--", *words])
        status = measurements.main()
        return status, capfd.readouterr().out.splitlines()
    return run


def note(limit: Limit, status: int = 0) -> str:
    return f"telling.note(limits, [telling.{limit!r}]); sys.exit({status})"


def test_the_last_line_is_the_verdict_over_all_measurements(run):
    status, lines = run(first=f"print('one', flush=True); {note(KEPT)}", second=f"print('two', flush=True); {note(SLOW, 1)}")
    assert (status, lines[:4]) == (1, ["one", "", "two", ""])
    assert lines[4].startswith("verdict: 1 of 2 limits BROKEN: start: exec") and len(lines) == 5


def test_a_measurement_that_fails_does_not_keep_the_others_from_running(run):
    assert run(first="sys.exit(2)", second=note(KEPT)) == (
        2, ["", "", "verdict: could not measure first; the limit is kept, stripped binary"])


def test_report_only_goes_to_each_and_ends_with_status_0(run):
    status, lines = run("--report-only", first=f"assert sys.argv[-1] == '--report-only'; {note(SLOW, 0)}")
    assert status == 0 and "BROKEN" in lines[-1]


def test_an_interrupt_ends_all(run):
    assert run(first="sys.exit(130)", second="print('never')") == (130, [])


# The command

def ask(*words: str) -> subprocess.CompletedProcess:
    return subprocess.run([BENCH / "run", *words], capture_output=True, text=True, check=False)


def test_help_names_the_measurements():
    done = ask("--help")
    assert done.returncode == 0 and not done.stderr
    for name in ("period", "footprint", "simulation", "settings", "--report-only"):
        assert name in done.stdout


@pytest.mark.parametrize("words, problem", [
    (["perod"], "perod: no measurement; there are period footprint simulation top settings"),
    (["--report-only", "--json"], "arguments other than --report-only need a measurement's name")])
def test_wrong_use_is_told_before_anything_is_installed_or_built(words, problem):
    done = ask(*words)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", f"bench/run: {problem}\n")
