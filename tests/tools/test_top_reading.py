"""What kolt-top reads of a node, and what it makes of it."""
import json
import math
import re

import pytest
import top_node
from kolt_node import fdb_entry, ha_entry, hd_entry
from top_node import OWN, STEERED, bridge, client, configure, path, run, sample, told

node = top_node.node

NAME = r"[a-zA-Z_:][a-zA-Z0-9_:]*"
SAMPLE_LINE = re.compile(rf'({NAME})(?:\{{({NAME}="[^"\\]*"(?:,{NAME}="[^"\\]*")*)\}})? (-?[0-9.]+)')
SUFFIX = re.compile(r"([A-Za-z0-9_]+)=\"([^\"]*)\"")


def metrics(text: str) -> dict[tuple[str, str, str], float]:
    """The samples by name, bridge and link; every line must be one, or a HELP or TYPE of what follows it."""
    found, announced = {}, set()
    for line in text.splitlines():
        if line.startswith("# "):
            kind, name = line.split(" ")[1:3]
            assert kind in ("HELP", "TYPE") and (kind == "TYPE") == ((name, "HELP") in announced)
            announced.add((name, kind))
            continue
        name, labels, value = SAMPLE_LINE.fullmatch(line).groups()
        assert (name, "TYPE") in announced
        by = dict(SUFFIX.findall(labels or ""))
        key = (name, by.get("bridge", ""), by.get("link", ""))
        assert key not in found
        found[key] = float(value)
    return found


