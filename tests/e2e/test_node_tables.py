"""Bridge queries and tables of the platform libraries: what a client of theirs gets, scripted or not."""
import pytest

from kolt_node import Node, fdb_entry, ha_entry, hd_entry
from probe import indexes, probe, query, values

CODES = {"fdb": (2, 16), "hd": (1, 24), "ha": (8, 100)}
MAC = "02:00:00:00:00:01"


def table(node: Node, kind: str, capacity: int) -> dict[str, str]:
    code, size = CODES[kind]
    return values(probe(node, "table", code, "br-lan", capacity, size))


class TestBridgeQueries:
    def test_header_before_the_payload_carries_the_bridge_name(self, node: Node) -> None:
        node.set_bridge("br-lan")
        assert query(node)["header_holds_name"] == "1"
        assert node.journal(call="netlink_msg")[0]["args"]["bridge"] == "br-lan"

    def test_known_bridge_passes_the_check_and_an_unknown_one_does_not(self, node: Node) -> None:
        node.set_bridge("br-lan")
        assert query(node, 0, "br-lan", 8)["result"] == "0"
        assert query(node, 0, "br-other", 8)["result"] == "-1"

    def test_deactivated_bridge_fails_the_check(self, node: Node) -> None:
        node.set_bridge("br-lan")
        node.deactivate_bridge("br-lan")
        assert query(node, 0, "br-lan", 8)["result"] == "-1"

    @pytest.mark.parametrize("name", ["../br-lan", ".", "br/lan"])
    def test_name_that_is_a_path_is_no_bridge(self, node: Node, name: str) -> None:
        node.set_bridge("br-lan")
        assert query(node, 0, name, 8)["result"] == "-1"

    def test_ports_come_as_36_byte_records_in_order(self, node: Node) -> None:
        first, second = node.add_interface("wlan0.1"), node.add_interface("eth0")
        node.set_bridge("br-lan", ["eth0", "wlan0.1", 4711])
        answer = query(node)
        assert answer["result"] == "0"
        assert answer["length"] == str(3 * 36)
        assert indexes(answer) == [second, first, 4711]

    def test_length_word_stands_8_bytes_before_the_payload(self, node: Node) -> None:
        node.set_bridge("br-lan", [1, 2])
        assert query(node)["length"] == "72"

    def test_removed_interface_is_no_port_any_more(self, node: Node) -> None:
        node.add_interface("eth0")
        node.set_bridge("br-lan", ["eth0", 7])
        node.remove_interface("eth0")
        assert indexes(query(node)) == [7]

    def test_ports_that_do_not_fit_are_left_out(self, node: Node) -> None:
        node.set_bridge("br-lan", range(1, 201))
        assert indexes(query(node)) == list(range(1, 129))

    def test_raw_reply_replaces_the_ports_and_never_writes_past_the_buffer(self, node: Node) -> None:
        node.set_bridge("br-lan", [1])
        node.set_port_reply("br-lan", b"\xaa" * 100)
        answer = query(node, size=40)
        assert answer["payload"] == "aa" * 40
        assert answer["length"] == "100"

    @pytest.mark.parametrize("length", [0, 35, 36 * 129, 0xFFFFFFFF])
    def test_forced_length_word_is_announced_as_it_is(self, node: Node, length: int) -> None:
        node.set_bridge("br-lan", [1])
        node.set_port_reply("br-lan", length=length)
        assert values(probe(node, "query", 256, "br-lan", 36))["length"] == str(length)

    def test_undoing_a_forced_reply_brings_the_ports_back(self, node: Node) -> None:
        node.set_bridge("br-lan", [5])
        node.set_port_reply("br-lan", b"x", length=1)
        node.set_port_reply("br-lan")
        assert indexes(query(node)) == [5]

    def test_failure_can_be_scripted_for_one_query_type(self, node: Node) -> None:
        node.set_bridge("br-lan", [1])
        node.fail("netlink_msg:256", -5)
        assert query(node)["result"] == "-5"
        assert query(node, 0, "br-lan", 8)["result"] == "0"

    def test_buffer_can_be_refused(self, node: Node) -> None:
        node.fail("bridgeAllocTableBuf", nth=2)
        assert "result" in query(node)
        assert query(node) == {"alloc": "null"}
        assert "result" in query(node)


