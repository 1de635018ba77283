"""Writing a node's files from outside, straight through a descriptor of its root: a message for each would be slow."""
import os


class Files:
    """Replaces files as a whole, and only where the content has changed."""

    def __init__(self, root_fd: int) -> None:
        self._root = root_fd
        self._written: dict[str, bytes] = {}

    def write(self, path: str, data: bytes | str) -> None:
        """`path` is absolute; its directory must exist and no part of it be a link."""
        content = data.encode() if isinstance(data, str) else data
        if self._written.get(path) == content:
            return
        inside = path.lstrip("/")
        temporary = inside + ".new"
        fd = os.open(temporary, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_CLOEXEC, 0o644, dir_fd=self._root)
        with open(fd, "wb") as file:
            file.write(content)
        os.rename(temporary, inside, src_dir_fd=self._root, dst_dir_fd=self._root)
        self._written[path] = content
