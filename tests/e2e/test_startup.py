"""The command line, the log, and the order in which the daemon comes up or gives up."""
import errno
import os
from collections.abc import Iterator
from pathlib import Path

import pytest

from bus import Bus
from kolt_node import Node
import scene

DISABLED = ["main: Error: kolt disabled"]
INVALID_TYPE = scene.config({"eth0": {"type": "wifi"}})


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[scene.SharedNode]:
    with scene.SharedNode(build) as fresh:
        yield fresh


class OnSharedNode:
    @pytest.fixture
    def node(self, shared: scene.SharedNode) -> Iterator[Node]:
        yield from shared.lend()


class TestCommandLine(OnSharedNode):
    @pytest.mark.parametrize("words, status", [
        (["-h"], 0), (["-c", "/etc/kolt.json", "-h"], 0), (["more", "words", "-h"], 0),
        (["-x"], 1), (["-c"], 1), (["-x", "-h"], 1), (["--help"], 1), (["-c/etc/kolt.json", "-c"], 1),
    ], ids=scene.short)
    def test_usage_is_one_line_on_standard_error_and_nothing_else_happens(self, node: Node, words: list[str],
                                                                         status: int) -> None:
        daemon = node.start_daemon(scene.config(), args=words, argv0="any/name")
        assert (daemon.status, daemon.stderr, daemon.stdout) == (status, "any/name [-c config] [-h]\n", "")
        assert (scene.lines(node), node.journal()) == ([], [])

    def test_words_that_are_no_options_are_ignored(self, node: Node) -> None:
        daemon = node.start_daemon({"enable": False}, args=["some", "-", "words"])
        assert (daemon.status, scene.lines(node)) == (0, DISABLED)

    @pytest.mark.parametrize("words", [["-c", "/etc/other.json"], ["-c/etc/other.json"],
                                       ["-c", "/etc/kolt.json", "-c", "/etc/other.json"],
                                       ["-c", "/no/such/file", "word", "-c", "/etc/other.json"]], ids=scene.short)
    def test_the_last_named_file_is_the_one_that_is_read(self, node: Node, words: list[str]) -> None:
        node.write_json("/etc/other.json", {"enable": False, "backhual": {"a": {"couple": "b"}}})
        node.start_daemon(INVALID_TYPE, args=words)
        assert scene.lines(node) == ["config_load: Info: backhual lan:a, guest:b", *DISABLED]

    def test_without_the_option_the_default_file_is_read(self, node: Node) -> None:
        assert node.start_daemon({"enable": False}).status == 0
        assert scene.lines(node) == DISABLED


class TestLog:
    @pytest.mark.parametrize("argv0", ["kolt", "../x/kolt", "a b", "/usr/sbin/kolt"])
    def test_messages_carry_the_invocation_name_and_the_facility_of_daemons(self, node: Node, argv0: str) -> None:
        scene.set_up(node)
        scene.start(node, argv0=argv0)
        scene.drain(node)
        assert {(record.ident, record.facility) for record in node.log()} == {(argv0, 3)}

    def test_each_level_has_its_priority(self, node: Node) -> None:
        scene.set_up(node, mode=None)
        node.remove_file("/tmp/work_mode")
        scene.start(node, level=3)
        node.event("kolt.configure", {"mode": "RE"})
        node.event("kolt.other")
        node.stop_daemon()
        node.start_daemon(INVALID_TYPE)
        scene.drain(node)
        assert {(record.level, record.priority) for record in node.log()} == {
            ("Fatal", 0), ("Error", 3), ("Info", 6), ("Debug", 7), ("Dump", 7)}

    def test_standard_error_gets_a_copy_of_every_message(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node, level=3)
        node.event("kolt.configure", {"mode": "RE"})
        node.stop_daemon()
        sent = [f"{record.ident}: {record.function}:{record.line}: {record.level}: {record.text}\n"
                for record in node.log()]
        assert len(sent) > 5
        assert node.stderr() == "".join(sent)

    def test_messages_go_to_the_console_when_the_system_log_is_away(self, node: Node) -> None:
        node.remove_file("/dev/log")
        node.remove_file("/dev/console")
        node.write_file("/dev/console", b"")
        daemon = node.start_daemon({"enable": False}, argv0="kolt")
        assert daemon.status == 0
        assert daemon.stderr.startswith("kolt: main:")
        assert node.read_file("/dev/console") == daemon.stderr.replace("\n", "\r\n").encode()

    def test_daemon_runs_without_a_system_log(self, node: Node) -> None:
        scene.set_up(node)
        node.remove_file("/dev/log")
        node.remove_file("/dev/console")
        scene.start(node)
        scene.drain(node)
        assert "Info: Loop avoidance initialized\n" in node.stderr()
        assert node.stop_daemon() == 0


