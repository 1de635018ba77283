"""
The process that lives inside a mesh node: that of a simulated node, in a process namespace of its own, with a /proc and a
/sys that show this node alone and a place for pinned programs. Run as `inside.py FD KEEP...`.
"""
import json
import os
import socket
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[3] / "platform/sim/kolt_node"))

import agent  # noqa: E402
import mounts  # noqa: E402

OWN = (("proc", "/proc"), ("sysfs", "/sys"), ("bpf", "/sys/fs/bpf"))


def main() -> None:
    try:
        mounts.mount("none", "/", None, mounts.MS_REC | mounts.MS_PRIVATE)
        for kind, target in OWN:
            mounts.mount(kind, target, kind, 0)
    except OSError as error:
        control = socket.socket(fileno=os.dup(int(sys.argv[1])))
        control.sendall(json.dumps({"news": "unable", "text": str(error)}).encode() + b"\n")
        sys.exit(1)
    agent.main()


if __name__ == "__main__":
    main()
