"""Where the mesh is found, and labs that are taken down whatever happens."""
import sys
from collections.abc import Callable, Iterator
from contextlib import ExitStack
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "linux/mesh"))

from kolt_mesh.kinds import Kind  # noqa: E402
from kolt_mesh.lab import Lab  # noqa: E402
from kolt_mesh.topology import Topology  # noqa: E402


@pytest.fixture
def make_lab() -> Iterator[Callable[..., Lab]]:
    """Makes labs that are up; each is closed after the test."""
    with ExitStack() as stack:
        def make(topology: Topology, kind: Kind, **how: object) -> Lab:
            lab = stack.enter_context(Lab(topology, kind, **how))
            lab.up()
            lab.wait_carrier()
            return lab
        yield make
