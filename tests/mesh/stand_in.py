"""In the place of kolt-bridged where a node itself is looked at: takes connections, and does nothing to the bridge."""
import os
import socket
import sys
import time
from pathlib import Path


def main() -> None:
    options = dict(zip(sys.argv[1::2], sys.argv[2::2]))
    if options["--mode"] == "HAP":
        sys.exit("no such mode here")
    run = Path(options["--run"])
    run.mkdir(parents=True, exist_ok=True)
    (run / "socket").unlink(missing_ok=True)
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    listener.bind(str(run / "socket"))
    listener.listen()
    (run / "seen").write_text(f"{os.getpid()} {options['--mode']} {sorted(os.listdir('/sys/class/net'))}\n")
    while True:
        time.sleep(60)


main()
