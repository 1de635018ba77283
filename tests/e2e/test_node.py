"""The node itself: its private files, its interfaces and the life of the processes in it."""
import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest

from kolt_node import Node, NodeError, sample
from kolt_node.control import ROOT
from probe import indexes, query

MAC = "02:00:00:00:00:01"


class TestFilesAndInterfaces:
    def test_interface_takes_any_name_and_index(self, node: Node) -> None:
        assert node.add_interface("wlan0.1", index=4660) == 4660
        assert "wlan0.1:" in node.run(["/bin/cat", "/proc/net/dev"]).stdout

    def test_private_files_never_reach_the_machine(self, node: Node) -> None:
        node.write_file("/etc/config/kolt-node-test", "x")
        node.write_file("/tmp/kolt-node-test", "x")
        assert node.run(["/bin/cat", "/etc/config/kolt-node-test"]).stdout == "x"
        assert not Path("/etc/config/kolt-node-test").exists()
        assert not Path("/tmp/kolt-node-test").exists()

    @pytest.mark.parametrize("path", ["/usr/kolt-node-test", "/etc/alternatives/kolt-node-test"])
    def test_the_machine_s_own_files_cannot_be_written(self, node: Node, path: str) -> None:
        with pytest.raises(PermissionError):
            node.write_file(path, "x")

    def test_kernel_files_are_there_and_can_be_replaced(self, node: Node) -> None:
        assert node.run(["/bin/cat", "/proc/stat"]).stdout.startswith("cpu ")
        node.write_file("/proc/stat", "cpu 1 2 3 4 5 6 7\n")
        node.write_file("/proc/net/dev", "eth0: 1 2\n")
        assert node.run(["/bin/cat", "/proc/stat", "/proc/net/dev"]).stdout == "cpu 1 2 3 4 5 6 7\neth0: 1 2\n"

    def test_driver_files_lie_where_each_driver_puts_them(self, node: Node) -> None:
        node.set_driver_files("wlan0", "2.4g", [{"mac": MAC, "tx": 300, "rssi": 41}], 55)
        node.set_driver_files("wlan1", "5g", "raw\n", 7)
        assert "hwaddr: 020000000001\n" in node.run(["/bin/cat", "/proc/wlan0/sta_info"]).stdout
        assert "ch_utilization: 55\n" in node.run(["/bin/cat", "/proc/wlan0/stats"]).stdout
        assert node.run(["/bin/cat", "/proc/net/rtk_wifi6/wlan1/sta_info"]).stdout == "raw\n"

    def test_settings_are_written_as_a_section_of_the_package_s_name(self, node: Node) -> None:
        node.set_uci({"eth_HasNeigh": "5"}, pending="tolmux.tolmux.eth_HasNeigh='3'\n")
        assert node.read_file("/etc/config/tolmux") == b"config tolmux 'tolmux'\n\toption eth_HasNeigh '5'\n"
        assert node.read_file("/var/state/tolmux") == b"tolmux.tolmux.eth_HasNeigh='3'\n"

    def test_log_messages_are_taken_apart(self, node: Node) -> None:
        text = "<27>Jan  2 03:04:05 dir/kolt: event_init:77: Fatal(No: such): socket"
        script = f"from socket import *; socket(AF_UNIX, SOCK_DGRAM).sendto({text!r}.encode(), '/dev/log')"
        assert node.run(["/usr/bin/python3", "-IS", "-c", script]).status == 0
        record = node.wait_log("socket")
        assert (record.priority, record.facility, record.ident, record.function, record.line, record.level,
                record.error) == (3, 3, "dir/kolt", "event_init", 77, "Fatal", "No: such")

    def test_sample_describes_every_configured_port(self, node: Node) -> None:
        indexes_by_name = sample.set_up(node)
        ports = indexes(query(node)) + indexes(query(node, bridge="br-guest"))
        assert ports == [indexes_by_name[name] for name in [*sample.PORTS, *sample.GUEST_PORTS]]


