"""A simulated mesh node around an unmodified daemon: its own files, interfaces, bridge and message bus."""
from .messages import (IFLA_WIRELESS, IWEVEXPIRED, attribute, fdb_entry, ha_entry, hd_entry, link_message, mac_bytes,
                       nlmsghdr, radio_stats, station_info, wireless_event)
from .control import LogRecord, Mark, NodeError, Process
from .node import Node
from . import sample  # noqa: E402

__all__ = ["IFLA_WIRELESS", "IWEVEXPIRED", "LogRecord", "Mark", "Node", "NodeError", "Process", "attribute",
           "fdb_entry", "ha_entry", "hd_entry", "link_message", "mac_bytes", "nlmsghdr", "radio_stats", "sample",
           "station_info", "wireless_event"]
