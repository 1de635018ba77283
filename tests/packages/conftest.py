"""The machine on which the packages are tried: one for all tests, which are the stages of its life."""
import os
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "install"))

from machine import Machine  # noqa: E402


@pytest.fixture(scope="session")
def packages() -> list[Path]:
    found = [path for path in Path(os.environ["KOLT_PACKAGES"]).glob("*.deb") if "-dbgsym_" not in path.name]
    assert sorted(path.name.split("_")[0] for path in found) == ["kolt", "kolt-sim"]
    return found


@pytest.fixture(scope="session")
def machine() -> Iterator[Machine]:
    fresh = Machine(Path(os.environ["KOLT_ROOT"]))
    yield fresh
    fresh.halt()
