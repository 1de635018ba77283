# What the init script finds around it on a node, as far as it asks: instead of starting anything it is told what would be.
# Run as: sh supervisor.sh SCRIPT CONFIGURATION; `python3` stands in for the node's JSON reader.
logger() { echo "log: $*"; }
procd_open_instance() { echo "open"; }
procd_set_param() { echo "set: $*"; }
procd_close_instance() { echo "close"; }
jsonfilter() {
    /usr/bin/python3 -c '
import json, sys
quiet, i, path, e, expression = sys.argv[1:]
assert (quiet, i, e) == ("-q", "-i", "-e")
try:
    value = json.load(open(path))
except (OSError, ValueError):
    sys.exit(126)
if expression != "@":
    key = expression.removeprefix("@.")
    if not isinstance(value, dict) or key not in value:
        sys.exit(1)
    value = value[key]
print(value if isinstance(value, str) else f"{value:f}" if isinstance(value, float) else json.dumps(value))
' "$@"
}
. "$1"
CONFIG=$2
start_service
