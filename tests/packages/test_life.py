"""The packages from their installation to their removal, a stage a test: each begins where the one before it ended."""
import json
import re
import shutil
import subprocess
import time
from collections.abc import Callable
from pathlib import Path

import pytest

from elf import linked_below, run_paths
from exposure import EXPOSURE
from machine import Machine

UNITS = ("kolt", "kolt-bridged", "kolt-ubusd")
PORTS = ("eth0", "wlan1.1", "wlan1-b.1")
CONFIGURATION = {
    "enable": True, "param": {"period": 1}, "bridges": {"br-lan": {"loop_avoidance": True, "path_selection": True}},
    "interfaces": {"eth0": {"type": "ethernet", "nonrelay": True, "path": True},
                   "wlan1.1": {"type": "5g", "nonrelay": True, "path": True, "needha": True},
                   "wlan1-b.1": {"type": "5g", "path": True}}}
CHOWN, NET_ADMIN, NET_RAW, BPF = 0, 12, 13, 39  # as the kernel counts capabilities
CAPABILITIES = {"kolt": {NET_ADMIN, NET_RAW}, "kolt-bridged": {NET_ADMIN, NET_RAW, BPF, CHOWN}, "kolt-ubusd": set()}


DOC, MAN, COMPLETE = "/usr/share/doc/kolt", "/usr/share/man", "/usr/share/bash-completion/completions"
CONTENT = {
    "kolt": f"""
/usr/sbin/kolt /usr/sbin/kolt-bridged /usr/sbin/kolt-ubusd /usr/bin/kolt-check /usr/bin/kolt-event /usr/bin/kolt-top
/usr/lib/libduon-bridge.so /usr/lib/libeth_encap.so /etc/kolt.json /usr/share/kolt/kolt.schema.json
/lib/systemd/system/kolt.service /lib/systemd/system/kolt-bridged.service /lib/systemd/system/kolt-ubusd.service
{DOC}/README.Debian {DOC}/settings.md {DOC}/troubleshooting.md {DOC}/glossary.md
{DOC}/examples/access-point.json {DOC}/examples/extender.json {DOC}/examples/hybrid.json {DOC}/examples/kolt.json
{MAN}/man8/kolt.8.gz {MAN}/man8/kolt-bridged.8.gz {MAN}/man8/kolt-ubusd.8.gz {MAN}/man5/kolt.json.5.gz
{MAN}/man1/kolt-check.1.gz {MAN}/man1/kolt-event.1.gz {MAN}/man1/kolt-top.1.gz
{COMPLETE}/kolt {COMPLETE}/kolt-bridged {COMPLETE}/kolt-check {COMPLETE}/kolt-top""",
    "kolt-sim": f"""
/usr/bin/kolt-demo /usr/bin/kolt-node /usr/bin/kolt-sim /usr/lib/kolt-sim/programs/lib/libduon-bridge.so
{MAN}/man1/kolt-demo.1.gz {MAN}/man1/kolt-node.1.gz {MAN}/man1/kolt-sim.1.gz {COMPLETE}/kolt-sim"""}


def log(machine: Machine, unit: str) -> str:
    return machine.run("journalctl", "--no-pager", "--quiet", f"--unit={unit}")


def states(machine: Machine) -> list[str]:
    return [machine.property(unit, "ActiveState") for unit in UNITS]


def processes(machine: Machine) -> set[str]:
    """The programs that run, apart from those of a bare machine."""
    return {name for name in machine.run("sh", "-c", "cat /proc/[0-9]*/comm", status=None).split() if name.startswith("kolt")}


def running(machine: Machine) -> dict[str, tuple[str, str]]:
    """The process of each unit, and the file that it was started from."""
    pids = {unit: machine.property(unit, "MainPID") for unit in UNITS}
    return {unit: (pid, machine.run("readlink", f"/proc/{pid}/exe").strip()) for unit, pid in pids.items()}


