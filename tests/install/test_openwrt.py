"""The package folder for OpenWrt: its init script, and what it says of the sources."""
import json
import os
import re
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

from conftest import TOP

sys.path.insert(0, str(TOP / "platform/sim"))

from kolt_node import Node  # noqa: E402

FOLDER = TOP / "packaging/openwrt"
INIT = FOLDER / "files/kolt.init"
HERE = Path(__file__).resolve().parent
SETTINGS = {"param": {"period": 60}}
ENABLED = [json.dumps(SETTINGS | {"enable": value}) for value in (True, 1, 0.5, 0.05, "yes", "true", "false", "0")]
ENABLED += ['{"enable": true, // a comment\n"param": {"period": 60},}']
DISABLED = [json.dumps(SETTINGS | {"enable": value}) for value in (False, 0, 0.0, "", None, {}, [])]
DISABLED += [json.dumps(SETTINGS), "{}", "[]"]
UNREADABLE = ["", "{", "no JSON", '{"enable": false, "interfaces": {"eth0": {}}}']


def start(configuration: str, folder: Path, build: Path) -> list[str]:
    """What the script asks of the supervisor, a line each."""
    file = folder / "kolt.json"
    file.write_text(configuration)
    done = subprocess.run(["sh", "-eu", HERE / "supervisor.sh", INIT, file], capture_output=True, text=True,
                          env={"PATH": f"{build / 'bin'}:{os.defpath}"})
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout.replace(str(file), "FILE").splitlines()


@pytest.fixture(scope="module")
def node(build: Path) -> Iterator[Node]:
    with Node(build) as fresh:
        fresh.start_broker()
        yield fresh


def ends_at_once(node: Node, configuration: str) -> int | None:
    """The status of the daemon itself, None if it runs."""
    status = node.start_daemon(configuration, argv0="kolt").status
    node.stop_daemon()
    return status


@pytest.mark.parametrize("configuration", ENABLED + UNREADABLE)
def test_what_can_run_or_must_complain_is_respawned_whenever_it_ends(node: Node, tmp_path: Path, configuration: str) -> None:
    assert start(configuration, tmp_path, node.build) == ["open", "set: command /usr/sbin/kolt -c FILE", "set: respawn 3600 5 0",
                                              "set: file FILE", "close"]
    assert ends_at_once(node, configuration) == (1 if configuration in UNREADABLE else None)


@pytest.mark.parametrize("configuration", DISABLED)
def test_a_disabled_daemon_stays_stopped(node: Node, tmp_path: Path, configuration: str) -> None:
    assert start(configuration, tmp_path, node.build) == ["log: -t kolt -p daemon.notice not started: FILE does not enable it"]
    assert ends_at_once(node, configuration) == 0


def test_the_script_is_clean() -> None:
    done = subprocess.run(["shellcheck", "--shell=sh", "--exclude=SC2034", INIT], capture_output=True, text=True)
    assert done.returncode == 0, done.stdout


def test_all_packages_have_the_sources_version() -> None:
    version = re.search(r"^project\(kolt VERSION (\S+)", (TOP / "CMakeLists.txt").read_text(), re.MULTILINE)
    assert version is not None
    assert f"PKG_VERSION:={version[1]}\n" in (FOLDER / "Makefile").read_text()
    assert (TOP / "packaging/debian/changelog").read_text().startswith(f"kolt ({version[1]}) ")


def test_the_makefile_installs_what_is_there_and_keeps_the_configuration(root: Path) -> None:
    text = (FOLDER / "Makefile").read_text()
    assert "define Package/kolt/conffiles\n/etc/kolt.json\n" in text
    named = re.findall(r"\$\(KOLT_SOURCE\)/(\S+)|(?<=\s)\./(\S+)(?= \$\(1\))", text)
    assert len(named) >= 2 and all((TOP / source if source else FOLDER / own).exists() for source, own in named)
    programs = re.findall(r"^\t\$\(INSTALL_BIN\) \$\(PKG_INSTALL_DIR\)/(\S+) \$\(1\)/(\S+)/$", text, re.MULTILINE)
    assert programs == [(name, str(Path(name).parent)) for name in ("usr/sbin/kolt", "usr/bin/kolt-check", "usr/bin/kolt-top")]
    assert all((root / name).is_file() for name, _ in programs) and text.count("$(PKG_INSTALL_DIR)") == len(programs)


def test_the_configuration_that_the_makefile_installs_is_switched_off() -> None:
    script = re.search(r"^\t\$\(SED\) '(.*)' \$\(1\)/etc/kolt.json$", (FOLDER / "Makefile").read_text(), re.MULTILINE)
    assert script is not None
    example = (TOP / "packaging/kolt.json").read_text()
    edited = subprocess.run(["sed", script[1]], input=example, check=True, capture_output=True, text=True).stdout
    assert json.loads(edited) == json.loads(example) | {"enable": False}
