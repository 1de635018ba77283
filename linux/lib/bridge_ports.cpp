/*
 * The calls that set something on a bridge or on one of its ports, as requests to kolt-bridged.
 */
#include "lib/connection.h"

#pragma GCC visibility push(default)
#include <duon_bridge.h>
#pragma GCC visibility pop

namespace {

int bridge_value(call_code call, const char *bridge, int value) {
    named_request named(call, bridge);
    named.request.values[0] = value;
    return bridged_result(named);
}

int port_value(call_code call, const char *bridge, const char *ifname, int value) {
    named_request named(call, bridge, ifname);
    named.request.values[0] = value;
    return bridged_result(named);
}

} // namespace

int bridgeSetBridgeMode(const char *bridge, int mode) {
    return bridge_value(CALL_SET_BRIDGE_MODE, bridge, mode);
}

int bridgeSetTcpSP(const char *bridge, int value) {
    return bridge_value(CALL_SET_TCP_SP, bridge, value);
}

int bridgeSetFollowRE(const char *bridge, int value) {
    return bridge_value(CALL_SET_FOLLOW_RE, bridge, value);
}

int bridgeSetIFGroup(const char *bridge, const char *ifname, int group, int group_again) {
    named_request named(CALL_SET_IF_GROUP, bridge, ifname);
    named.request.values[0] = group;
    named.request.values[1] = group_again;
    return bridged_result(named);
}

int bridgeSetIFType(const char *bridge, const char *ifname, int type) {
    return port_value(CALL_SET_IF_TYPE, bridge, ifname, type);
}

int bridgeSetIFClass(const char *bridge, const char *ifname, int bcast_class) {
    return port_value(CALL_SET_IF_CLASS, bridge, ifname, bcast_class);
}

int bridgeSetIFPath(const char *bridge, const char *ifname, int path) {
    return port_value(CALL_SET_IF_PATH, bridge, ifname, path);
}

int bridgeSetIFCompat(const char *bridge, const char *ifname, int compat_group) {
    return port_value(CALL_SET_IF_COMPAT, bridge, ifname, compat_group);
}

int bridgeSetIFBroadcast(const char *bridge, const char *ifname, int allow) {
    return port_value(CALL_SET_IF_BROADCAST, bridge, ifname, allow);
}

int bridgeSetNeedha(const char *bridge, const char *ifname, int needha) {
    return port_value(CALL_SET_NEEDHA, bridge, ifname, needha);
}

int bridgeSetCouple(const char *bridge, const char *ifname, const char *couple, int first) {
    named_request named(CALL_SET_COUPLE, bridge, ifname, couple);
    named.request.values[0] = first;
    return bridged_result(named);
}

int bridgeFlushHDTable(const char *bridge) {
    return bridged_result(named_request(CALL_FLUSH_HD_TABLE, bridge));
}

int bridgeFlushHATable(const char *bridge) {
    return bridged_result(named_request(CALL_FLUSH_HA_TABLE, bridge));
}

int bridgeDelFdbByName(const char *bridge, const char *ifname) {
    return bridged_result(named_request(CALL_FLUSH_FDB, bridge, ifname));
}

int bridgeSetEventInfo(const char *bridge, int pid, int events, int protocol) {
    named_request named(CALL_SET_EVENT_INFO, bridge);
    named.request.values[0] = pid;
    named.request.values[1] = events;
    named.request.values[2] = protocol;
    return bridged_result(named);
}
