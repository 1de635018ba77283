"""What has to be known of a build where the daemon's memory is looked at."""
import os
from pathlib import Path

QUARANTINE = "quarantine_size_mb=1:thread_local_quarantine_size_kb=64"


def kind(build: Path) -> str:
    return "sanitized" if b"__asan_init" in (build / "bin/kolt").read_bytes() else "plain"


def environment() -> dict[str, str]:
    """A sanitizer keeps back what was freed, here for a short while."""
    return {"ASAN_OPTIONS": ":".join(filter(None, (os.environ.get("ASAN_OPTIONS"), QUARANTINE)))}
