"""Where the modules under test are, and the browser that the tests of the report share."""
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / part) for part in ("sim", "platform/sim")]

from browser import Browser  # noqa: E402


@pytest.fixture(scope="session")
def browser(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Browser]:
    with Browser(tmp_path_factory.mktemp("browser")) as started:
        yield started
