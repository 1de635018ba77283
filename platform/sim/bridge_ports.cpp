/*
 * The calls that set something on a bridge or on one of its ports. A stand-in has nothing to program: it notes the
 * call and gives the scripted result.
 */
#include "journal.h"
#include "script.h"

#pragma GCC visibility push(default)
#include <duon_bridge.h>
#pragma GCC visibility pop

namespace {

int finish(journal_line &line, const char *function, const char *bridge) {
    int result = 0;
    (void)scripted_failure(function, bridge, &result);
    return line.result(result);
}

int bridge_call(const char *function, const char *bridge) {
    journal_line line(function);
    line.text("bridge", bridge);
    return finish(line, function, bridge);
}

int bridge_value(const char *function, const char *bridge, const char *key, int value) {
    journal_line line(function);
    line.text("bridge", bridge).number(key, value);
    return finish(line, function, bridge);
}

int port_value(const char *function, const char *bridge, const char *ifname, const char *key, int value) {
    journal_line line(function);
    line.text("bridge", bridge).text("ifname", ifname).number(key, value);
    return finish(line, function, bridge);
}

} // namespace

int bridgeSetBridgeMode(const char *bridge, int mode) {
    return bridge_value(__func__, bridge, "mode", mode);
}

int bridgeSetTcpSP(const char *bridge, int value) {
    return bridge_value(__func__, bridge, "value", value);
}

int bridgeSetFollowRE(const char *bridge, int value) {
    return bridge_value(__func__, bridge, "value", value);
}

int bridgeSetIFGroup(const char *bridge, const char *ifname, int group, int group_again) {
    journal_line line(__func__);
    line.text("bridge", bridge).text("ifname", ifname).number("group", group).number("group_again", group_again);
    return finish(line, __func__, bridge);
}

int bridgeSetIFType(const char *bridge, const char *ifname, int type) {
    return port_value(__func__, bridge, ifname, "type", type);
}

int bridgeSetIFClass(const char *bridge, const char *ifname, int bcast_class) {
    return port_value(__func__, bridge, ifname, "bcast_class", bcast_class);
}

int bridgeSetIFPath(const char *bridge, const char *ifname, int path) {
    return port_value(__func__, bridge, ifname, "path", path);
}

int bridgeSetIFCompat(const char *bridge, const char *ifname, int compat_group) {
    return port_value(__func__, bridge, ifname, "compat_group", compat_group);
}

int bridgeSetIFBroadcast(const char *bridge, const char *ifname, int allow) {
    return port_value(__func__, bridge, ifname, "allow", allow);
}

int bridgeSetNeedha(const char *bridge, const char *ifname, int needha) {
    return port_value(__func__, bridge, ifname, "needha", needha);
}

int bridgeSetCouple(const char *bridge, const char *ifname, const char *couple, int first) {
    journal_line line(__func__);
    line.text("bridge", bridge).text("ifname", ifname).text("couple", couple).number("first", first);
    return finish(line, __func__, bridge);
}

int bridgeFlushHDTable(const char *bridge) {
    return bridge_call(__func__, bridge);
}

int bridgeFlushHATable(const char *bridge) {
    return bridge_call(__func__, bridge);
}

int bridgeDelFdbByName(const char *bridge, const char *ifname) {
    journal_line line(__func__);
    line.text("bridge", bridge).text("ifname", ifname);
    return finish(line, __func__, bridge);
}

int bridgeSetEventInfo(const char *bridge, int pid, int events, int protocol) {
    journal_line line(__func__);
    line.text("bridge", bridge).number("pid", pid).number("events", events).number("protocol", protocol);
    return finish(line, __func__, bridge);
}
