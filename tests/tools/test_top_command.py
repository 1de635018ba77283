"""The command line of kolt-top: what it takes, and one line for everything that is wrong."""
import re
import subprocess

import pytest
import top_node
from top_node import STEERED, program, run, sample

node = top_node.node

REFUSED = [
    (["--colour"], "no such option: --colour"),
    (["-x"], "no such option: -x"),
    (["now"], "no such argument: now"),
    (["-i"], "a value is missing behind: -i"),
    (["-i", "0.05"], "not an interval of 0.1 to 86400 seconds: 0.05"),
    (["--interval", "2s"], "not an interval of 0.1 to 86400 seconds: 2s"),
    (["-n", "0"], "not a number of readings: 0"),
    (["-n", "-1"], "not a number of readings: -1"),
    (["--client", "02:30:00:00:00"], "not a MAC address: 02:30:00:00:00"),
    (["--json", "--plain"], "more than one of --live, --plain, --json and --prometheus"),
    (["--prometheus", "--client", STEERED], "--client has nothing to say in --prometheus"),
]


@pytest.mark.parametrize("words, reason", REFUSED, ids=lambda value: " ".join(value) if isinstance(value, list) else "")
def test_a_wrong_line_is_refused_in_one_sentence(words, reason):
    binary = top_node.build_directory() / "bin/kolt-top"
    done = subprocess.run([binary, *words], capture_output=True, text=True)
    assert done.returncode == 2 and not done.stdout
    assert done.stderr.splitlines()[0] == f"kolt-top: {reason}"
    assert done.stderr.splitlines()[1].startswith("usage: kolt-top ")


def test_help_and_version_need_no_node():
    binary = top_node.build_directory() / "bin/kolt-top"
    said = subprocess.run([binary, "--help"], capture_output=True, text=True, check=True).stdout
    assert said.startswith("usage: kolt-top ")
    assert re.fullmatch(r"kolt-top \d+\.\d+\.\d+\n",
                        subprocess.run([binary, "--version"], capture_output=True, text=True, check=True).stdout)


def failed(node, *words: str, **how: object) -> str:
    done = run(node, *words, **how)
    assert done.status == 1 and not done.stdout
    (line,) = done.stderr.splitlines()
    return line


def test_a_missing_or_broken_configuration_is_one_line(node):
    assert failed(node, "-c", "/etc/none.json") == "kolt-top: /etc/none.json: No such file or directory"
    node.write_file("/etc/broken.json", "{")
    assert failed(node, "-c", "/etc/broken.json") == "kolt-top: /etc/broken.json: parse config"
    node.write_json("/etc/broken.json", {"interfaces": {"eth0": {"type": "fibre"}}})
    assert failed(node, "-c", "/etc/broken.json") == "kolt-top: /etc/broken.json: invalid interface type"
    node.write_json("/etc/broken.json", {"enable": True})
    assert failed(node, "-c", "/etc/broken.json") == "kolt-top: /etc/broken.json names no bridge"


def test_a_missing_platform_library_is_one_line(node):
    node.write_file("/tmp/alone/kolt-top", program(node).read_bytes())  # away from the stand-ins beside it
    node.run(["/bin/chmod", "755", "/tmp/alone/kolt-top"])
    done = node.run(["/tmp/alone/kolt-top", "--once"], env={"LD_LIBRARY_PATH": ""})
    assert done.status == 1
    assert re.fullmatch(r"kolt-top: no platform library: libduon-bridge\.so: .*No such file or directory\n", done.stderr)


def silence(node) -> None:
    for name in sample.BRIDGE_MACS:
        node.deactivate_bridge(name)


def test_a_platform_that_tells_nothing_is_one_line(node):
    silence(node)
    assert failed(node, "--once") == ("kolt-top: the platform tells nothing of br-lan: is it running, on the open platform "
                                      "kolt-bridged?")


def test_who_has_no_right_is_told_so(node):
    silence(node)
    # Where everybody may go, as the folder of a build need not be.
    node.run(["/bin/sh", "-c", f"mkdir -p /tmp/own/bin && cp {program(node)} /tmp/own/bin && cp -r {node.build}/lib /tmp/own"])
    done = node.run(["/usr/bin/setpriv", "--reuid=65534", "--clear-groups", "/tmp/own/bin/kolt-top", "--once"])
    assert done.status == 1 and done.stderr == "kolt-top: the platform tells nothing of br-lan: run kolt-top as root\n"


def test_a_machine_without_the_bridges_is_one_line(node):
    node.write_json("/etc/kolt.json", {"bridges": {"br-none": {"path_selection": True}}})
    assert failed(node, "--once") == "kolt-top: none of the bridges that /etc/kolt.json names is there, such as br-none"


def test_a_bridge_that_cannot_be_read_steers_no_terminal(node):
    node.write_json("/etc/kolt.json", {"bridges": {"a\x1b[2J": {"path_selection": True}}})
    assert failed(node, "--once") == "kolt-top: none of the bridges that /etc/kolt.json names is there, such as a?[2J"


def test_a_client_that_is_not_there_is_one_line(node):
    assert failed(node, "--once", "--client", "02:99:00:00:00:01") == "kolt-top: no bridge has a client 02:99:00:00:00:01"


def test_a_disabled_daemon_does_not_keep_it_from_looking(node):
    configuration = sample.config()
    configuration["enable"] = False
    node.write_json("/etc/kolt.json", configuration)
    assert top_node.told(node)["settings"]["enable"] is False


def test_plain_lines_are_what_a_pipe_gets_and_each_tells_its_bridge(node):
    done = run(node, "-n", "2", "-i", "0.1")
    lines = done.stdout.splitlines()
    assert done.status == 0 and len([line for line in lines if " node mode=RE " in line]) == 2
    assert all(re.match(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ (node|bridge|path|client|note) ", line) for line in lines)
    assert any(f"client bridge=br-lan mac={STEERED} port=wlan0.1 " in line for line in lines)


def test_a_full_disk_is_told(node):
    done = node.run(["/bin/sh", "-c", f"exec {program(node)} --json --once >/dev/full"])
    assert done.status == 1 and done.stderr == "kolt-top: cannot write: No space left on device\n"
