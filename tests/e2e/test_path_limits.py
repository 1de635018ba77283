"""As many clients and entries as there is room for, one more, and every call of the platform that can fail."""
from collections.abc import Iterator
from pathlib import Path

import pytest

import path_scene as paths
from kolt_node import fdb_entry
from path_scene import HOSTS, HOT, LOCAL, PathNode, Period

FETCH = "kolt_get_duon_bridge_table: Error: "
FDB, HD = "kolt_get_fdb_client_list: Error: get fdb table", "kolt_get_hd_client_list: Error: get hd table"
HD_STEP = "kolt_get_client_list: Error: update hd & hc port"
HA = ["kolt_get_maximal_ha_entries: Error: get ha table",
      "kolt_get_client_list_ha_entries: Error: update ha entires failed"]
AGAIN = FETCH + "get table failed again"
SIZES = {"fdb": 16, "hd": 24, "ha": 100}


@pytest.fixture(scope="module")
def shared(build: Path) -> Iterator[PathNode]:
    yield from paths.lend(build)


@pytest.fixture
def node(shared: PathNode) -> Iterator[PathNode]:
    yield from shared.lend()


def set_up(node: PathNode, names: list[str]) -> None:
    """Bridges with one host each, which is to move to wlan2.1 with its one stream."""
    paths.set_up(node, bridges=names)
    node.set_load(load_2_4g=HOT)
    for number, name in enumerate(names):
        paths.add_hosts(node, HOSTS[:1], "wlan0.1", bridge=name, pinned="wlan1.1")
        node.set_table(name, "ha", [paths.stream(node, number, "wlan0.1")])


def begin(node: PathNode, names: list[str]) -> None:
    node.begin(paths.config(bridges={name: {"path_selection": True} for name in names}))


def errors(period: Period) -> list[str]:
    return [line for line in period.lines if ": Error: " in line or "failed" in line]


def buffers(period: Period, bridge: str) -> list[int]:
    return [args["size"] for args in period.find("bridgeAllocTableBuf", bridge)]


def moved(period: Period, names: list[str]) -> dict[str, tuple[int, int]]:
    """How many clients and streams each bridge has moved; all of them to the same path."""
    assert {name for _, name in period.hd() + period.ha()} <= {"wlan2.1"}
    return {name: (len(period.hd(name)), len(period.ha(name))) for name in names}


def hosts(count: int) -> list[str]:
    return [f"02:30:00:00:{number >> 8:02x}:{number & 255:02x}" for number in range(count)]


class TestSizes:
    def test_clients_and_tables_that_do_not_fit(self, node: PathNode) -> None:
        """
        Of 255 entries all become clients, of 256 and more the first 255; local ones among the first 256 use up their
        place. A table of 5200 entries is fetched again with room for 5700, and given up where that fails too.
        """
        names = ["br-255", "br-256", "br-300", "br-local", "br-fdb", "br-fits", "br-hd", "br-ha"]
        set_up(node, names)
        index = node.ifindex("wlan0.1")
        own = [fdb_entry(LOCAL, index, local=True)] * 45
        for name, count, local in (("br-255", 255, []), ("br-256", 256, []), ("br-300", 300, []),
                                   ("br-local", 300, own)):
            node.set_table(name, "fdb", local + [fdb_entry(host, index) for host in hosts(count)])
        node.set_table_need("br-fdb", "fdb", 5200, 5701)
        node.set_table_need("br-fits", "fdb", 5200, 5700)
        node.set_table_need("br-hd", "hd", 5001, 5502)
        node.set_table_need("br-ha", "ha", 5200, 9000)
        begin(node, names)
        period = node.period()
        assert [len(period.hd(name)) for name in names] == [255, 255, 255, 211, 0, 1, 1, 1]
        for name, count in (("br-255", 255), ("br-256", 255), ("br-300", 255), ("br-local", 211)):
            assert [mac for mac, _ in period.hd(name)] == hosts(count), name
        assert [len(period.ha(name)) for name in names[4:]] == [0, 1, 0, 0]
        assert errors(period) == [AGAIN, FDB, AGAIN, HD, HD_STEP, AGAIN, *HA]
        table = {kind: 5000 * size for kind, size in SIZES.items()}
        assert buffers(period, "br-fdb") == [8, 4608, table["fdb"], 5700 * 16, table["hd"], table["ha"]]
        assert buffers(period, "br-fits") == [8, 4608, table["fdb"], 5700 * 16, table["hd"], table["ha"]]
        assert buffers(period, "br-hd") == [8, 4608, table["fdb"], table["hd"], 5501 * 24, table["ha"]]
        assert buffers(period, "br-ha") == [8, 4608, table["fdb"], table["hd"], table["ha"], 5700 * 100]
        freed = sorted(args["buf"] for args in period.find("bridgeFreeTableBuf"))
        assert freed == sorted(args["size"] for args in period.find("bridgeAllocTableBuf"))
        for name, kind in (("br-fdb", "fdb"), ("br-fits", "fdb"), ("br-hd", "hd"), ("br-ha", "ha")):
            node.set_table_need(name, kind)
        period = node.period()
        assert errors(period) == []
        assert list(moved(period, names[4:]).values()) == [(1, 1)] * 4