def newer(package: Path, folder: Path) -> Path:
    """The same package under a higher version."""
    version = package.name.split("_")[1]
    subprocess.run(["dpkg-deb", "--raw-extract", package, folder / "raw"], check=True)
    control = folder / "raw/DEBIAN/control"
    control.write_text(control.read_text().replace(version, f"{version}+newer"))
    made = folder / package.name.replace(version, f"{version}+newer")
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", folder / "raw", made], check=True, capture_output=True)
    return made


def upgrade(machine: Machine, packages: list[Path], prefix: str = "") -> None:
    machine.run("dpkg", "--install", *(f"/root/{prefix}{package.name}" for package in packages))


def frames_lost(machine: Machine, meanwhile: Callable[[], object]) -> int:
    """How many pings from a host behind an access port to one behind a relay port are lost while something happens."""
    machine.run("sh", "-c", "ip netns exec near ping -q -i 0.02 10.9.0.2 >/root/pings 2>&1 & echo $! >/root/pinging")
    meanwhile()
    machine.run("sh", "-c", "kill -INT $(cat /root/pinging) && tail --pid=$(cat /root/pinging) -f /dev/null")
    said = (machine.root / "root/pings").read_text()
    sent, came = map(int, re.search(r"(\d+) packets transmitted, (\d+) received", said).groups())
    assert sent > 50
    return sent - came


def needs(package: Path) -> str:
    """What a package depends on, but for the other one."""
    named = subprocess.run(["dpkg-deb", "--field", package, "Depends"], check=True, capture_output=True, text=True).stdout
    return ", ".join(word for word in named.strip().split(", ") if not word.startswith("kolt"))


def test_both_are_installed_with_all_that_they_need(machine: Machine, packages: list[Path]) -> None:
    for package in packages:
        shutil.copy(package, machine.root / "root")
    machine.chroot("apt-get", "update", "-qq")
    machine.chroot("apt-get", "satisfy", "-y", "--no-install-recommends", "iputils-ping", *map(needs, packages))
    machine.boot()
    upgrade(machine, packages)
    states = machine.run("dpkg-query", "--show", "--showformat=${Package} ${Status}\\n", "kolt", "kolt-sim")
    assert states == "kolt install ok installed\nkolt-sim install ok installed\n"


@pytest.mark.parametrize("name, content", CONTENT.items(), ids=CONTENT)
def test_each_brings_what_it_is_for(machine: Machine, name: str, content: str) -> None:
    listed = machine.run("dpkg-query", "--listfiles", name)
    brought = set(re.sub(r"/usr/lib/[^/\s]+-linux-gnu[^/\s]*/", "/usr/lib/", listed).split())
    assert set(content.split()) - brought == set()


def test_nothing_is_started_or_will_be(machine: Machine) -> None:
    assert (states(machine), processes(machine)) == (["inactive"] * 3, set())
    assert machine.run("systemctl", "is-enabled", "kolt", "kolt-bridged", status=None).split() == ["disabled"] * 2


def test_installed_binaries_name_no_folders(machine: Machine) -> None:
    linked = [path for path in linked_below(machine.root / "usr")
              if re.search("kolt|duon|eth_encap", str(path.relative_to(machine.root)))]
    assert len(linked) >= 8
    assert {str(path): folders for path in linked if (folders := run_paths(path))} == {}


def test_the_programs_answer(machine: Machine) -> None:
    assert machine.run("kolt", "-h") == "kolt [-c config] [-h]\n"
    check = machine.run("kolt-bridged", "--check", status=None)
    assert re.search(r"^(yes|no|unknown) ", check, re.MULTILINE) and "rror while loading" not in check
    assert "Usage: kolt-event" in machine.run("kolt-event", status=1)
    assert "one-elephant" in machine.run("kolt-sim", "list")
    assert "disabled" in machine.run("kolt-check", "/etc/kolt.json", status=None)
    assert "none of the bridges that /etc/kolt.json names" in machine.run("kolt-top", "--once", status=1)


