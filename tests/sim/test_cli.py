"""The command: arguments, exit statuses, what it says when something is wrong, and that it leaves nothing behind."""
import json
import os
import select
import signal
import stat
import subprocess
import time
from pathlib import Path

import pytest

from fake_run import BROKEN, MISSED, REFUSED, SLOW, STORMY, fake_run
from kolt_node import NodeError
from kolt_sim import cli
from terminal import COMMAND, LIMIT_SECONDS, Terminal, environment, write_scenario

TOP = Path(__file__).resolve().parents[2]
PROGRAM = [str(TOP / "sim/kolt-sim")]
CLOSED_PIPE = 128 + signal.SIGPIPE


class Said:
    def __init__(self, status: int, out: str, err: str) -> None:
        self.status, self.out, self.err = status, out.splitlines(), err.splitlines()


@pytest.fixture
def ask(capsys):
    """Runs the command in this process, on made-up runs unless others are given."""
    def ask(*arguments: object, run=fake_run) -> Said:
        try:
            status = cli.main([str(argument) for argument in arguments], run)
        except SystemExit as error:
            status = error.code
        return Said(status, *capsys.readouterr())
    return ask


def must_not_run(*_: object, **__: object) -> dict:
    raise AssertionError("nothing should have run")


def start(*arguments: object, **how: object) -> subprocess.Popen:
    """The command as a process of its own, on made-up runs."""
    return subprocess.Popen([*COMMAND, *map(str, arguments)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                            env=environment(), start_new_session=True, **how)


# run

@pytest.mark.parametrize("seed, status", [(1, 0), (MISSED, 1), (STORMY, 1), (REFUSED, 2)])
def test_the_status_of_a_run_says_what_came_of_it(ask, tmp_path, seed, status):
    assert ask("run", write_scenario(tmp_path, seed=seed)).status == status


def test_a_run_on_a_pipe_writes_plain_lines(ask, tmp_path):
    said = ask("run", write_scenario(tmp_path))
    assert said.out[0] == "scenario home: A small home"
    assert "result: as expected" in said.out and not said.err


def test_a_node_that_cannot_be_had_is_one_line(ask, tmp_path):
    said = ask("run", write_scenario(tmp_path, seed=REFUSED))
    assert said.err == ["kolt-sim: this machine does not allow the namespaces that a simulated node needs"]


def test_a_broken_pipe_to_the_node_is_not_taken_for_a_reader_that_left(ask, tmp_path):
    def run(*_: object, **__: object) -> dict:
        raise BrokenPipeError
    said = ask("run", write_scenario(tmp_path), run=run)
    assert (said.status, said.err) == (2, ["kolt-sim: the simulated node has ended"])


@pytest.mark.parametrize("given, speed", [([], 0), (["--speed", "0"], 0), (["--speed", "2.5"], 2.5)])
def test_the_speed_is_unlimited_on_a_pipe_unless_asked_for(ask, tmp_path, given, speed):
    seen = []

    def run(scenario: object, view: object, speed: float) -> dict:
        seen.append(speed)
        return fake_run(scenario, view)
    ask("run", write_scenario(tmp_path), *given, run=run)
    assert seen == [speed]


@pytest.mark.parametrize("arguments", ["", "fly", "run", "run a b", "compare", "check", "run a --fast",
                                       "run a --set period", "run a --set =3",
                                       "run a --set cpu_limit=maybe", "check a --set period=3", "run a --speed -1",
                                       "run a --speed nan", "run a --speed fast", "compare a --jobs 0",
                                       "compare a --jobs 1.5", "list a"])
def test_wrong_use_has_status_two_and_says_how_to_use_it(ask, arguments):
    said = ask(*arguments.split(), run=must_not_run)
    assert said.status == 2
    assert said.err[0].startswith("usage: kolt-sim") and not said.out


# Settings

@pytest.mark.parametrize("given, settings", [
    ([], {"period": 3}), (["--set", "high_threshold=80"], {"period": 3, "high_threshold": 80}),
    (["--set", "period=4", "--set", "cpu_limit=true"], {"period": 4, "cpu_limit": True})])
@pytest.mark.parametrize("command", ["run", "compare"])
def test_settings_that_are_given_go_before_those_of_the_scenario(ask, tmp_path, command, given, settings):
    target = tmp_path / "result.json"

    def run(scenario: object, view: object, speed: float = 0) -> dict:
        result = fake_run(scenario, view)
        result["scenario"]["settings"] = scenario.settings
        return result
    assert ask(command, write_scenario(tmp_path, settings={"period": 3}), "--json", target, *given, run=run).status == 0
    data = json.loads(target.read_text())
    assert (data["results"][0] if command == "compare" else data)["scenario"]["settings"] == settings


def test_a_setting_that_cannot_be_is_told_as_if_it_stood_in_the_file(ask, tmp_path):
    said = ask("run", write_scenario(tmp_path), "--set", "high_treshold=80", "--set", "period=0", run=must_not_run)
    assert said.status == 2
    assert sorted(line.split(": ", 2)[2] for line in said.err) == [
        "settings.high_treshold: unknown member; did you mean \"high_threshold\"?",
        "settings.period: expected an integer from 1 to 3600 (seconds), found 0"]


# Files

def test_the_data_hold_the_whole_result(ask, tmp_path):
    target = tmp_path / "result.json"
    assert ask("run", write_scenario(tmp_path), "--json", target).status == 0
    result = json.loads(target.read_text())
    assert result["scenario"]["name"] == "home"
    assert len(result["series"]["time"]) == 60


def test_the_report_is_a_page_about_the_run(ask, tmp_path):
    target = tmp_path / "page.html"
    said = ask("run", write_scenario(tmp_path), "--report", target)
    assert (said.status, said.out[-1]) == (0, f"page: file://{target}")
    page = target.read_text()
    assert page.startswith("<!DOCTYPE html>") and "A small home" in page


def test_files_are_written_even_when_an_expectation_was_missed(ask, tmp_path):
    target = tmp_path / "result.json"
    assert ask("run", write_scenario(tmp_path, seed=MISSED), "--json", target).status == 1
    assert json.loads(target.read_text())["scenario"]["seed"] == MISSED


@pytest.mark.parametrize("command, option", [("run", "--json"), ("run", "--report"), ("compare", "--json")])
@pytest.mark.parametrize("target, reason", [("no/such/place", "No such file or directory"), (".", "Is a directory"),
                                            ("home.json/x", "Not a directory")])
def test_an_unwritable_file_is_found_out_before_the_run(ask, tmp_path, monkeypatch, command, option, target, reason):
    monkeypatch.chdir(tmp_path)
    said = ask(command, write_scenario(tmp_path), option, target, run=must_not_run)
    assert (said.status, said.err) == (2, [f"kolt-sim: cannot write {target}: {reason}"])


def test_report_and_data_cannot_be_one_file(ask, tmp_path):
    files = ["--json", tmp_path / "x", "--report", f"{tmp_path}/./x"]
    said = ask("run", write_scenario(tmp_path), *files, run=must_not_run)
    assert (said.status, len(said.err)) == (2, 1)
    assert "cannot be both the report and the data" in said.err[0]


def test_an_old_file_stays_as_it_was_when_the_run_fails(ask, tmp_path):
    target = tmp_path / "result.json"
    target.write_text("old")
    assert ask("run", write_scenario(tmp_path, seed=REFUSED), "--json", target).status == 2
    assert target.read_text() == "old"
    assert sorted(os.listdir(tmp_path)) == ["home.json", "result.json"]


def test_a_file_is_replaced_and_keeps_its_mode_and_the_link_to_it(ask, tmp_path):
    target, link = tmp_path / "result.json", tmp_path / "link.json"
    target.write_text("old")
    target.chmod(0o640)
    link.symlink_to(target)
    before = target.stat().st_ino
    ask("run", write_scenario(tmp_path), "--json", link)
    assert link.is_symlink() and target.stat().st_ino != before
    assert stat.S_IMODE(target.stat().st_mode) == 0o640
    assert json.loads(target.read_text())["format"] == 1


def test_a_new_file_has_the_usual_mode(ask, tmp_path):
    before = os.umask(0o027)
    try:
        ask("run", write_scenario(tmp_path), "--json", tmp_path / "result.json")
    finally:
        os.umask(before)
    assert stat.S_IMODE((tmp_path / "result.json").stat().st_mode) == 0o640


def test_data_can_go_into_a_pipe(tmp_path):
    reader, writer = os.pipe()
    process = start("compare", write_scenario(tmp_path, duration=5), "--json", f"/dev/fd/{writer}", pass_fds=[writer])
    os.close(writer)
    with os.fdopen(reader) as pipe:
        assert json.load(pipe)["results"][0]["scenario"]["name"] == "home"
    assert process.wait(LIMIT_SECONDS) == 0


def test_a_full_disk_is_one_line(ask, tmp_path):
    said = ask("run", write_scenario(tmp_path), "--json", "/dev/full")
    assert (said.status, said.err) == (2, ["kolt-sim: cannot write /dev/full: No space left on device"])


ALL = [["run", "HOME"], ["list"], ["check", "HOME"], ["compare", "HOME"], ["--help"], ["run", "--help"]]


def finish(tmp_path: Path, arguments: list[str], out: object, command: list[str] = COMMAND) -> tuple[int, str]:
    """Runs the command, on a scenario of its own in the place of HOME; its status and what it complained of."""
    home = str(write_scenario(tmp_path))
    done = subprocess.run([*command, *[home if word == "HOME" else word for word in arguments]], stdout=out,
                          stderr=subprocess.PIPE, text=True, env=environment(), timeout=LIMIT_SECONDS)
    return done.returncode, done.stderr


@pytest.mark.parametrize("arguments", ALL)
def test_a_full_disk_behind_standard_output_is_one_line(tmp_path, arguments):
    with open("/dev/full", "w") as full:
        assert finish(tmp_path, arguments, full) == (2, "kolt-sim: No space left on device\n")


def test_a_full_disk_does_not_hide_another_problem(tmp_path):
    bad = write_scenario(tmp_path, "bad", duration=-1)
    with open("/dev/full", "w") as full:
        status, errors = finish(tmp_path, ["check", "HOME", str(bad)], full)
    assert status == 2 and len(errors.splitlines()) == 1
    assert errors.startswith(f"kolt-sim: {bad}: duration")


# compare

def test_compare_prints_a_row_for_each_scenario_in_the_given_order(ask, tmp_path):
    files = [write_scenario(tmp_path, name) for name in ("zebra", "ant", "bee")]
    said = ask("compare", *files)
    assert said.status == 0
    assert [line.split()[0] for line in said.out[2:5]] == ["zebra", "ant", "bee"]
    assert not said.err


@pytest.mark.parametrize("seeds, status", [([1, MISSED], 1), ([1, STORMY], 1), ([REFUSED, MISSED], 2),
                                           ([REFUSED, 1], 2), ([1, BROKEN], 2)])
def test_the_worst_scenario_decides_the_status_of_compare(ask, tmp_path, seeds, status):
    assert ask("compare", *[write_scenario(tmp_path, f"home-{seed}", seed=seed) for seed in seeds]).status == status


def test_compare_keeps_all_results_as_data(ask, tmp_path):
    files = [write_scenario(tmp_path, name) for name in ("one", "two")]
    ask("compare", *files, "--json", tmp_path / "all.json", "--jobs", 1)
    data = json.loads((tmp_path / "all.json").read_text())
    assert data["format"] == 1
    assert [result["scenario"]["name"] for result in data["results"]] == ["one", "two"]


def test_one_faulty_scenario_keeps_all_from_running(ask, tmp_path):
    said = ask("compare", write_scenario(tmp_path), tmp_path / "none.json", run=must_not_run)
    assert (said.status, said.err) == (2, [f"kolt-sim: {tmp_path}/none.json: no such file"])


def test_compare_shows_its_progress_on_a_terminal_only(tmp_path):
    files = [str(write_scenario(tmp_path, name)) for name in ("one", "two")]
    with Terminal(["compare", *files]) as terminal:
        assert terminal.end() == 0
    assert "0 of 2 done" in terminal.text and "1 of 2 done" in terminal.text
    assert "\r\x1b[K" in terminal.raw and terminal.raw.rindex("\x1b[K") < terminal.raw.index("A small home")


def test_a_report_that_cannot_be_made_is_found_out_before_the_run(ask, tmp_path, monkeypatch):
    monkeypatch.setattr("kolt_sim.view.report.LIBRARY", tmp_path / "gone")
    said = ask("run", write_scenario(tmp_path), "--report", tmp_path / "page.html", run=must_not_run)
    assert (said.status, len(said.err)) == (2, 1)
    assert said.err[0].startswith("kolt-sim: a report needs Debian's package libjs-dygraphs")


# check and list

def test_check_says_what_a_valid_scenario_holds(ask, tmp_path):
    said = ask("check", write_scenario(tmp_path), run=must_not_run)
    assert (said.status, said.out) == (0, ["home: valid, 60 s, 2 clients, 1 stream"])


def test_check_tells_every_problem_and_still_checks_the_rest(ask, tmp_path):
    bad = write_scenario(tmp_path, "bad", duration=-1, sped=3)
    said = ask("check", bad, write_scenario(tmp_path, "good"))
    assert (said.status, said.out) == (2, ["good: valid, 60 s, 2 clients, 1 stream"])
    assert len(said.err) == 2 and all(line.startswith(f"kolt-sim: {bad}: ") for line in said.err)
    assert "duration" in said.err[0] and "sped" in said.err[1]


def test_the_shipped_scenarios_are_valid_and_listed_with_their_titles(ask):
    said = ask("list", run=must_not_run)
    names = sorted(path.stem for path in (TOP / "sim/scenarios").glob("*.json"))
    assert (said.status, said.err) == (0, [])
    assert [line.split()[0] for line in said.out] == names and len(names) >= 10
    title = json.loads((TOP / f"sim/scenarios/{names[0]}.json").read_text())["title"]
    assert said.out[0].endswith("  " + title)


# Which file is meant

def test_a_bare_name_means_a_shipped_scenario(ask):
    assert ask("check", "quiet-home").out[0].startswith("quiet-home: valid")


def test_a_bare_name_can_be_a_file_too(ask, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    write_scenario(tmp_path, "mine").rename(tmp_path / "mine")
    assert ask("check", "mine").status == 0


@pytest.mark.parametrize("word, problem", [
    ("quiet-hone", "quiet-hone: neither a file nor a shipped scenario; did you mean quiet-home?"),
    ("evening", "evening: neither a file nor a shipped scenario; did you mean evening-streaming?"),
    ("Evning", "Evning: neither a file nor a shipped scenario; did you mean evening-streaming?"),
    ("link", "link: neither a file nor a shipped scenario; did you mean fading-links, flapping-link or single-link?"),
    ("link-flap", "link-flap: neither a file nor a shipped scenario; did you mean flapping-link?"),
    ("quiet.json", "quiet.json: neither a file nor a shipped scenario; did you mean quiet-home?"),
    ("xyzzy", "xyzzy: neither a file nor a shipped scenario; see kolt-sim list"),
    ("-", "-: neither a file nor a shipped scenario; see kolt-sim list"),
    ("./quiet-home.json", "./quiet-home.json: no such file"), ("/", "/: is a directory")])
def test_a_scenario_that_is_not_there_is_told_in_a_line(ask, tmp_path, monkeypatch, word, problem):
    monkeypatch.chdir(tmp_path)
    said = ask("run", word, run=must_not_run)
    assert (said.status, said.err) == (2, [f"kolt-sim: {problem}"])


@pytest.mark.parametrize("word, meant", [("evening", "run evening-streaming"), ("rum", "run"), ("lst", "list")])
def test_a_word_that_is_no_command_is_told_with_what_may_be_meant(ask, word, meant):
    said = ask(word, run=must_not_run)
    assert (said.status, said.err) == (2, [f"kolt-sim: {word}: no command of kolt-sim; did you mean kolt-sim {meant}?"])


# What is missing

@pytest.mark.parametrize("command", ["run", "compare"])
def test_a_missing_build_is_told_with_the_way_to_it(ask, tmp_path, monkeypatch, command):
    monkeypatch.chdir(tmp_path)
    said = ask(command, write_scenario(tmp_path), "--build", "nowhere", run=None)
    assert said.status == 2
    assert said.err == ["kolt-sim: nowhere holds no build: bin/kolt is missing",
                        "kolt-sim: build it with: cmake --preset release && cmake --build --preset release"]


@pytest.mark.parametrize("library, arguments", [("jsonschema", ["list"]), ("numpy", ["run", "quiet-home"])])
def test_a_missing_library_is_named_with_its_package(tmp_path, library, arguments):
    (tmp_path / f"{library}.py").write_text(f"raise ModuleNotFoundError('gone', name='{library}')\n")
    done = subprocess.run([TOP / "sim/kolt-sim", *arguments], capture_output=True, text=True, timeout=LIMIT_SECONDS,
                          env=environment(PYTHONPATH=str(tmp_path)))
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == (f"kolt-sim: the Python library {library} is missing: install Debian's package"
                           f" python3-{library}\n")


def test_several_missing_libraries_are_named_at_once():
    done = subprocess.run(["/usr/bin/python3", "-IS", TOP / "sim/kolt-sim", "list"], capture_output=True, text=True,
                          timeout=LIMIT_SECONDS, env=environment())
    assert (done.returncode, done.stderr) == (2, "kolt-sim: the Python library jsonschema is missing: install Debian's packages"
                                                 " python3-jsonschema python3-numpy python3-rich\n")


def test_a_pipe_needs_no_library_for_terminals(tmp_path):
    (tmp_path / "rich.py").write_text("raise ModuleNotFoundError('gone', name='rich')\n")
    done = subprocess.run([*COMMAND, "run", str(write_scenario(tmp_path))], capture_output=True, timeout=LIMIT_SECONDS,
                          env=environment(PYTHONPATH=str(tmp_path)))
    assert (done.returncode, done.stderr) == (0, b"")


def test_the_command_runs_from_anywhere_and_through_a_link(tmp_path):
    (tmp_path / "sim").symlink_to(TOP / "sim/kolt-sim")
    done = subprocess.run(["./sim", "--help"], cwd=tmp_path, capture_output=True, text=True, timeout=LIMIT_SECONDS,
                          env=environment())
    assert done.returncode == 0
    assert all(word in done.stdout for word in ("run", "compare", "check", "list", "exit status"))


# The end

def read_line(process: subprocess.Popen, words: str) -> None:
    """Reads until a line that holds the words."""
    assert process.stdout is not None
    for line in process.stdout:
        if words in line:
            return
    raise AssertionError(f"no line with {words}")


def children(pid: int) -> list[int]:
    return [int(word) for word in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]


def wait_until(condition) -> None:
    deadline = time.monotonic() + LIMIT_SECONDS
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.002)


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_ends_a_run_without_a_trace(tmp_path, number):
    process = start("run", write_scenario(tmp_path, duration=3600), "--speed", "10", "--json", tmp_path / "result.json")
    read_line(process, " total ")
    process.send_signal(number)
    _, errors = process.communicate(timeout=LIMIT_SECONDS)
    assert (process.returncode, errors) == (128 + number, "kolt-sim: interrupted\n")
    assert os.listdir(tmp_path) == ["home.json"]


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGKILL])
def test_a_signal_ends_compare_with_all_its_workers(tmp_path, number):
    process = start("compare", *[write_scenario(tmp_path, f"home-{number}", duration=3600, seed=SLOW)
                                 for number in range(3)], "--jobs", 2)
    wait_until(lambda: len(children(process.pid)) == 2)
    workers = [os.pidfd_open(pid) for pid in children(process.pid)]
    process.send_signal(number)
    _, errors = process.communicate(timeout=LIMIT_SECONDS)
    assert process.returncode == (128 + number if number != signal.SIGKILL else -number)
    assert errors == ("kolt-sim: interrupted\n" if number != signal.SIGKILL else "")
    assert all(select.select([worker], [], [], LIMIT_SECONDS)[0] for worker in workers)


