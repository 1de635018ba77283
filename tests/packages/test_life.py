"""The packages from their installation to their removal, a stage a test: each begins where the one before it ended."""
import json
import re
import shutil
import subprocess
import time
from pathlib import Path

import pytest

from elf import linked_below, run_paths
from exposure import EXPOSURE
from machine import Machine

UNITS = ("kolt", "kolt-bridged", "kolt-ubusd")
PORTS = ("eth0", "wlan1.1")
CONFIGURATION = {
    "enable": True, "param": {"period": 1}, "bridges": {"br-lan": {"loop_avoidance": True, "path_selection": True}},
    "interfaces": {"eth0": {"type": "ethernet", "nonrelay": True, "path": True},
                   "wlan1.1": {"type": "5g", "nonrelay": True, "path": True, "needha": True}}}
CHOWN, NET_ADMIN, NET_RAW, BPF = 0, 12, 13, 39  # as the kernel counts capabilities
CAPABILITIES = {"kolt": {NET_ADMIN, NET_RAW}, "kolt-bridged": {NET_ADMIN, NET_RAW, BPF, CHOWN}, "kolt-ubusd": set()}


def log(machine: Machine, unit: str) -> str:
    return machine.run("journalctl", "--no-pager", "--quiet", f"--unit={unit}")


def states(machine: Machine) -> list[str]:
    return [machine.property(unit, "ActiveState") for unit in UNITS]


def processes(machine: Machine) -> set[str]:
    """The programs that run, apart from those of a bare machine."""
    return {name for name in machine.run("sh", "-c", "cat /proc/[0-9]*/comm", status=None).split() if name.startswith("kolt")}


def needs(package: Path) -> str:
    """What a package depends on, but for the other one."""
    named = subprocess.run(["dpkg-deb", "--field", package, "Depends"], check=True, capture_output=True, text=True).stdout
    return ", ".join(word for word in named.strip().split(", ") if not word.startswith("kolt"))


def test_both_are_installed_with_all_that_they_need(machine: Machine, packages: list[Path]) -> None:
    for package in packages:
        shutil.copy(package, machine.root / "root")
    machine.chroot("apt-get", "update", "-qq")
    machine.chroot("apt-get", "satisfy", "-y", "--no-install-recommends", *map(needs, packages))
    machine.boot()
    machine.run("dpkg", "--install", *(f"/root/{package.name}" for package in packages))
    states = machine.run("dpkg-query", "--show", "--showformat=${Package} ${Status}\\n", "kolt", "kolt-sim")
    assert states == "kolt install ok installed\nkolt-sim install ok installed\n"


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


def test_the_manual_is_found(machine: Machine) -> None:
    for page in ("kolt", "kolt-bridged", "kolt-sim"):
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
    for name in ("br-lan", *PORTS, *(f"p-{port}" for port in PORTS)):
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


def test_a_new_version_keeps_the_configuration(machine: Machine, packages: list[Path]) -> None:
    for package in packages:
        machine.run("dpkg", "--install", f"/root/{package.name}")
    assert json.loads((machine.root / "etc/kolt.json").read_text()) == CONFIGURATION
    machine.wait_for("kolt", "active")


def test_removal_stops_them_and_gives_the_ports_back(machine: Machine) -> None:
    machine.run("apt-get", "remove", "-y", "kolt", "kolt-sim")
    assert processes(machine) == set()
    assert machine.run("ls", "/sys/fs/bpf").split() == ["maps.debug", "progs.debug"]
    for port in PORTS:
        assert "bpf" not in machine.run("tc", "filter", "show", "dev", port, "ingress")
    assert (machine.root / "etc/kolt.json").exists()


def test_purging_leaves_nothing(machine: Machine) -> None:
    machine.run("apt-get", "purge", "-y", "kolt", "kolt-sim")
    machine.run("systemctl", "daemon-reload")
    left = machine.run("sh", "-c", "find / -xdev -name '*kolt*' -o -xdev -name '*duon*' -o -xdev -name '*eth_encap*' "
                                   "-o -xdev -name tolmux").split()
    ours = ("/var/cache/apt/", "/root/", "/var/lib/systemd/deb-systemd")
    assert [path for path in left if not path.startswith(ours)] == []
    assert not (machine.root / "etc/config").exists() and not (machine.root / "var/state").exists()
    assert "kolt" not in machine.run("dpkg-query", "--show", "--showformat=${Package} ")