def test_the_manual_is_found(machine: Machine) -> None:
    for page in ("kolt", "kolt.json", "kolt-bridged", "kolt-check", "kolt-top", "kolt-sim"):
        assert "/usr/share/man/man" in machine.run("man", "--where", page)


def test_the_model_and_the_demonstration_run_the_installed_daemon(machine: Machine) -> None:
    machine.run("kolt-sim", "run", "single-link", "--json", "/root/result.json", "--report", "/root/page.html")
    assert json.loads((machine.root / "root/result.json").read_text())
    assert "broadcast" in machine.run("kolt-demo")
    assert "the daemon ended with status 0" in machine.run("sh", "-c", "echo quit | kolt-node")


def test_a_disabled_daemon_ends_and_takes_everything_with_it(machine: Machine) -> None:
    machine.run("systemctl", "start", "kolt")
    for unit in UNITS:
        machine.wait_for(unit, "inactive")
    assert "kolt disabled" in log(machine, "kolt") and processes(machine) == set()
    assert [machine.property(unit, "Result") for unit in UNITS] == ["success"] * 3


def test_an_enabled_one_runs_in_its_sandbox(machine: Machine) -> None:
    machine.run("ip", "link", "add", "br-lan", "type", "bridge")
    for port in PORTS:
        machine.run("ip", "link", "add", port, "type", "veth", "peer", "name", f"p-{port}")
        machine.run("ip", "link", "set", port, "master", "br-lan")
    for host, port, address in ("near", "lan0", "10.9.0.1/24"), ("far", "wlan1-b.1", "10.9.0.2/24"):
        machine.run("ip", "netns", "add", host)
        if port not in PORTS:
            machine.run("ip", "link", "add", port, "type", "veth", "peer", "name", f"p-{port}")
            machine.run("ip", "link", "set", port, "master", "br-lan", "up")
        machine.run("ip", "link", "set", f"p-{port}", "netns", host, "name", "eth0")
        machine.run("ip", "-n", host, "address", "add", address, "dev", "eth0")
        machine.run("ip", "-n", host, "link", "set", "eth0", "up")
    for name in ("br-lan", *PORTS, "p-eth0", "p-wlan1.1"):
        machine.run("ip", "link", "set", name, "up")
    (machine.root / "etc/kolt.json").write_text(json.dumps(CONFIGURATION))
    machine.run("systemctl", "start", "kolt")
    time.sleep(4)  # some periods
    assert states(machine) == ["active"] * 3
    assert "Path Selection initialized" in log(machine, "kolt")
    assert json.loads(machine.run("cat", "/tmp/work_mode"))["work_mode"] == "RE"


def test_the_bus_reaches_it_there(machine: Machine) -> None:
    machine.run("kolt-event", "kolt.debug", '{"dbg_level": 2}')
    time.sleep(3)
    assert "Debug: " in log(machine, "kolt")
    refused = [line for line in (log(machine, "kolt") + log(machine, "kolt-bridged")).splitlines()
               if re.search(r"not permitted|ermission denied|Read-only|popen|Fatal", line)]
    assert refused == []


@pytest.mark.parametrize("unit", UNITS)
def test_the_sandbox_holds(machine: Machine, unit: str) -> None:
    pid = machine.property(unit, "MainPID")
    status = dict(re.findall(r"^(\w+):\s+(.*)$", machine.run("cat", f"/proc/{pid}/status"), re.MULTILINE))
    assert int(status["CapBnd"], 16) == sum(1 << number for number in CAPABILITIES[unit])
    assert (status["CapEff"], status["NoNewPrivs"], status["Seccomp"]) == (status["CapBnd"], "1", "2")
    for place in ("/usr/bin", "/etc", "/var/lib", "/root", "/home"):
        machine.run("sh", "-c", f"! touch /proc/{pid}/root{place}/mine")


@pytest.mark.parametrize("unit", UNITS)
def test_its_exposure_is_no_larger_than_stated(machine: Machine, unit: str) -> None:
    told = machine.run("systemd-analyze", "security", "--offline=yes", "--no-pager",
                       f"/lib/systemd/system/{unit}.service").splitlines()[-1]
    print(f"\n{told}", end="")
    figure = re.search(r"exposure level for \S+: ([\d.]+)", told)
    assert figure is not None and float(figure[1]) == EXPOSURE[unit]


