"""That a script says in one line where its user cannot build."""
import os
import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path

import pytest

NEEDS = Path(__file__).resolve().parents[2] / "scripts/needs.sh"
NOBODY = ["setpriv", "--reuid=65534", "--clear-groups"] if os.geteuid() == 0 else []  # root may write everywhere


@pytest.fixture
def tree() -> Iterator[Path]:
    """A tree with a build of somebody else's, whom anybody may watch."""
    with tempfile.TemporaryDirectory(dir="/tmp") as folder:
        (Path(folder) / "build/release").mkdir(parents=True)
        os.chmod(folder, 0o777)
        yield Path(folder)


def ask(tree: Path, *folders: str) -> subprocess.CompletedProcess:
    return subprocess.run([*NOBODY, "bash", "-euc", 'eval "$(cat)"; need_own "$@"; echo goes on', "bash", *folders], cwd=tree,
                          input=NEEDS.read_text(), capture_output=True, text=True)


@pytest.mark.parametrize("closed, folder", [
    ("build/release", "build/release"), ("build", "build/debug"), ("build/release/.ninja_log", "build/release")])
def test_what_another_user_built_is_named_in_one_line(tree: Path, closed: str, folder: str) -> None:
    for open_one in ("build", "build/release"):
        (tree / open_one).chmod(0o777)
    if closed.endswith("log"):
        (tree / closed).touch()
    (tree / closed).chmod(0o555)
    said = ask(tree, folder)
    assert (said.returncode, said.stdout, said.stderr.count("\n")) == (1, "", 1)
    assert said.stderr.startswith(f"{closed} belongs to ") and "cannot build here" in said.stderr


@pytest.mark.parametrize("folder", ["build/release", "build/debug", "fresh/release"])
def test_a_build_of_ones_own_or_none_is_no_matter(tree: Path, folder: str) -> None:
    for open_one in ("build", "build/release"):
        (tree / open_one).chmod(0o777)
    said = ask(tree, folder)
    assert (said.returncode, said.stdout, said.stderr) == (0, "goes on\n", "")


def test_what_is_started_in_an_empty_environment_has_a_path() -> None:
    said = subprocess.run(["/bin/bash", "-euc", '. "$0"; exec /usr/bin/env', str(NEEDS)], env={}, capture_output=True, text=True)
    assert any(line.startswith("PATH=/") for line in said.stdout.splitlines()), said.stdout
