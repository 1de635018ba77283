"""What a program or a shared library says of itself, read by binutils."""
import re
import subprocess
from pathlib import Path

MAGIC = b"\x7fELF"
OBJECT_TYPES = {2, 3}  # programs and shared libraries; not what is still to be linked


def is_linked(path: Path) -> bool:
    """Whether a file is a program or a shared library."""
    if path.is_symlink() or not path.is_file():
        return False
    with path.open("rb") as file:
        head = file.read(18)
    return len(head) == 18 and head[:4] == MAGIC and \
        int.from_bytes(head[16:18], "little" if head[5] == 1 else "big") in OBJECT_TYPES


def linked_below(folder: Path) -> list[Path]:
    return sorted(path for path in folder.rglob("*") if is_linked(path))


def readelf(path: Path, *options: str) -> str:
    return subprocess.run(["readelf", "--wide", *options, path], check=True, capture_output=True, text=True).stdout


def run_paths(path: Path) -> list[str]:
    """The folders that it names for its libraries."""
    found = re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", readelf(path, "--dynamic"))
    return [folder for words in found for folder in words.split(":")]


def is_private(folder: str) -> bool:
    """Whether a folder is told by where the program itself is."""
    return folder == "$ORIGIN" or folder.startswith("$ORIGIN/")
