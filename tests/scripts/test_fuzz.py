"""What scripts/fuzz promises of any target, shown with targets that only say what a fuzzer says."""
import subprocess
from pathlib import Path

import pytest

FUZZ = Path(__file__).resolve().parents[2] / "scripts/fuzz"
SAYS = """#!/bin/sh
echo '#2	INITED cov: 7 ft: 8 corp: 1/1b exec/s: 0 rss: 30Mb'
echo '#500	DONE   cov: 42 ft: 60 corp: 9/99b lim: 4096 exec/s: 250 rss: 31Mb'
echo 'stat::number_of_executed_units: 500'
echo 'stat::average_exec_per_sec:     250'
"""
FINDS = SAYS + """
for argument; do
    case "$argument" in -artifact_prefix=*) found="${argument#-artifact_prefix=}crash-1" ;; esac
done
echo "artifact_prefix='x'; Test unit written to $found"
exit 77
"""


@pytest.fixture
def run(tmp_path):
    def run(*arguments: str, **targets: str) -> subprocess.CompletedProcess:
        (tmp_path / "bin").mkdir(exist_ok=True)
        for name, text in targets.items():
            program = tmp_path / "bin" / name
            program.write_text(text)
            program.chmod(0o755)
        return subprocess.run([FUZZ, "--build", tmp_path, *arguments], capture_output=True, text=True, timeout=60)
    return run


def test_each_target_tells_its_executions_their_rate_and_its_edges(run):
    done = run("--seconds", "1", fuzz_blobmsg=SAYS, fuzz_uci=SAYS)
    assert done.returncode == 0
    lines = [line.split() for line in done.stdout.splitlines()[1:]]
    assert lines == [["fuzz_blobmsg", "500", "250", "42", "-"], ["fuzz_uci", "500", "250", "42", "-"], ["all", "1000", "-"]]


def test_a_finding_ends_it_with_status_1_and_the_path_of_the_input(run, tmp_path):
    done = run("blobmsg", "uci", fuzz_blobmsg=FINDS, fuzz_uci=SAYS)
    assert done.returncode == 1
    assert done.stderr == f"fuzz_blobmsg failed: {tmp_path}/findings/fuzz_blobmsg-crash-1\n"
    assert "fuzz_uci" in done.stdout


def test_a_target_that_ends_without_an_input_is_no_success(run):
    done = run("uci", fuzz_uci="#!/bin/sh\nexit 1\n")
    assert done.returncode == 1
    assert "fuzz_uci failed: status 1, see " in done.stderr


def test_an_unknown_target_is_refused_with_those_that_there_are(run):
    done = run("blob", fuzz_blobmsg=SAYS)
    assert done.returncode == 1
    assert done.stderr == "no such target: fuzz_blob\nthere are: fuzz_blobmsg\n"
