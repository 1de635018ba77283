"""The driver that the guide walks through: it is built, asked by a real daemon, and the guide shows what is in it."""
import json
import re
import shutil
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

from tree import TOP, build_directory

sys.path.insert(0, str(TOP / "platform/sim"))
from kolt_node import Node, sample  # noqa: E402

GUIDE = (TOP / "docs/new-driver.md").read_text()
EXAMPLE = TOP / "docs/examples/linewifi"
QUOTAS = "path_selection_init_path_quota"
PARENTS = {"wlan0": "02:10:00:00:00:12", "wlan1": "02:10:00:00:00:13", "wlan2": "02:10:00:00:00:12"}


@pytest.fixture
def node() -> Iterator[Node]:
    program = build_directory() / "bin/kolt-linewifi"
    assert program.exists(), "build the target kolt-linewifi"
    with Node(build_directory()) as fresh:
        sample.set_up(fresh)
        fresh.start_broker()
        yield fresh
        assert fresh.stop_daemon() == 0


def set_radio(node: Node, name: str, *, busy: int, tx: int, rx: int, idle: int = 0) -> None:
    node.write_file(f"/run/linewifi/{name}",
                    f"busy {busy}\nstation {PARENTS[name]} tx {tx} rx {rx} rssi 55 idle {idle}\nwhat is this\n")


def start(node: Node, level: int = 1, **param: object) -> None:
    node.start_daemon(sample.config(period=1, **param), binary=build_directory() / "bin/kolt-linewifi")
    if level != 1:
        node.set_log_level(level)


def test_the_daemon_measures_what_this_driver_tells_and_nothing_else(node):
    set_radio(node, "wlan1", busy=37, tx=866, rx=780)
    set_radio(node, "wlan2", busy=12, tx=1201, rx=1100)
    start(node)
    node.wait_for(lambda: len(node.log(function=QUOTAS)) >= 2, 10, "a period")
    told = [record.text for record in node.log(function=QUOTAS)[:2]]
    assert [re.sub(r", util_adj.*, tx_rate", ", tx_rate", line) for line in told] == [
        "path: wlan1.1, util: 37, tx_rate: 866, rx_rate: 780, processed_rate: 866",
        "path: wlan2.1, util: 12, tx_rate: 1201, rx_rate: 1100, processed_rate: 1201"]


def test_a_station_with_a_number_too_large_is_none(node):
    set_radio(node, "wlan1", busy=37, tx=70000, rx=780)
    set_radio(node, "wlan2", busy=12, tx=1201, rx=1100)
    start(node)
    node.wait_for(lambda: len(node.log(function=QUOTAS)) >= 2, 10, "two periods")
    assert {record.text.split(",")[0] for record in node.log(function=QUOTAS)} == {"path: wlan2.1"}


def test_idle_stations_are_woken(node):
    set_radio(node, "wlan1", busy=37, tx=866, rx=780, idle=11)
    set_radio(node, "wlan2", busy=12, tx=1201, rx=1100, idle=10)
    start(node, level=3, idle_threshold=10, activate_pkts=3)
    node.wait_for(lambda: len(node.log(function=QUOTAS)) >= 4, 10, "two periods")
    log = [record for record in node.log() if record.function in (QUOTAS, "kolt_activate_link")]
    begins = [number for number, record in enumerate(log) if record.function == QUOTAS]
    frames = [record.text for record in log[begins[1]:begins[2]] if record.function == "kolt_activate_link"]
    assert [re.search(r"ifname: (\S+),", frame)[1] for frame in frames] == ["wlan1"] * 3


@pytest.mark.parametrize("busy, target", [(50, "wlan1.1"), (51, "wlan2.1")])
def test_a_preferred_backhaul_is_taken_when_the_driver_calls_it_quiet(node, busy, target):
    set_radio(node, "wlan1", busy=busy, tx=866, rx=780)
    set_radio(node, "wlan2", busy=0, tx=1201, rx=1100)
    start(node, backhual_prefered=2, rate_threshold=200)
    added = node.wait_calls("bridgeAddHDTableEntries", count=len(sample.SERVERS))
    assert {entry["args"]["ifname"] for entry in added} == {target}


