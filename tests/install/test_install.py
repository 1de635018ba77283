"""What `cmake --install` puts where, and what must not be in it."""
import json
import os
import re
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest

from conftest import TOP, install
from elf import MAGIC as ELF
from elf import linked_below, run_paths

EXPECTED = """
usr/sbin/kolt usr/sbin/kolt-bridged usr/sbin/kolt-ubusd usr/bin/kolt-event
usr/bin/kolt-check usr/bin/kolt-top
usr/share/bash-completion/completions/kolt-check usr/share/bash-completion/completions/kolt-top
usr/share/doc/kolt/examples/access-point.json usr/share/doc/kolt/examples/extender.json
usr/share/doc/kolt/examples/hybrid.json
usr/lib/libduon-bridge.so usr/lib/libeth_encap.so
usr/include/kolt/duon_bridge.h usr/include/kolt/eth_encap.h
usr/lib/systemd/system/kolt.service usr/lib/systemd/system/kolt-bridged.service usr/lib/systemd/system/kolt-ubusd.service
usr/share/bash-completion/completions/kolt usr/share/bash-completion/completions/kolt-bridged
usr/share/bash-completion/completions/kolt-sim
usr/share/doc/kolt/examples/kolt.json usr/share/kolt/kolt.schema.json
etc/kolt.json
usr/bin/kolt-sim usr/bin/kolt-node usr/bin/kolt-demo
usr/lib/kolt-sim/programs/lib/libduon-bridge.so usr/lib/kolt-sim/programs/lib/libeth_encap.so
usr/lib/kolt-sim/programs/bin/kolt usr/lib/kolt-sim/programs/bin/kolt-ubusd usr/lib/kolt-sim/programs/bin/kolt-event
""".split()
PRIVATE = "usr/lib/kolt-sim/"


def files(root: Path) -> set[str]:
    return {str(path.relative_to(root)) for path in root.rglob("*") if path.is_symlink() or path.is_file()}


def below(root: Path) -> Iterator[Path]:
    return (path for path in root.rglob("*") if path.is_file() and not path.is_symlink())


def test_everything_is_where_people_look_for_it(root: Path) -> None:
    assert set(EXPECTED) <= files(root)


def test_each_manual_page_is_installed_in_its_section(root: Path) -> None:
    pages = {f"usr/share/man/man{page.name[-1]}/{page.name}" for page in (TOP / "docs/man").glob("*.[1-8]")}
    assert pages == {name for name in files(root) if "/man/" in name}


def test_each_guide_is_installed(root: Path) -> None:
    guides = {f"usr/share/doc/kolt/{guide.name}" for guide in (TOP / "docs").glob("*.md")}
    assert guides == {name for name in files(root) if name.endswith(".md")}


@pytest.mark.parametrize("prefix", ["/usr", "/opt/mesh"])
def test_a_manual_page_names_documents_that_are_there(build: Path, tmp_path: Path, prefix: str) -> None:
    subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True, capture_output=True,
                   env=os.environ | {"DESTDIR": str(tmp_path)})
    pages = (tmp_path / f"{prefix[1:]}/share/man").rglob("*.[1-8]")
    named = {name.rstrip(".") for page in pages for name in re.findall(r"/\S*/share/(?:doc/)?kolt\S*", page.read_text())}
    assert len(named) >= 5
    assert [name for name in named if not name.startswith(prefix) or not (tmp_path / name[1:]).exists()] == []


def test_links_lead_to_what_is_installed(root: Path) -> None:
    links = [path for path in root.rglob("*") if path.is_symlink()]
    assert len(links) >= 6
    assert [str(path) for path in links if not path.exists() or os.path.isabs(os.readlink(path))] == []


def test_nothing_that_belongs_to_the_build_or_the_tests_comes_along(root: Path) -> None:
    stray = [name for name in files(root) if re.search(r"__pycache__|\.(a|o|cpp|cmake)$|probe|test|CMakeLists", name)]
    assert stray == []
    assert [name for name in files(root) if name.endswith(".h") and "usr/include/kolt/" not in name] == []


def test_no_installed_file_names_a_folder_of_the_build(root: Path, build: Path) -> None:
    places = {str(TOP).encode(), str(build).encode(), str(build.resolve()).encode()}
    assert [str(path) for path in below(root) if any(place in path.read_bytes() for place in places)] == []


