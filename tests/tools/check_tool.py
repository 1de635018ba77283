"""What the tests of kolt-check share: the program, and the table of settings as it lists them."""
import json
import os
import subprocess
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
BUILD = TOP / os.environ.get("KOLT_BUILD", "build/release")
PROGRAM = BUILD / "bin/kolt-check"
SHIPPED = [TOP / "packaging/kolt.json", *sorted((TOP / "packaging/examples").glob("*.json"))]


def run(*words: object, stdin: bytes | None = None) -> subprocess.CompletedProcess[str]:
    done = subprocess.run([PROGRAM, *map(str, words)], input=stdin, capture_output=True, timeout=30)
    return subprocess.CompletedProcess(done.args, done.returncode, done.stdout.decode(), done.stderr.decode())


def check(text: str | bytes) -> dict:
    """What kolt-check says of a text, as it says it to programs."""
    return json.loads(run("--json", "-", stdin=text if isinstance(text, bytes) else text.encode()).stdout)


def settings() -> list[dict]:
    return json.loads(run("--settings").stdout)


def described(row: dict) -> str:
    """A setting's range and default as documents give them."""
    parts = []
    if row["key"] in ("type", "couple"):
        parts.append("required")
    elif row["kind"] == "number":
        low, high = row["range"]
        parts.append(f"{low} to {high} {row['unit']}".strip() if low != high else str(low))
    if "default" in row:
        value = row["default"]
        parts.append("default " + (("on" if value else "off") if row["kind"] == "flag" else str(value)))
    if not row["read"]:
        parts.append("no effect")
    return ", ".join(parts)