class TestDisabled(OnSharedNode):
    @pytest.mark.parametrize("text", ['{}', '{"enable": false}', '{"enable": 0}', '{"enable": ""}', '{"enable": null}',
                                      '{"enable": 0.0}', '{"enable": []}', '{"enable": {"enable": true}}',
                                      '{"Enable": true}', '[true]', '5 ', '"enable"'])
    def test_daemon_ends_well_after_one_error_line_and_before_any_socket(self, node: Node, text: str) -> None:
        daemon = node.start_daemon(text)
        assert (daemon.status, scene.lines(node), node.journal()) == (0, DISABLED, [])
        assert [record.priority for record in node.log()] == [3]

    @pytest.mark.parametrize("value", ["true", "1", "2", "-1", "0.5", '"yes"', '"false"'])
    def test_any_value_that_converts_to_true_enables(self, node: Node, value: str) -> None:
        assert node.start_daemon(f'{{"enable": {value}}}').status == 1
        assert scene.lines(node) == ["event_ubus_init: Fatal: ubus_connect"]

    def test_file_is_read_to_its_end_all_the_same(self, node: Node) -> None:
        assert node.start_daemon(INVALID_TYPE | {"enable": False}).status == 1
        assert scene.lines(node) == ["config_load: Fatal: invalid interface type"]


class TestBrokenConfiguration(OnSharedNode):
    @pytest.mark.parametrize("text", ["", " \n", "{", '{"enable": true', '{"enable" true}', "enable: true", "{'a': }",
                                      "\0\0\0", "\x80\xff", "[" * 100000, '{"a":' * 40 + "1" + "}" * 40],
                             ids=scene.short)
    def test_text_that_is_no_json_is_fatal(self, node: Node, text: str) -> None:
        assert node.start_daemon(text).status == 1
        assert scene.lines(node) == ["config_load: Fatal: parse config"]
        assert (node.log()[0].priority, node.journal()) == (0, [])

    def test_missing_file_and_directory_are_fatal(self, node: Node) -> None:
        for words in ([], ["-c", "/etc/none.json"], ["-c", "/etc"], ["-c", ""]):
            begin = scene.mark(node)
            assert node.start_daemon(args=words).status == 1
            assert scene.lines(node, begin) == ["config_load: Fatal: parse config"]

    @pytest.mark.parametrize("value", [{}, {"type": "wifi"}, {"type": "PLC"}, {"type": ""}, {"type": 1}, {"type": None},
                                       {"type": ["5g"]}, {"type": "5g "}, 5, "5g", None, []], ids=scene.short)
    def test_invalid_interface_type_is_fatal(self, node: Node, value: object) -> None:
        assert node.start_daemon(scene.config({"eth0": scene.ETH0, "x": value})).status == 1
        assert scene.lines(node) == ["config_load: Fatal: invalid interface type"]
        assert node.journal() == []


class TestRefusedHub:
    def test_daemon_without_a_bus_is_fatal_before_any_socket(self, node: Node) -> None:
        scene.set_up(node)
        assert node.start_daemon(scene.config()).status == 1
        assert scene.lines(node) == ["event_ubus_init: Fatal: ubus_connect"]
        assert node.journal() == []

    def test_bus_that_hangs_up_at_once_is_fatal(self, node: Node) -> None:
        bus = Bus(node)
        node.start_daemon(scene.config(), ready=False)
        bus.accept(greet=False)
        bus.drop()
        assert node.wait_exit(node.daemon) == 1
        assert scene.lines(node) == ["event_ubus_init: Fatal: ubus_connect"]
        bus.close()

    @pytest.mark.parametrize("code, text", [
        (1, "Invalid command"), (2, "Invalid argument"), (3, "Method not found"), (4, "Not found"), (5, "No response"),
        (6, "Permission denied"), (7, "Request timed out"), (8, "Operation not supported"), (9, "Unknown error"),
        (10, "Connection failed"), (11, "Out of memory"), (12, "Parsing message data failed"), (13, "System error"),
        (99, "Unknown error: 99"),
    ])
    def test_refused_registration_is_fatal_with_the_text_of_the_bus(self, node: Node, code: int, text: str) -> None:
        bus = Bus(node)
        node.start_daemon(scene.config(), ready=False)
        bus.accept()
        bus.add_object()
        bus.register(code)
        assert node.wait_exit(node.daemon) == 1
        assert scene.lines(node) == [f"event_ubus_init: Fatal: ubus_register_event_handler: {text}"]
        assert node.journal() == []
        bus.close()

    def test_refused_object_is_a_refused_registration(self, node: Node) -> None:
        bus = Bus(node)
        node.start_daemon(scene.config(), ready=False)
        bus.accept()
        bus.register(6)
        assert node.wait_exit(node.daemon) == 1
        assert scene.lines(node) == ["event_ubus_init: Fatal: ubus_register_event_handler: Permission denied"]
        bus.close()

    def test_bus_that_hangs_up_during_registration_is_fatal(self, node: Node) -> None:
        bus = Bus(node)
        node.start_daemon(scene.config(), ready=False)
        bus.accept()
        bus.add_object()
        bus.receive()
        bus.drop()
        assert node.wait_exit(node.daemon) == 1
        assert len(scene.lines(node)) == 1
        assert scene.lines(node)[0].startswith("event_ubus_init: Fatal: ubus_register_event_handler: ")
        bus.close()

    @pytest.mark.parametrize("function, protocol, operation", [
        ("event_bridge_init", 39, "socket"), ("event_wifi_init", 0, "socket"), ("event_neighbor_init", 53, "socket"),
        ("event_bridge_init", 39, "bind"), ("event_wifi_init", 0, "bind"), ("event_neighbor_init", 53, "bind")])
    @pytest.mark.parametrize("error", [errno.EMFILE, errno.EADDRINUSE])
    def test_refused_socket_is_fatal(self, node: Node, function: str, protocol: int, operation: str,
                                     error: int) -> None:
        scene.set_up(node)
        node.start_broker()
        node.fail(f"{operation}:{protocol}", error)
        assert node.start_daemon(scene.config()).status == 1
        assert scene.lines(node) == [f"{function}: Fatal({os.strerror(error)}): {operation}"]
        assert node.log()[0].priority == 0
        last = node.journal()[-1]
        assert (last["call"], last["args"]["protocol"], last["result"]) == (operation, protocol, -1)
        assert node.requests == []


