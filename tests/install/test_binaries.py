"""What every linked file of a build owes to those who run it, often as root."""
import platform
import re
import subprocess
from pathlib import Path

import pytest

from conftest import TOP
from elf import is_private, linked_below, readelf, run_paths

BUILDS = [build for build in ("build/release", "build/debug", "build/system-libraries") if (TOP / build).is_dir()]
DAEMONS = ["bin/kolt", "bin/kolt-bridged", "bin/kolt-ubusd"]
# What a function begins with that may be jumped to, and what keeps a large frame from stepping over a guard page, on
# machines that have it.
LANDING_PAD = {"x86_64": r"\sendbr64$", "aarch64": r"\s(bti|paciasp)\b"}
STACK_TOUCHED = {"x86_64": r"\sorq\s+\$0x0,"}


def disassembled(path: Path) -> str:
    return subprocess.run(["objdump", "--disassemble", "--no-show-raw-insn", path], check=True, capture_output=True,
                          text=True).stdout


@pytest.mark.parametrize("name", BUILDS)
def test_no_linked_file_of_a_build_names_a_folder_of_this_machine_for_its_libraries(name: str) -> None:
    linked = linked_below(TOP / name)
    assert len(linked) > 5
    foreign = {str(path): folders for path in linked if not all(map(is_private, folders := run_paths(path)))}
    assert foreign == {}


@pytest.fixture(params=DAEMONS)
def daemon(request: pytest.FixtureRequest, build: Path) -> Path:
    path = build / request.param
    if request.param == "bin/kolt-bridged" and not (build / "linux").joinpath("lib").exists():
        pytest.fail("the build lacks the open platform", pytrace=False)
    return path


def test_a_daemon_resolves_everything_at_its_start_and_cannot_be_rewritten(daemon: Path) -> None:
    headers, dynamic = readelf(daemon, "--segments"), readelf(daemon, "--dynamic")
    assert "GNU_RELRO" in headers and re.search(r"\bBIND_NOW\b|\bNOW\b", dynamic) and "PIE" in dynamic
    assert re.search(r"GNU_STACK\s+(0x[0-9a-f]+\s+){5}RW\s", headers)
    assert "TEXTREL" not in dynamic


if pad := LANDING_PAD.get(platform.machine()):
    def test_a_daemons_functions_say_where_a_jump_may_land(daemon: Path) -> None:
        assert len(re.findall(pad, disassembled(daemon), re.MULTILINE)) > 20

if touch := STACK_TOUCHED.get(platform.machine()):
    def test_a_large_frame_touches_each_page_of_the_stack(build: Path) -> None:
        assert re.search(touch, disassembled(build / "bin/kolt"))


def test_a_program_that_was_moved_away_finds_no_library_of_its_former_place(build: Path, tmp_path: Path) -> None:
    """A library that is planted where the build was is not taken."""
    moved = tmp_path / "bin/kolt"
    moved.parent.mkdir()
    moved.write_bytes((build / "bin/kolt").read_bytes())
    moved.chmod(0o755)
    done = subprocess.run([moved], check=True, capture_output=True, text=True, env={"LD_TRACE_LOADED_OBJECTS": "1"})
    assert "libduon-bridge.so => " in done.stdout and str(build) not in done.stdout
