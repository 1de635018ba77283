# What the init script finds around it on a node, as far as it asks: instead of starting anything it is told what would be.
# Run as: sh supervisor.sh SCRIPT CONFIGURATION
logger() { echo "log: $*"; }
procd_open_instance() { echo "open"; }
procd_set_param() { echo "set: $*"; }
procd_close_instance() { echo "close"; }
. "$1"
CONFIG=$2
start_service