def test_one_that_fails_comes_again(machine: Machine) -> None:
    machine.run("systemctl", "kill", "--signal=KILL", "kolt")
    machine.wait_for("kolt", "activating")
    machine.wait_for("kolt", "active")


def test_what_watches_it_reads_the_node(machine: Machine) -> None:
    seen = json.loads(machine.run("kolt-top", "--json", "--once"))
    assert [path["port"] for path in seen["bridges"][0]["paths"]]


def test_a_new_version_takes_over_without_a_lost_frame(machine: Machine, packages: list[Path], tmp_path: Path) -> None:
    machine.run("systemctl", "enable", "kolt")
    for package in packages:
        folder = tmp_path / package.name
        folder.mkdir()
        shutil.move(newer(package, folder), machine.root / "root" / f"newer-{package.name}")
    before = running(machine)
    lost = frames_lost(machine, lambda: (upgrade(machine, packages, "newer-"), time.sleep(3)))
    after = running(machine)
    assert {unit for unit in UNITS if before[unit] == after[unit] or after[unit][1].endswith("(deleted)")} == set()
    assert (states(machine), lost) == (["active"] * 3, 0)


def test_the_configuration_and_what_is_enabled_survive_it(machine: Machine) -> None:
    assert json.loads((machine.root / "etc/kolt.json").read_text()) == CONFIGURATION
    assert machine.run("systemctl", "is-enabled", "kolt", "kolt-bridged", status=None).split() == ["enabled", "disabled"]


def test_what_was_stopped_and_disabled_stays_so(machine: Machine, packages: list[Path]) -> None:
    machine.run("systemctl", "disable", "--now", "kolt")
    machine.run("systemctl", "stop", "kolt-bridged")
    for unit in UNITS:
        machine.wait_for(unit, "inactive")
    upgrade(machine, packages)
    assert (states(machine), processes(machine)) == (["inactive"] * 3, set())
    assert machine.run("systemctl", "is-enabled", "kolt", "kolt-bridged", status=None).split() == ["disabled"] * 2
    machine.run("systemctl", "start", "kolt")
    machine.wait_for("kolt", "active")


def test_removal_stops_them_and_gives_the_ports_back(machine: Machine) -> None:
    machine.run("apt-get", "remove", "-y", "kolt", "kolt-sim")
    assert processes(machine) == set()
    assert machine.run("ls", "/sys/fs/bpf").split() == ["maps.debug", "progs.debug"]
    for port in PORTS:
        assert "bpf" not in machine.run("tc", "filter", "show", "dev", port, "ingress")
    assert machine.run("find", "/tmp", "-maxdepth", "1", "-type", "f") == ""
    assert json.loads((machine.root / "etc/kolt.json").read_text()) == CONFIGURATION


def test_installed_again_it_waits_with_the_configuration_of_before(machine: Machine, packages: list[Path]) -> None:
    upgrade(machine, packages)
    assert (states(machine), processes(machine)) == (["inactive"] * 3, set())
    assert json.loads((machine.root / "etc/kolt.json").read_text()) == CONFIGURATION


def test_purging_leaves_nothing(machine: Machine) -> None:
    machine.run("apt-get", "purge", "-y", "kolt", "kolt-sim")
    machine.run("systemctl", "daemon-reload")
    left = machine.run("sh", "-c", "find / -xdev -name '*kolt*' -o -xdev -name '*duon*' -o -xdev -name '*eth_encap*' "
                                   "-o -xdev -name tolmux").split()
    ours = ("/var/cache/apt/", "/root/")
    assert [path for path in left if not path.startswith(ours)] == []
    assert not (machine.root / "etc/config").exists() and not (machine.root / "var/state").exists()
    assert "kolt" not in machine.run("dpkg-query", "--show", "--showformat=${Package} ")
