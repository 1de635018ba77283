"""systemd's units: that systemd understands all of them, and how much of the system each service sees."""
import re
import subprocess
from pathlib import Path

import pytest

from conftest import TOP
from exposure import EXPOSURE

UNITS = sorted((TOP / "packaging/systemd").glob("*.service"))


def look_at(unit: Path) -> str:
    """What systemd says of a unit that it does not run; complaints included."""
    done = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--no-pager", unit], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True)
    return done.stdout


def exposure(unit: Path) -> float:
    figure = re.search(r"exposure level for \S+: ([\d.]+)", look_at(unit))
    assert figure is not None
    return float(figure[1])


@pytest.mark.parametrize("unit", UNITS, ids=lambda unit: unit.stem)
def test_a_service_sees_no_more_than_stated(unit: Path) -> None:
    assert exposure(unit) == EXPOSURE[unit.stem]


@pytest.mark.parametrize("unit", UNITS, ids=lambda unit: unit.stem)
def test_systemd_understands_every_line(unit: Path) -> None:
    assert str(unit) not in look_at(unit)


@pytest.mark.parametrize("unit", UNITS, ids=lambda unit: unit.stem)
def test_a_service_starts_what_is_installed_and_comes_back_only_after_a_failure(unit: Path, root: Path) -> None:
    text = unit.read_text()
    assert (root / f"usr/sbin/{unit.stem}").exists()
    assert re.search(rf"^ExecStart=/usr/sbin/{unit.stem}\b", text, re.MULTILINE)
    assert "\nRestart=on-failure\n" in text


def settings(text: str) -> dict[str, set[str]]:
    return {name: set(words.split()) for name, words in re.findall(r"^([A-Z]\w+)=(.*)$", text, re.MULTILINE)}


def test_the_service_has_every_setting_of_the_threat_note() -> None:
    note = settings((TOP / "docs/threats.md").read_text().partition("```ini")[2].partition("```")[0])
    unit = settings((TOP / "packaging/systemd/kolt.service").read_text())
    assert "MemoryMax" in note
    assert {name: unit.get(name) for name in note} == note


def test_a_line_that_systemd_does_not_understand_is_found(tmp_path: Path) -> None:
    unit = tmp_path / "kolt.service"
    unit.write_text((TOP / "packaging/systemd/kolt.service").read_text().replace("=@system-service", "=@no-such-group"))
    assert str(unit) in look_at(unit) and exposure(unit) > 0
