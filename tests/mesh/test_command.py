"""The commands as a person calls them."""
import json
import re
import subprocess
from pathlib import Path
from types import SimpleNamespace

import pytest
from kolt_mesh import command, show, topology
from kolt_mesh.command import AS_EXPECTED, CANNOT, main
from kolt_mesh.kinds import TunedSpanningTree
from kolt_mesh.record import LinkSeries

TOP = Path(__file__).resolve().parents[2]
COMMAND = TOP / "linux/mesh/kolt-mesh"


def test_the_shipped_topologies_are_listed(capsys):
    assert main(["--list"]) == AS_EXPECTED
    lines = capsys.readouterr().out.splitlines()
    assert [line.split()[0] for line in lines] == ["chain", "house", "ring", "single", "star", "two-roots"]
    assert "A house with six nodes" in lines[1] and "6 nodes, 10 links" in lines[1]


@pytest.mark.parametrize("arguments, reason", [
    (["--topology", "hoose"], "hoose: No such file or directory; did you mean house?"),
    (["--topology", "two"], "two: No such file or directory; did you mean two-roots?"),
    (["--topology", "nosuch"], "nosuch: No such file or directory; --list names the shipped ones"),
    (["--build", "/nosuch"], "/nosuch holds no build of the open platform"),
])
def test_what_cannot_be_done_is_told_in_one_line(capsys, arguments, reason):
    assert main(arguments) == CANNOT
    told = capsys.readouterr().err
    assert reason in told and told.startswith("kolt-mesh: ") and told.count("\n") == 1


def run_as_nobody(*command: str | Path) -> subprocess.CompletedProcess:
    """Who may read the files, wherever they are: some roots keep others out of their home."""
    rights = ["--inh-caps", "-all,+dac_read_search", "--ambient-caps", "+dac_read_search", "--bounding-set",
              "-all,+dac_read_search"]
    return subprocess.run(["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups", *rights, *command],
                          capture_output=True, text=True, check=False)


def test_missing_rights_are_told_in_one_line():
    done = run_as_nobody(COMMAND, "--without")
    assert done.returncode == CANNOT
    assert "does not allow network namespaces" in done.stderr and done.stderr.count("\n") == 1


def test_scripts_ask_for_root_in_one_line():
    for script in ("scripts/mesh", "bench/mesh"):
        done = run_as_nobody(TOP / script)
        assert done.returncode == CANNOT and done.stderr.count("\n") == 1 and "root" in done.stderr


def test_a_home_under_the_spanning_tree_is_shown_to_its_end(tmp_path, capsys, monkeypatch):
    monkeypatch.setattr(command, "SpanningTree", TunedSpanningTree)
    monkeypatch.setattr(show, "AFTER_EVENTS", 4.0)
    home = tmp_path / "home.json"
    home.write_text(json.dumps({
        "title": "Two rooms", "nodes": {"a": {"mode": "FAP"}, "b": {"mode": "RE"}}, "hosts": {"h1": "a", "h2": "b"},
        "links": [{"between": ["a", "b"], "type": "5g", "rate": "20mbit"}],
        "traffic": [{"from": "h1", "to": "h2", "streams": 2}],
        "events": [{"at": 3.5, "do": "slow", "link": "a-b 5g", "rate": "5mbit"}]}))
    assert main(["--without", "--topology", str(home), "--json", str(tmp_path / "run.json"),
                 "--report", str(tmp_path / "run.html")]) == AS_EXPECTED
    told = capsys.readouterr().out
    assert "exactly one copy of each at h2" in told and "** a-b 5g becomes slower: 5mbit" in told
    run = json.loads((tmp_path / "run.json").read_text())
    link = run["links"]["a-b 5g"]
    assert max(link["mbit"][:3]) > 15 and link["mbit"][-2] < 8
    assert re.fullmatch("(up ){2,}(slow ){2,}", "".join(f"{state} " for state in link["state"]))
    assert "<title>Two rooms" in (tmp_path / "run.html").read_text()


@pytest.mark.parametrize("columns", ["70", "100", "118", "300"])
def test_the_links_are_shown_in_lines_that_a_terminal_has_room_for(monkeypatch, columns):
    monkeypatch.setenv("COLUMNS", columns)
    home, said = topology.load("house"), []
    shown = show.Show(SimpleNamespace(topology=home, kind=SimpleNamespace(title="nothing")), show.Limits(1.0, False), said.append)
    shown.record.total = [100.0]
    shown.record.links = {link.name: LinkSeries(link.type, 50.0, [49.0], [99.0], [False], ["up"]) for link in home.links}
    shown._status()
    assert 1 < len(said) and max(map(len, said)) <= min(int(columns), 118)