def test_no_installed_program_names_folders_for_its_libraries(root: Path) -> None:
    linked = linked_below(root)
    assert len(linked) >= 8
    assert {str(path): folders for path in linked if (folders := run_paths(path))} == {}


def test_only_programs_may_be_run_and_only_their_owner_may_change_them(root: Path) -> None:
    for path in below(root):
        mode = path.stat().st_mode & 0o777
        runnable = path.suffix != ".so" and path.read_bytes()[:4] in (ELF, b"#!/u")
        assert mode == (0o755 if runnable else 0o644), path


def test_the_components_share_no_file_and_are_all_there_is(root: Path, build: Path, tmp_path: Path) -> None:
    parts = {name: files(install(build, tmp_path / name, "--component", name))
             for name in ("runtime", "platform", "sim", "dev")}
    assert sum(map(len, parts.values())) == len(files(root)) and set().union(*parts.values()) == files(root)
    assert not any(name.startswith(PRIVATE) for name in parts["runtime"] | parts["platform"] | parts["dev"])
    assert {"usr/lib/libduon-bridge.so", "usr/sbin/kolt-bridged"} <= parts["platform"]


def test_the_default_configuration_is_the_example_switched_off(root: Path) -> None:
    example = json.loads((TOP / "packaging/kolt.json").read_text())
    assert example["enable"] is True
    assert json.loads((root / "etc/kolt.json").read_text()) == example | {"enable": False}


def test_a_configuration_that_is_there_is_kept(build: Path, tmp_path: Path) -> None:
    mine = tmp_path / "etc/kolt.json"
    mine.parent.mkdir()
    mine.write_text("{}")
    install(build, tmp_path, "--component", "runtime")
    assert mine.read_text() == "{}"


def test_units_name_the_place_where_the_daemons_are(build: Path, tmp_path: Path) -> None:
    subprocess.run(["cmake", "--install", build, "--prefix", "/opt/mesh", "--component", "runtime"], check=True,
                   env=os.environ | {"DESTDIR": str(tmp_path)}, capture_output=True)
    unit = (tmp_path / "opt/mesh/lib/systemd/system/kolt.service").read_text()
    assert "\nExecStart=/opt/mesh/sbin/kolt\n" in unit and (tmp_path / "opt/mesh/sbin/kolt").exists()


def test_the_installed_model_runs_the_installed_daemon(root: Path, tmp_path: Path) -> None:
    """Not from the tree: what it prints and finds is its own."""
    command = root / "usr/bin/kolt-sim"
    shipped = subprocess.run([command, "list"], check=True, capture_output=True, text=True, cwd=tmp_path).stdout
    assert len(shipped.splitlines()) >= len(list((TOP / "sim/scenarios").glob("*.json")))
    result = tmp_path / "result.json"
    done = subprocess.run([command, "run", "single-link", "--json", result], capture_output=True, text=True, cwd=tmp_path,
                          env={"PATH": os.defpath, "PYTHONDONTWRITEBYTECODE": "1"})
    assert done.returncode == 0, done.stdout + done.stderr
    assert json.loads(result.read_text())


@pytest.mark.parametrize("line, words", [
    ("kolt-bridged --m", ["--mode"]), ("kolt-bridged --mode F", ["FAP"]), ("kolt-sim c", ["compare", "check"]),
    ("kolt-sim run single", ["single-link"]), ("kolt-sim run --js", ["--json"]), ("kolt -", ["-c", "-h"]),
])
def test_bash_completes(root: Path, tmp_path: Path, line: str, words: list[str]) -> None:
    name = line.split()[0]
    script = (". \"$1\"; COMP_WORDS=($2); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "
              "function=$(complete -p $3 | sed -nE 's/.*-F ([^ ]+) .*/\\1/p'); "
              "$function $3 \"${COMP_WORDS[-1]}\" \"${COMP_WORDS[-2]}\"; printf '%s\\n' \"${COMPREPLY[@]}\"")
    completion = root / "usr/share/bash-completion/completions" / name
    done = subprocess.run(["bash", "-c", script, "bash", completion, line, name], capture_output=True, text=True,
                          cwd=tmp_path, env={"PATH": f"{root}/usr/bin:{root}/usr/sbin:{os.defpath}",
                                             "PYTHONDONTWRITEBYTECODE": "1"})
    assert (sorted(done.stdout.split()), done.stderr) == (sorted(words), "")