class TestTables:
    ENTRIES = {"fdb": [fdb_entry(MAC, 300), fdb_entry(MAC, 3, local=True)],
               "hd": [hd_entry(MAC, 9, second="02:00:00:00:00:02")] * 2,
               "ha": [ha_entry(MAC, MAC, 9, hash=64, src_port=5000)] * 2}

    @pytest.mark.parametrize("kind", CODES)
    def test_entries_come_as_they_were_given(self, node: Node, kind: str) -> None:
        node.set_bridge("br-lan")
        node.set_table("br-lan", kind, self.ENTRIES[kind])
        answer = table(node, kind, 3)
        assert (answer["result"], answer["entries"]) == ("0", "2")
        data = b"".join(self.ENTRIES[kind])
        assert answer["payload"] == data.hex() + "ee" * CODES[kind][1]

    def test_entry_builders_give_the_sizes_of_the_tables(self) -> None:
        assert {kind: len(entries[0]) for kind, entries in self.ENTRIES.items()} == {"fdb": 16, "hd": 24, "ha": 100}

    def test_forwarding_entry_splits_its_port(self) -> None:
        entry = fdb_entry(MAC, 0x1234, local=True)
        assert (entry[:6].hex(":"), entry[6], entry[7], entry[12]) == (MAC, 0x34, 1, 0x12)

    def test_stream_entry_puts_its_fields_where_they_belong(self) -> None:
        entry = ha_entry(b"sssss1", b"ddddd2", 0x0A0B, hash=1, src_port=2, dst_port=3, kind=4, packets=5, bytes_=6,
                         c1=7, c2=8, reverse_packets=9, reverse_bytes=10, carried=11, flags=0x10)
        shorts = {0: 1, 20: 2, 22: 3, 24: 4}
        words = {28: 0x0A0B, 60: 5, 64: 6, 68: 7, 72: 8, 76: 9, 80: 10, 84: 11}
        assert entry[2:14] == b"sssss1ddddd2"
        assert all(int.from_bytes(entry[at:at + 2], "little") == value for at, value in shorts.items())
        assert all(int.from_bytes(entry[at:at + 4], "little") == value for at, value in words.items())
        assert entry[88] == 0x10

    def test_table_over_the_capacity_fails_and_leaves_the_needed_number(self, node: Node) -> None:
        node.set_bridge("br-lan")
        node.set_table("br-lan", "hd", [hd_entry(MAC, 9)] * 6)
        answer = table(node, "hd", 5)
        assert (answer["result"], answer["entries"]) == ("-1", "6")
        assert answer["payload"] == "ee" * 120

    def test_table_of_exactly_the_capacity_fits(self, node: Node) -> None:
        node.set_bridge("br-lan")
        node.set_table("br-lan", "hd", [hd_entry(MAC, 9)] * 5)
        assert table(node, "hd", 5)["result"] == "0"

    def test_need_can_be_claimed_anew_at_each_call(self, node: Node) -> None:
        node.set_bridge("br-lan")
        node.set_table_need("br-lan", "ha", 5200, 5800, 1)
        answers = [table(node, "ha", 1) for _ in range(4)]
        assert [answer["entries"] for answer in answers] == ["5200", "5800", "1", "1"]
        assert [answer["result"] for answer in answers] == ["-1", "-1", "0", "0"]

    def test_count_can_lie_beyond_the_capacity_with_success(self, node: Node) -> None:
        node.set_bridge("br-lan")
        node.set_table("br-lan", "fdb", [fdb_entry(MAC, 1)])
        node.set_table_count("br-lan", "fdb", 0xFFFFFFFF)
        answer = table(node, "fdb", 2)
        assert (answer["result"], answer["entries"]) == ("0", str(0xFFFFFFFF))
        assert answer["payload"] == fdb_entry(MAC, 1).hex() + "00" * 16

    def test_empty_table_and_missing_bridge(self, node: Node) -> None:
        assert table(node, "fdb", 1)["result"] == "-1"
        node.set_bridge("br-lan")
        answer = table(node, "fdb", 1)
        assert (answer["result"], answer["entries"]) == ("0", "0")

    def test_unknown_code_fails(self, node: Node) -> None:
        node.set_bridge("br-lan")
        assert values(probe(node, "table", 3, "br-lan", 1, 16))["result"] == "-1"

    def test_scripted_failure_reports_what_the_bridge_has(self, node: Node) -> None:
        node.set_bridge("br-lan")
        node.set_table("br-lan", "hd", [hd_entry(MAC, 9)])
        node.fail("bridgeTableAction", -7, nth=1)
        first, second = table(node, "hd", 5), table(node, "hd", 5)
        assert (first["result"], first["entries"], second["result"]) == ("-7", "1", "0")
