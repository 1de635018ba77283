"""The build that is installed, and what an installation of it comes to."""
import os
import subprocess
from pathlib import Path

import pytest

TOP = Path(__file__).resolve().parents[2]


@pytest.fixture(scope="session")
def build() -> Path:
    """The build directory under test: $KOLT_BUILD, relative to the top of the tree, by default build/release."""
    directory = TOP / os.environ.get("KOLT_BUILD", "build/release")
    if not (directory / "bin/kolt").exists():
        pytest.fail(f"{directory} holds no build; set KOLT_BUILD to one that does", pytrace=False)
    return directory


def install(build: Path, root: Path, *words: str) -> Path:
    """Installs into a root of the caller's; returns the root."""
    done = subprocess.run(["cmake", "--install", build, "--prefix", "/usr", *words], env=os.environ | {"DESTDIR": str(root)},
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    return root


@pytest.fixture(scope="session")
def root(build: Path, tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A root that holds nothing but the installation."""
    return install(build, tmp_path_factory.mktemp("root"))
