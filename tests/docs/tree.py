"""What the tests of the documents share: the files of the tree, and what a Markdown file offers to be pointed at."""
import functools
import os
import re
import subprocess
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]

CODE_BLOCK = re.compile(r"^(```|~~~).*?^\1", re.MULTILINE | re.DOTALL)
CODE = re.compile(r"`[^`\n]*`")
HEADING = re.compile(r"^#{1,6} +(.*?)[ #]*$", re.MULTILINE)


def files(*patterns: str) -> list[Path]:
    """The files of the tree that match, those that are not committed yet among them."""
    listed = subprocess.run(["git", "-c", f"safe.directory={TOP}", "ls-files", "-z", "--cached", "--others",
                             "--exclude-standard", "--", *patterns], cwd=TOP, check=True, capture_output=True, text=True)
    return sorted(TOP / name for name in listed.stdout.split("\0") if name and (TOP / name).is_file())


def name_of(path: Path) -> str:
    return str(path.relative_to(TOP))


@functools.cache
def anchors(page: Path) -> frozenset[str]:
    """What a link into a page may name behind its #."""
    found: dict[str, int] = {}
    for title in HEADING.findall(CODE_BLOCK.sub("", page.read_text())):
        text = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", title).lower()
        anchor = re.sub(r"[^\w -]", "", text).replace(" ", "-")
        found[anchor] = found.get(anchor, -1) + 1
        if found[anchor]:
            found[f"{anchor}-{found[anchor]}"] = 0
    return frozenset(found)


def build_directory() -> Path:
    """Where the programs are: $KOLT_BUILD, relative to the top of the tree, by default build/release."""
    return TOP / os.environ.get("KOLT_BUILD", "build/release")