class TestLife:
    def test_output_status_and_name_of_a_process(self, node: Node) -> None:
        done = node.run(["/bin/sh", "-c", "echo $0; echo err >&2; read line; echo $line; exit 3"], stdin=b"in\n")
        assert (done.stdout, done.stderr, done.status) == ("/bin/sh\nin\n", "err\n", 3)
        assert node.run(["/bin/sh", "-c", "tr '\\0' ' ' < /proc/$$/cmdline"], argv0="other").stdout[:6] == "other "

    def test_death_by_a_signal_reads_as_its_negative_number(self, node: Node) -> None:
        process = node.spawn(["/bin/sleep", "100"])
        node.signal(process, signal.SIGTERM)
        assert node.wait_exit(process) == -signal.SIGTERM

    def test_a_process_that_takes_too_long_is_killed(self, node: Node) -> None:
        with pytest.raises(NodeError, match="in vain"):
            node.run(["/bin/sleep", "100"], timeout=0.1)
        node.wait_for(lambda: node.processes[max(node.processes)].status == -signal.SIGKILL)

    def test_idle_means_waiting_for_events_and_nothing_else(self, node: Node) -> None:
        script = "import select, time; time.sleep(0.2); print('awake', flush=True); select.epoll().poll()"
        node.daemon = node.spawn(["/usr/bin/python3", "-IS", "-c", script])
        node.wait_idle()
        node.wait_for(lambda: node.daemon.stdout == "awake\n", 0.1)

    def test_idle_daemon_that_ended_is_an_error(self, node: Node) -> None:
        node.daemon = node.spawn(["/bin/sh", "-c", "echo gone >&2; exit 4"])
        with pytest.raises(NodeError, match="status 4: gone"):
            node.wait_idle()

    def test_figures_of_a_process(self, node: Node) -> None:
        node.daemon = node.spawn(["/bin/sleep", "100"])
        program = Path(f"/proc/{node.daemon.pid}/exe")
        node.wait_for(lambda: program.resolve().name == "sleep" and node.cpu_time() > 0)
        assert 0 < node.memory()["private"] <= node.memory()["rss"]
        node.wait_for(lambda: sorted(node.descriptors()) == [0, 1, 2])  # the loader may still have a library open

    def test_missing_program_is_reported(self, node: Node) -> None:
        done = node.run(["/no/such/program"])
        assert (done.status, done.stderr) == (127, "/no/such/program: No such file or directory\n")

    def test_closing_the_node_ends_its_processes(self, build: Path) -> None:
        with Node(build) as short:
            pid = short.spawn(["/bin/sleep", "100"]).pid
            assert Path(f"/proc/{pid}").exists()
        assert not Path(f"/proc/{pid}").exists()

    def test_processes_end_when_the_test_itself_is_killed(self, build: Path) -> None:
        script = (f"import sys, time; sys.path.insert(0, {str(ROOT / 'platform/sim')!r}); from kolt_node import Node\n"
                  f"n = Node({str(build)!r}).start(); print(n.spawn(['/bin/sleep', '100']).pid, flush=True)\n"
                  "time.sleep(100)")
        owner = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE)
        pid = int(owner.stdout.readline())
        owner.kill()
        owner.communicate()
        deadline = time.monotonic() + 5
        while Path(f"/proc/{pid}").exists() and time.monotonic() < deadline:
            time.sleep(0.01)
        assert not Path(f"/proc/{pid}").exists()

    def test_a_node_starts_quickly(self, build: Path) -> None:
        """Other work of the machine may hold it up, but not each time."""
        def seconds() -> float:
            begin = time.monotonic()
            with Node(build) as quick:
                sample.set_up(quick)
            return time.monotonic() - begin

        assert any(seconds() < 2 for _ in range(5))

    def test_machine_without_namespaces_gets_one_clear_sentence(self, build: Path, monkeypatch: pytest.MonkeyPatch,
                                                                tmp_path: Path) -> None:
        refusing = tmp_path / "unshare"
        refusing.write_text("#!/bin/sh\necho 'unshare: unshare failed: Operation not permitted' >&2\nexit 1\n")
        refusing.chmod(0o755)
        monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")
        with pytest.raises(NodeError, match="does not allow the namespaces .*: unshare: unshare failed"):
            Node(build).start()

    def test_valgrind_finds_what_it_needs(self, node: Node) -> None:
        """It does not run sanitized programs, but what it needs of the node is the same for any."""
        done = node.run(["/usr/bin/valgrind", "-q", "--error-exitcode=9", "/bin/cat", "/proc/self/status"], timeout=30)
        assert done.status == 0 and "Threads:\t1" in done.stdout, done.stderr