class TestOrder:
    def test_sockets_are_opened_bound_and_registered_in_order(self, node: Node) -> None:
        scene.set_up(node)
        pid = scene.start(node).pid
        shown = {"socket", "bind", "sendto", "bridgeSetEventInfo"}
        told = [(entry["call"], *entry["args"].values()) for entry in node.journal() if entry["call"] in shown]
        assert [(*call[:2], call[2] & 15) if call[0] == "socket" else call for call in told] == [
            ("socket", 39, 3), ("bind", 39, pid, 0), ("bridgeSetEventInfo", "br-lan", pid, 3, 38),
            ("socket", 0, 3), ("bind", 0, pid, 1),
            ("socket", 53, 3), ("bind", 53, pid, 0),
            ("socket", 52, 2), ("bind", 52, pid, 0),
            ("sendto", 52, 0, 20, 13, 20, 0, pid, pid.to_bytes(4, "little").hex())]

    def test_bridges_are_programmed_only_after_everything_is_open(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node)
        names = [entry["call"] for entry in node.journal()]
        assert names.index("sendto") < names.index("bridgeSetTcpSP")

    def test_configuration_then_module_then_start_event(self, node: Node) -> None:
        scene.set_up(node, mode=None)
        node.remove_file("/tmp/work_mode")
        scene.start(node, scene.config(backhual={"a": {"couple": "b"}}))
        assert scene.lines(node)[:3] == ["config_load: Info: backhual lan:a, guest:b",
                                         "main: Info: Loop avoidance initialized",
                                         "kolt_get_work_mode: Error: parse work_mode"]

    def test_loop_avoidance_is_the_first_module_to_be_initialized(self, node: Node) -> None:
        scene.set_up(node)
        scene.start(node)
        scene.drain(node)
        said = [record.text for record in node.log(function="main", level="Info")]
        assert said[0] == "Loop avoidance initialized"
        assert said[1:] in ([], ["Path Selection initialized"])

    def test_daemon_stays_in_the_foreground_with_one_thread_and_writes_no_file(self, node: Node) -> None:
        scene.set_up(node)
        node.start_broker()
        folders = ["/run", "/tmp", "/var/state"]
        before = [node.list_directory(folder) for folder in folders]
        daemon = node.start_daemon(scene.config())
        status = Path(f"/proc/{daemon.pid}/status").read_text()
        assert "\nThreads:\t1\n" in status
        assert Path(f"/proc/{daemon.pid}/task/{daemon.pid}/children").read_text() == ""
        assert [node.list_directory(folder) for folder in folders] == before

    def test_no_active_bridge_is_no_obstacle(self, node: Node) -> None:
        scene.set_up(node)
        node.deactivate_bridge("br-lan")
        scene.start(node)
        assert (scene.lines(node), scene.requests(node)) == (["main: Info: Loop avoidance initialized"], [])

    def test_refused_event_registration_of_a_bridge_is_logged_and_survived(self, node: Node) -> None:
        scene.set_up(node)
        scene.add_ports(node, "br-two", [])
        node.fail("bridgeSetEventInfo", -1, bridge="br-lan")
        scene.start(node, scene.config(bridges={"br-lan": {"loop_avoidance": True}, "br-two": {}}))
        assert scene.lines(node) == ["event_bridge_set_event: Error: bridgeSetEventInfo",
                                     "main: Info: Loop avoidance initialized"]
        assert scene.requests(node)[:2] == scene.event_info(node, "br-lan", "br-two")
        assert scene.requests(node)[2] == "SetTcpSP br-lan 0"

    def test_positive_result_of_the_event_registration_is_no_failure(self, node: Node) -> None:
        scene.set_up(node)
        node.fail("bridgeSetEventInfo", 1)
        scene.start(node)
        assert scene.lines(node) == ["main: Info: Loop avoidance initialized"]