def test_an_interrupt_is_one_even_when_the_node_then_complains(ask, tmp_path):
    def run(*_: object, **__: object) -> dict:
        try:
            os.kill(os.getpid(), signal.SIGINT)
            raise AssertionError("the signal did not arrive")
        finally:
            raise NodeError("the node's agent has ended")
    said = ask("run", write_scenario(tmp_path), run=run)
    assert (said.status, said.err) == (130, ["kolt-sim: interrupted"])


def test_signals_are_handled_as_before_when_the_command_is_over(ask):
    before = signal.getsignal(signal.SIGTERM)
    ask("list")
    assert signal.getsignal(signal.SIGTERM) is before


@pytest.fixture
def abandoned_pipe():
    """The writing end of a pipe that nobody reads."""
    reader, writer = os.pipe()
    os.close(reader)
    yield writer
    os.close(writer)


@pytest.mark.parametrize("arguments", ALL)
def test_a_closed_pipe_is_silent(tmp_path, arguments, abandoned_pipe):
    assert finish(tmp_path, arguments, abandoned_pipe) == (CLOSED_PIPE, "")


@pytest.mark.parametrize("arguments", [["list"], ["check", "HOME"], ["--help"]])
def test_the_program_itself_buffers_and_still_ends_cleanly(tmp_path, arguments, abandoned_pipe):
    assert finish(tmp_path, arguments, abandoned_pipe, PROGRAM) == (CLOSED_PIPE, "")
    with open("/dev/full", "w") as full:
        assert finish(tmp_path, arguments, full, PROGRAM) == (2, "kolt-sim: No space left on device\n")


def test_standard_output_that_is_closed_is_told(tmp_path):
    closing = ["/bin/sh", "-c", 'exec "$0" "$@" >&-', *PROGRAM]
    assert finish(tmp_path, ["list"], None, closing) == (2, "kolt-sim: standard output is closed\n")


def test_a_reader_that_leaves_in_the_middle_ends_the_run_silently(tmp_path):
    process = start("run", write_scenario(tmp_path, duration=3600), "--speed", "100")
    read_line(process, " total ")
    process.stdout.close()
    assert process.wait(LIMIT_SECONDS) == CLOSED_PIPE
    assert process.stderr.read() == ""
