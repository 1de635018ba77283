"""What the tests of the tools take as delivered."""
from pathlib import Path

import pytest

TOP = Path(__file__).resolve().parents[2]


@pytest.fixture
def delivered() -> Path:
    """Where the programs are as they are delivered, which another build that is under test need not be like."""
    programs = TOP / "build/release/bin"
    if not (programs / "kolt-top").exists():
        pytest.fail("build/release/bin/kolt-top is missing: build the release preset", pytrace=False)
    return programs