def test_the_fast_path_is_flushed_when_a_link_changes(node):
    set_radio(node, "wlan1", busy=37, tx=866, rx=780)
    start(node)
    node.event("kolt.link_state", {"LINK_WIFI_5G": 1})
    assert node.read_file("/run/linewifi/flush") == b"all\n"


def test_kolt_top_asks_this_driver_too(node):
    set_radio(node, "wlan1", busy=37, tx=866, rx=780)
    start(node)
    done = node.run([build_directory() / "bin/kolt-top-linewifi", "--json", "--once"])
    assert done.status == 0, done.stderr
    (bridge,) = [one for one in json.loads(done.stdout)["bridges"] if one["name"] == "br-lan"]
    measured = {one["link"]: one["measured"] for one in bridge["paths"] if one["measured"]}
    assert measured.keys() == {"5g"}
    assert (measured["5g"]["utilisation_percent"], measured["5g"]["rate"]) == (37, 866)


# The build's choice of a driver

def ninja(build: Path, *words: str) -> str:
    return subprocess.run(["ninja", "-C", build, *words], check=True, capture_output=True, text=True).stdout


def configure(build: Path, *options: str) -> str:
    """Which objects the daemon is linked from, the folder of the build left out."""
    subprocess.run(["cmake", "-G", "Ninja", "-S", TOP, "-B", build, "-DCMAKE_BUILD_TYPE=MinSizeRel", "-DKOLT_LINUX=OFF",
                    "-DKOLT_COMPAT=ON", *options], cwd=TOP, check=True, capture_output=True)
    return ninja(build, "-t", "query", "bin/kolt")


def test_a_build_takes_the_driver_that_it_is_given(tmp_path):
    given = configure(tmp_path, f"-DKOLT_DRIVER={EXAMPLE}")
    assert "kolt_driver_linewifi.dir/linewifi.cpp.o" in given and "core/driver.cpp.o" not in given
    ninja(tmp_path, "kolt_driver_linewifi")
    shipped = configure(tmp_path, "-DKOLT_DRIVER=")
    assert "linewifi" not in shipped and "core/driver.cpp.o" in shipped


# The guide

def test_the_guide_shows_what_the_example_has():
    sources = {"cpp": "linewifi.cpp", "cmake": "CMakeLists.txt"}
    blocks = re.findall(r"^```(cpp|cmake)\n(.*?)^```", GUIDE, re.MULTILINE | re.DOTALL)
    assert len(blocks) > 4
    assert [block for kind, block in blocks if block not in (EXAMPLE / sources[kind]).read_text()] == []


def test_the_guide_explains_every_operation_of_the_table_in_its_order():
    table = (TOP / "src/adaptors/wlan_platform.h").read_text().split("struct wlan_platform {")[1].split("};")[0]
    operations = re.findall(r"\(\*(\w+)\)\(", table)
    assert len(operations) == 18
    assert re.findall(r"^\| `(\w+)` \|", GUIDE.split("## The operations")[1], re.MULTILINE) == operations


def test_the_program_of_the_guide_shows_a_period(tmp_path):
    program, = re.findall(r"^```python\n(.*?)^```", GUIDE, re.MULTILINE | re.DOTALL)
    built = tmp_path / "build/release"
    for name in ("bin/kolt-ubusd", "bin/kolt-event", "lib/libduon-bridge.so", "lib/libeth_encap.so"):
        (built / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(build_directory() / name, built / name)
    shutil.copy(build_directory() / "bin/kolt-linewifi", built / "bin/kolt")
    shown = subprocess.run([sys.executable, "-c", program], cwd=tmp_path, capture_output=True, text=True,
                           env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "PYTHONPATH": str(TOP / "platform/sim")})
    assert shown.returncode == 0, shown.stderr
    assert "path: wlan1.1, util: 37," in shown.stdout
