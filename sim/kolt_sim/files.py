"""Files that a command writes: found to be writable before the work begins, and replaced in one step at its end."""
import contextlib
import json
import os
import tempfile
from pathlib import Path
from typing import Any, Self


class Output:
    """
    A file to be. Use as a context manager: on entry the room beside the old file is taken, so an unwritable place is an
    OSError at once; `path` is what to write to; `commit` puts it in place; without that nothing changes.
    What is no regular file, such as /dev/stdout, is written to as it is.
    """

    def __init__(self, target: str | Path) -> None:
        self.target = Path(os.path.realpath(target)) if not _is_special(target) else Path(target)
        self.path = self.target
        self._waiting = False

    def __enter__(self) -> Self:
        if self.target.is_dir():
            raise IsADirectoryError(21, os.strerror(21), str(self.target))
        if _is_special(self.target):
            os.close(os.open(self.target, os.O_WRONLY | os.O_NONBLOCK))
            return self
        if self.target.exists() and not os.access(self.target, os.W_OK):
            raise PermissionError(13, os.strerror(13), str(self.target))
        self.path = self._take_place()
        self._waiting = True
        return self

    def _take_place(self) -> Path:
        mode = self.target.stat().st_mode & 0o777 if self.target.exists() else 0o666 & ~_umask()
        handle, name = tempfile.mkstemp(prefix="." + self.target.stem[:80] + ".", suffix=self.target.suffix,
                                        dir=self.target.parent)
        os.fchmod(handle, mode)
        os.close(handle)
        return Path(name)

    def commit(self) -> None:
        if self._waiting:
            os.replace(self.path, self.target)
            self._waiting = False

    def __exit__(self, *_: object) -> None:
        if self._waiting:
            with contextlib.suppress(FileNotFoundError):
                self.path.unlink()


def _is_special(path: str | Path) -> bool:
    return os.path.exists(path) and not os.path.isfile(path) and not os.path.isdir(path)


def _umask() -> int:
    mask = os.umask(0)
    os.umask(mask)
    return mask


def write_json(data: Any, path: Path) -> None:
    path.write_text(json.dumps(data, separators=(",", ":"), ensure_ascii=False) + "\n", encoding="utf-8")