class TestFailures:
    FIRST = {"br-check": ("netlink_msg:0", {}, [], (0, 0)),
             "br-asks": ("bridgeAllocTableBuf", {"nth": 1}, ["kolt_check_active_bridge: Error: bridgeAllocTableBuf"],
                         (0, 0)),
             "br-fdb": ("bridgeTableAction", {"nth": 1}, [FDB], (0, 0)),
             "br-hd": ("bridgeTableAction", {"nth": 2}, [HD, HD_STEP], (1, 0)),
             "br-ha": ("bridgeTableAction", {"nth": 3}, HA, (1, 0)),
             "br-addhd": ("bridgeAddHDTableEntries", {},
                          ["path_selection_update_uplink_hd_table: Info: add hd client: 02:30:00:00:00:01 to wlan2.1 "
                           "failed"], (1, 0)),
             "br-setha": ("bridgeSetHATableEntries", {},
                          ["path_selection_update_ha_entry: Info: set ha entry failed, src_port: 6, dst_port: 443, "
                           "client mac: 02:30:00:00:00:01, old path: {wlan0.1}, new path: wlan2.1"], (1, 1)),
             "br-ports": ("netlink_msg:256", {}, ["kolt_get_active_ports: Error: netlink_msg"], (0, 0))}
    # The ports of the last bridge were unknown, so that no path was hot: the first bridge moves no streams now.
    SECOND = {"br-check": ("bridgeAllocTableBuf", {"nth": 3}, [FETCH + "alloac buffer error", FDB], (0, 0)),
              "br-asks": ("bridgeAllocTableBuf", {"nth": 4}, [FETCH + "alloac buffer error", HD, HD_STEP], (1, 0)),
              "br-fdb": ("bridgeAllocTableBuf", {"nth": 5}, [FETCH + "alloac buffer error", *HA], (1, 0)),
              "br-hd": ("bridgeAllocTableBuf", {"nth": 4}, [FETCH + "realloac buffer error", FDB], (0, 0)),
              "br-ha": ("bridgeAddHDTableEntries", {"result": -2}, [], (1, 1)),
              "br-addhd": ("bridgeSetHATableEntries", {"result": 1}, [], (1, 1)),
              "br-setha": ("bridgeTableAction", {"also": [(1, 1, 3)], "nth": 2, "result": -9}, [FDB, HD, HD_STEP],
                           (0, 0)),
              "br-ports": ("bridgeAllocTableBuf", {"nth": 2}, ["kolt_get_active_ports: Error: bridgeAllocTableBuf"],
                           (0, 0))}

    def test_each_failure_is_said_and_neither_its_period_nor_the_next_ends_there(self, node: PathNode) -> None:
        names = list(self.FIRST)
        set_up(node, names)
        begin(node, names)
        for failures in (self.FIRST, self.SECOND):
            node.clear_failures()
            if failures is self.SECOND:
                node.set_table_need("br-hd", "fdb", 5200)
            for name, (function, how, _, _) in failures.items():
                node.fail(function, bridge=name, **how)
            period = node.period()
            expected = [line for _, _, lines, _ in failures.values() for line in lines]
            index = str(node.ifindex("wlan0.1"))
            assert errors(period) == [line.replace("{wlan0.1}", index) for line in expected]
            assert moved(period, names) == {name: counts for name, (*_, counts) in failures.items()}
            notified = sum(counts[1] for name, (*_, counts) in failures.items())
            assert len(period.requests) == notified - (failures is self.FIRST)  # a failed move is told to nobody
            freed = sorted(args["buf"] for args in period.find("bridgeFreeTableBuf") if args["buf"] is not None)
            taken = [entry["args"]["size"] for entry in period.calls
                     if entry["call"] == "bridgeAllocTableBuf" and entry["result"] is not None]
            assert freed == sorted(taken)
        node.clear_failures()
        node.set_table_need("br-hd", "fdb")
        period = node.period()
        assert errors(period) == []
        assert moved(period, names) == {name: (1, int(name != names[0])) for name in names}
