"""kolt-top disturbs nobody: what it calls, what it could call, and a daemon that does the same with and without it."""
import re
import subprocess
import sys

import top_node
from top_node import Node, build_directory, configure, program, run, sample

from kolt_node.clock import SimulatedClock

node = top_node.node

# Of the C library: what sends, connects, starts threads, or changes files.
FORBIDDEN = {"socket", "bind", "connect", "send", "sendto", "sendmsg", "setsockopt", "unlink", "rename", "mkdir", "chmod",
             "truncate", "ftruncate", "kill", "system", "vsyslog", "openlog"}
CALLS = re.compile(rb"bridge([A-Z]\w+)")  # by which alone it could find them in the library
PERIODS = 5


def test_it_makes_reading_calls_alone(node):
    node.set_link("5g", 0)
    for words in (["--once"], ["--json", "--once"], ["--prometheus"], ["--once", "--client", top_node.STEERED],
                  ["-n", "3", "-i", "0.1"]):
        begin = node.mark()
        assert run(node, *words).status == 0
        calls = node.journal(begin)
        assert {entry["call"] for entry in calls} == top_node.READING
        assert {entry["args"]["type"] for entry in calls if entry["call"] == "netlink_msg"} == {0, 256}
        assert not node.log(begin) and not node.requests


def test_the_program_holds_no_call_that_writes(delivered):
    delivered_program = delivered / "kolt-top"
    listing = subprocess.run(["nm", "-D", "--undefined-only", delivered_program], check=True, capture_output=True, text=True)
    imported = {line.split()[-1].split("@")[0] for line in listing.stdout.splitlines()}
    assert "poll" in imported and not imported & FORBIDDEN
    assert set(CALLS.findall(delivered_program.read_bytes())) == {b"AllocTableBuf", b"FreeTableBuf", b"TableAction"}


def story(beside: bool) -> tuple[list[str], list[tuple]]:
    """The daemon's log and calls over some periods of simulated time, with and without kolt-top beside it."""
    with Node(build_directory()) as node:
        sample.set_up(node)
        configure(node, cpu_limit=True)
        node.remove_file("/etc/config/tolmux")  # something that whoever looks has to complain about
        node.use_simulated_clock()
        node.start_broker()
        daemon = node.start_daemon(ready=False)
        with SimulatedClock(node) as clock:
            node.clock = clock
            clock.attach()
            clock.settle()
            node.set_log_level(3)
            watcher = node.spawn([program(node), "--json", "-i", "0.1"]) if beside else None
            for _ in range(PERIODS):
                clock.advance(clock.now + 5)
                if watcher is not None:
                    readings = watcher.stdout.count("\n")
                    node.wait_for(lambda: watcher.stdout.count("\n") > readings + 1, what="two more readings")
            if watcher is not None:
                node.signal(watcher, 15)
                node.wait_exit(watcher)
            node.drain()
            log = [f"{record.function}: {record.level}: {record.text}" for record in node.log()]
            own = daemon.pid.to_bytes(4, sys.byteorder).hex()  # as it registers itself
            calls = [(entry["call"], str(entry["args"] | {"pid": 0}).replace(own, "own"), entry["result"])
                     for entry in node.journal() if entry["pid"] == daemon.pid]
            node.stop_daemon()
            node.clock = None
        return log, calls


def test_the_daemon_says_and_does_the_same_beside_it():
    alone, beside = story(False), story(True)
    assert len([line for line in alone[0] if "hd_path" in line]) >= PERIODS
    assert alone == beside
