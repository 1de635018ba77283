"""Nodes with daemons in them: that each sees itself alone, and what kolt is told of the radios."""
import os
import shutil
from collections.abc import Callable
from pathlib import Path

import pytest
from kolt_mesh import topology
from kolt_mesh.frames import Broadcasts
from kolt_mesh.kolt import Kolt
from kolt_mesh.netns import MeshError
from kolt_mesh.node import build_directory

STAND_IN = Path(__file__).resolve().parent / "stand_in.py"


@pytest.fixture(scope="session")
def build(tmp_path_factory) -> Path:
    """A build whose kolt-bridged does nothing and whose platform libraries are the stand-ins."""
    made, real = tmp_path_factory.mktemp("build"), build_directory()
    (made / "bin").mkdir()
    for program in ("kolt", "kolt-ubusd", "kolt-event"):
        shutil.copy(real / "bin" / program, made / "bin")
    shutil.copytree(real / "lib", made / "linux/lib", ignore=shutil.ignore_patterns("*.a"))
    script = made / "bin/kolt-bridged"
    script.write_text("#!/usr/bin/python3 -IS\n" + STAND_IN.read_text())
    script.chmod(0o755)
    return made


@pytest.fixture
def kolt(build, make_lab) -> Callable[..., tuple]:
    def make(home: topology.Topology, **how: object) -> tuple:
        kind = Kolt(build, **how)
        return kind, make_lab(home, kind)
    return make


def seen(node) -> list[str]:
    return node.read_file("/run/kolt-bridged/seen").decode().split(maxsplit=2)


def test_each_node_sees_its_own_interfaces_and_processes_alone(kolt):
    kind, _ = kolt(topology.pair(2))
    pid, mode, interfaces = seen(kind.nodes["b"])
    assert mode == "RE" and "wlan1.1" in interfaces and "wlan1-b.1" not in interfaces
    assert int(pid) < 100
    assert kind.nodes["a"].mode == "FAP" and seen(kind.nodes["a"])[1] == "FAP"


def test_each_node_has_files_of_its_own(kolt):
    kind, _ = kolt(topology.pair(2))
    kind.nodes["a"].write_file("/tmp/mark", "a")
    with pytest.raises(OSError):
        kind.nodes["b"].read_file("/tmp/mark")
    assert not os.path.exists("/tmp/mark")
    for place in ("/run", "/sys/fs/bpf"):
        made = kind.nodes["a"].run(["/usr/bin/mkdir", f"{place}/mark"])
        assert made.status == 0, made.stderr
        assert "mark" in kind.nodes["a"].list_directory(place)
        assert "mark" not in kind.nodes["b"].list_directory(place)
        assert not os.path.exists(f"{place}/mark")


def test_kolt_is_configured_with_the_ports_of_its_node(kolt):
    kind, _ = kolt(topology.pair(2), period=3)
    config = kind.nodes["b"].read_file("/etc/kolt.json").decode()
    assert '"wlan1.1"' in config and '"period": 3' in config


def test_kolt_runs_and_programs_the_bridge_through_the_libraries(kolt):
    kind, _ = kolt(topology.pair(2))
    node = kind.nodes["b"]
    node.wait_for(lambda: node.daemon.status is None and node.log(), what="a line of kolt")


def test_a_killed_program_is_started_again(kolt):
    kind, lab = kolt(topology.pair(2))
    node = kind.nodes["b"]
    first = seen(node)[0]
    for event in ("kill", "start"):
        lab.obey({"do": event, "node": "b", "program": "kolt-bridged"})
    assert seen(node)[0] != first
    lab.obey({"do": "kill", "node": "b", "program": "kolt"})
    assert node.daemon.status == -9
    lab.obey({"do": "start", "node": "b", "program": "kolt"})
    assert node.daemon.status is None


def test_a_program_that_runs_is_not_started_once_more(kolt):
    kind, lab = kolt(topology.pair(2))
    node = kind.nodes["b"]
    programs = (node.daemon, node.bridged)
    for program in ("kolt", "kolt-bridged"):
        lab.obey({"do": "start", "node": "b", "program": program})
    assert (node.daemon, node.bridged) == programs


def test_a_changed_mode_reaches_the_programs_of_the_node(kolt):
    kind, lab = kolt(topology.pair(2))
    node = kind.nodes["b"]
    node.wait_for(node.log, what="a line of kolt")
    node.event("kolt.debug", {"dbg_level": 2}, settle=False)
    lab.obey({"do": "mode", "node": "b", "mode": "AP"})
    assert seen(node)[1] == "AP"
    node.wait_log("configure duon bridge with mode FAP")


def test_a_kolt_bridged_that_ends_at_once_is_told_with_its_reason(kolt):
    home = topology.pair(1)
    home.nodes["b"] = "HAP"
    with pytest.raises(MeshError, match="b: kolt-bridged ended with status 1: no such mode here"):
        kolt(home)


def test_a_build_without_the_open_platform_is_refused(tmp_path):
    with pytest.raises(MeshError, match="holds no build of the open platform: bin/kolt is missing"):
        Kolt(tmp_path)


def test_the_drivers_files_show_the_load_of_the_link(kolt):
    kind, lab = kolt(topology.pair(1, "1mbit"))
    node = kind.nodes["b"]
    with Broadcasts(lab) as counting:  # 60 bytes every 2 ms are 240 kbit/s
        kind.air.measure()
        counting.run(1.0, ["h1"])
        kind.air.measure()
    kind.air.publish(kind.nodes)
    stats = node.read_file("/proc/net/rtk_wifi6/wlan1/stats").decode()
    busy = int(stats.split("ch_utilization:")[1])
    assert 15 <= busy <= 30
    stations = node.read_file("/proc/net/rtk_wifi6/wlan1/sta_info").decode()
    assert "(active: 1)" in stations and "HE_SS2_MCS9 1\n" in stations


def test_a_cut_link_has_no_station(kolt):
    kind, lab = kolt(topology.pair(1))
    lab.cut("a-b 5g")
    kind.air.measure()
    kind.air.publish(kind.nodes)
    assert "(active: 0)" in kind.nodes["b"].read_file("/proc/net/rtk_wifi6/wlan1/sta_info").decode()