def test_the_paths_are_measured_as_a_period_measures_them(node):
    reading = told(node)
    hot = path(reading, "2.4g")
    assert hot["port"] == "wlan0.1" and hot["up"] and hot["priority"] == 1
    assert hot["measured"] == {"utilisation_percent": 85, "load_percent": 85, "hot": True, "rssi": 50, "rate": 144,
                               "quota_percent": 5.0, "score": 86400}  # 120 x (500 x 144 / 100)
    assert path(reading, "5g_2")["measured"]["score"] == 160 * (7000 * 1201 // 100)
    assert path(reading, "plc")["measured"] is None
    assert bridge(reading)["adjusting"] and not bridge(reading)["full"]


def test_the_priority_is_the_one_that_the_score_is_made_with(node):
    """Of two ports of a radio it is the last one's."""
    configuration = sample.config(cpu_threshold=0)
    configuration["interfaces"]["wlan1.2"] = configuration["interfaces"]["wlan1.1"] | {"priority": 7}
    node.write_json("/etc/kolt.json", configuration)
    node.add_interface("wlan1.2")
    node.set_bridge("br-lan", [*sample.PORTS, "wlan1.2"])
    found = path(told(node), "5g")
    assert found["priority"] == 7 and found["measured"]["score"] == 240 * (5000 * 866 // 100)


def test_a_link_that_is_down_or_unread_is_told_from_one_that_is_measured(node):
    node.set_link("5g", 0)
    node.set_driver_files("wlan2", "5g_2", "", 20)
    reading = told(node)
    assert not path(reading, "5g")["up"] and path(reading, "5g")["measured"] is None
    assert path(reading, "5g_2")["up"] and path(reading, "5g_2")["measured"] is None
    states = re.findall(r"link=(\S+) port=\S+ state=(\S+)", run(node, "--plain", "--once").stdout)
    assert dict(states) == {"plc": "up", "2.4g": "hot,best", "5g": "down", "5g_2": "unread"}


def test_an_abnormal_link_is_slow_and_nothing_is_flushed_for_it(node):
    node.set_driver_files("wlan1", "5g", [{"mac": sample.CAP_MAC, "tx": 6}], 40)
    begin = node.mark()
    reading = told(node)
    assert path(reading, "5g")["abnormal"] and path(reading, "5g")["measured"]["rate"] == 0
    assert {entry["call"] for entry in node.journal(begin)} <= top_node.READING


def test_tables_are_counted_by_link_and_by_client(node):
    indexes = {name: node.ifindex(name) for name in ("wlan0.1", "wlan1.1")}
    node.set_table("br-lan", "hd", [hd_entry(mac, indexes["wlan1.1"]) for mac in sample.SERVERS[:4]])
    node.set_table("br-lan", "ha", [ha_entry(OWN, STEERED, indexes["wlan1.1"], bytes_=4000000000, packets=1, src_port=1),
                                    ha_entry(OWN, STEERED, indexes["wlan1.1"], bytes_=4000000000, packets=1, src_port=2),
                                    ha_entry(OWN, sample.SERVERS[1], indexes["wlan0.1"], bytes_=7, packets=1)])
    reading = told(node)
    assert (path(reading, "5g")["pinned"], path(reading, "2.4g")["pinned"]) == (4, 0)
    assert path(reading, "5g")["streams"] == {"count": 2, "bytes": 8000000000}
    assert client(reading, STEERED)["streams"] == {"count": 2, "bytes": 8000000000}
    assert client(reading, OWN)["streams"]["count"] == 3
    assert bridge(reading)["stream_entries"] == 3 and bridge(reading)["pinned_entries"] == 4


@pytest.mark.parametrize("pinned, placement", [("wlan0.1", "moves"), ("wlan2.1", "in-place"), ("", "moves")])
def test_a_client_moves_unless_it_is_on_the_best_path(node, pinned, placement):
    node.set_table("br-lan", "hd", [hd_entry(STEERED, node.ifindex(pinned))] if pinned else b"")
    found = client(told(node), STEERED)
    assert found["best"] == "5g_2" and found["pinned"] == (pinned or None) and found["placement"] == placement


def test_clients_that_are_not_placed_say_why(node):
    assert client(told(node), OWN)["placement"] == "relay"
    node.set_table("br-lan", "fdb", [fdb_entry(STEERED, node.ifindex("plc0"))])
    assert client(told(node), STEERED)["placement"] == "power-line"
    configure(node, cpu_limit=True)
    assert client(told(node), STEERED)["placement"] == "remembered"
    configure(node, wlan_enable=False)
    assert client(told(node), STEERED)["placement"] == "no-path"
    node.set_work_mode("FAP")
    assert client(told(node), STEERED)["placement"] in ("other-mode", "relay")


def test_a_busy_processor_leaves_2_4_ghz_nothing(node):
    configure(node, cpu_threshold=1)
    node.remove_file("/proc/stat")
    node.write_file("/proc/stat", "cpu  90 0 5 5 0 0 0\n")
    reading = told(node)
    assert bridge(reading)["cpu_overloaded"] and path(reading, "2.4g")["measured"]["quota_percent"] == 0


def test_one_client_is_explained_with_its_streams(node):
    why = told(node, "--client", STEERED)["client"]
    assert (why["bridge"], why["best"], why["target"], why["placement"]) == ("br-lan", "5g_2", "5g_2", "moves")
    (stream,) = why["busiest_streams"]
    # 100 packets of 1,200 bytes and their answers of 2,400: 360,000 bytes in 5,000 ms are 1 unit of 64 bytes a ms.
    assert stream["bytes"] == 360000 and stream["share_percent"] == 0.08 and stream["placement"] == "may-move"
    assert told(node, "--client", "02:99:00:00:00:01")["client"] is None


def test_the_explanation_tells_scores_and_what_will_happen(node):
    text = run(node, "--once", "--client", STEERED.replace(":", "-").lower()).stdout
    assert re.search(r"5g_2 +wlan2\.1 +20% +70\.00% +1201 +3 +13451200  chosen", text)
    assert "The next period pins it to the chosen path." in text
    for radio, link in (("wlan0", "2.4g"), ("wlan1", "5g"), ("wlan2", "5g_2")):
        node.set_driver_files(radio, link, [{"mac": sample.CAP_MAC, "tx": 300}], 90)
    assert "Streams stay: every path is above 70 %" in run(node, "--once", "--client", STEERED).stdout
    assert "only one way to it" in run(node, "--once", "--client", OWN).stdout


def test_no_move_is_promised_to_a_client_that_is_not_placed(node):
    def said() -> str:
        return run(node, "--once", "--client", STEERED).stdout
    promise = "in the second such period in a row up to "
    assert promise in said() and re.search(r" may-move$", said(), re.MULTILINE)
    node.set_table("br-lan", "fdb", [fdb_entry(STEERED, node.ifindex("plc0"))])
    assert "neither it nor its streams are moved" in said() and promise not in said() and "may-move" not in said()
    configure(node, wlan_enable=False)
    assert "No path can be used now: it stays where it is." in said() and "treams stay:" not in said()


def test_with_cpu_limit_nothing_is_called_chosen(node):
    def said(**param: object) -> str:
        configure(node, cpu_limit=True, **param)
        return run(node, "--once", "--client", STEERED).stdout
    held = "carried more than 3 MB"
    assert re.search(r"5g_2 +wlan2\.1 .*  best$", said(), re.MULTILINE) and "chosen\n" not in said()
    assert held in said(estimate_ack_enable=True) and held not in said(estimate_ack_enable=False)
    assert told(node, "--client", STEERED)["client"]["target"] is None


def test_without_the_streams_table_nothing_of_it_is_read_or_told(node):
    begin = node.mark()
    reading = told(node, "--no-streams")
    assert {entry["args"]["code"] for entry in node.journal(begin, "bridgeTableAction")} == {1, 2}
    assert path(reading, "2.4g")["streams"] is None and client(reading, STEERED)["streams"] is None


def test_the_exposition_agrees_with_the_reading(node):
    reading, found = told(node), metrics(run(node, "--prometheus").stdout)
    for one in bridge(reading)["paths"]:
        of = {name: value for (name, _, link), value in found.items() if link == one["link"]}
        assert of["kolt_path_pinned_clients"] == one["pinned"]
        assert of["kolt_path_streams"] == one["streams"]["count"]
        assert of["kolt_path_up"] == one["up"]
        assert ("kolt_path_score" in of) == (one["measured"] is not None)
        if one["measured"]:
            assert of["kolt_path_score"] == one["measured"]["score"]
            assert math.isclose(of["kolt_path_quota_ratio"] * 100, one["measured"]["quota_percent"])
    assert found["kolt_bridge_clients", "br-lan", ""] == 12 and found["kolt_bridge_clients_to_move", "br-lan", ""] == 6


def test_samples_are_taken_at_the_daemons_cadence_and_drivers_are_spared(node):
    """A period of a minute: of some readings a tenth of a second apart one asks the drivers."""
    configure(node, period=60)
    node.write_file("/tmp/bin/cat", "#!/bin/sh\necho \"$*\" >>/tmp/read\nexec /bin/cat \"$@\"\n")
    node.run(["/bin/chmod", "755", "/tmp/bin/cat"])
    done = run(node, "--json", "-i", "0.1", "-n", "5", env={"PATH": "/tmp/bin:/usr/bin:/bin"})
    readings = [json.loads(line) for line in done.stdout.splitlines()]
    assert len(readings) == 5
    assert {json.dumps(path(one, "5g")["measured"]) for one in readings} == {json.dumps(path(readings[0], "5g")["measured"])}
    assert len(node.read_file("/tmp/read").splitlines()) == 6  # three radios, two files each


def test_traffic_is_a_rate_from_the_second_reading_on(node):
    done = run(node, "--json", "-i", "0.1", "-n", "2")
    first, second = (path(json.loads(line), "2.4g")["traffic"] for line in done.stdout.splitlines())
    assert first["rx_bits_per_s"] is None and second["rx_bits_per_s"] is not None
    assert second["tx_bytes"] >= first["tx_bytes"]


def test_what_cannot_be_read_is_a_note_and_no_end(node):
    node.remove_file("/tmp/work_mode")
    node.fail("bridgeTableAction", bridge="br-lan")
    reading = told(node)
    assert reading["mode"] == "unknown"
    assert "kolt_get_work_mode: parse work_mode" in reading["notes"]
    assert any("hd table" in note for note in reading["notes"])
    assert bridge(reading)["clients"] == [] and bridge(reading)["stream_entries"] is None
    assert metrics(run(node, "--prometheus").stdout)["kolt_read_notes", "", ""] == len(reading["notes"]) >= 2
