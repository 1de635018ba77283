"""Fixtures of the end-to-end tests: a simulated node for each test, and where the programs are."""
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "platform/sim"))

from fault_scene import FaultScene  # noqa: E402
from kolt_node import Node  # noqa: E402
from kolt_node.node import build_directory  # noqa: E402
from scene import SANITIZER_WORDS  # noqa: E402

# Only a machine with libbpf and libmnl builds the libraries for a stock kernel.
collect_ignore = [] if (build_directory() / "linux/lib/libduon-bridge.so").exists() else ["test_bridged_libraries.py"]
# A sanitized build has an allocator of its own, which nothing comes before.
if not (build_directory() / "lib/librefuse-allocation.so").exists():
    collect_ignore.append("test_allocations.py")
if (build_directory() / "bin/kolt").exists() and b"__asan_init" in (build_directory() / "bin/kolt").read_bytes():
    collect_ignore.append("test_fault_allocations.py")


@pytest.fixture(scope="session")
def build() -> Path:
    """The build directory under test: $KOLT_BUILD, relative to the top of the tree, by default build/release."""
    directory = build_directory()
    if not (directory / "lib/libduon-bridge.so").exists():
        pytest.fail(f"{directory} holds no build; set KOLT_BUILD to one that does", pytrace=False)
    return directory


@pytest.fixture
def node(build: Path) -> Iterator[Node]:
    """An empty node. Whatever ran in it must not have drawn a sanitizer's complaint."""
    with Node(build) as fresh:
        yield fresh
        if fresh.daemon is not None:
            fresh.stop_daemon()
        for process in fresh.processes.values():
            assert not any(word in process.stderr for word in SANITIZER_WORDS), process.stderr


@pytest.fixture(scope="module")
def lasting(build: Path) -> Iterator[FaultScene]:
    """The node of all of a file's tests of failing calls."""
    with Node(build) as node:
        made = FaultScene(node)
        yield made
        made.close()


@pytest.fixture
def stage(lasting: FaultScene) -> Iterator[FaultScene]:
    """That node for one test, which starts daemons of its own on it."""
    yield from lasting.lend()
