// Looking for ways past traffic control, in words for the user.
#include "kernel/net/offload.h"

#include "kernel/net/ethtool.h"
#include "kernel/net/text.h"

#include <cerrno>
#include <cstring>

namespace {

offload_finding finding(offload_answer answer, std::initializer_list<std::string_view> sentence) {
    offload_finding made;
    made.answer = answer;
    join_text(&made.sentence, sentence);
    return made;
}

offload_finding not_known(const char *ifname, const char *what, int result) {
    return finding(OFFLOAD_UNKNOWN, {ifname, ": cannot find out whether ", what, ": ", strerror(result)});
}

} // namespace

offload_finding judge_switch_chip(const char *ifname, int result, const link_info &link) {
    if (result != 0)
        return not_known(ifname, "it is a port of a switch chip", result);
    if (link.switch_port)
        return finding(OFFLOAD_YES,
                       {ifname, " is a port of a switch chip, which forwards to its other ports by itself"});
    return finding(OFFLOAD_NO, {ifname, " is not a port of a switch chip"});
}

// An interface without any features has not this one either.
offload_finding judge_tc_offload(const char *ifname, int result, bool on) {
    if (result != 0 && result != EOPNOTSUPP)
        return not_known(ifname, "hw-tc-offload is on", result);
    if (result == 0 && on)
        return finding(OFFLOAD_YES, {ifname, ": hw-tc-offload is on, so that hardware may forward past the programs"});
    return finding(OFFLOAD_NO, {ifname, ": hw-tc-offload is off"});
}

offload_finding judge_flow_table(const char *ifname, int result, const flow_table_use &use) {
    if (result != 0)
        return not_known(ifname, "a flow table uses it", result);
    if (!use.found)
        return finding(OFFLOAD_NO, {ifname, ": no flow table uses it"});
    const char *how = use.hardware ? "\" has hardware forward its flows past the programs"
                                   : "\" forwards its routed flows past the bridge";
    return finding(OFFLOAD_YES, {ifname, ": the flow table \"", use.name.data(), how});
}

offload_findings offload_find(rtnl_socket &rtnl, const char *ifname) {
    link_info link;
    const int linked = link_find(rtnl, ifname, &link);
    bool on = false;
    const int asked = ethtool_feature(ifname, "hw-tc-offload", &on);
    flow_table_use use;
    const int searched = flow_table_find(ifname, &use);
    return {.switch_chip = judge_switch_chip(ifname, linked, link),
            .tc_offload = judge_tc_offload(ifname, asked, on),
            .flow_table = judge_flow_table(ifname, searched, use)};
}
