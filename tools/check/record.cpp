// What can only be said once the record is whole.
#include "check/text.h"
#include "check/walk.h"
#include "core/config_settings.h"

#include <algorithm>
#include <cstring>

namespace {

using names = std::vector<std::string>;

void check_equal_names(const check_walk &walk, const names &all) {
    for (size_t i = 0; i < all.size(); i++) {
        const auto first = std::find(all.begin(), all.end(), all[i]) - all.begin();
        const auto at = static_cast<size_t>(first);
        if (at < i)
            walk.add(walk.report->interfaces[i].at, CHECK_WARNING, "equal-names",
                     check_quoted(walk.report->interfaces[i].key) + " is " + check_quoted(all[i]) + ", as is " +
                         check_quoted(walk.report->interfaces[at].key) + ", and the first one counts");
    }
}

void check_partner(const check_walk &walk, size_t at, const std::string &name, const names &all) {
    if (std::find(all.begin(), all.end(), name) == all.end())
        walk.add(at, CHECK_WARNING, "no-partner",
                 check_quoted(name) + " of this couple is no interface of \"interfaces\"");
}

void check_couple(const check_walk &walk, const config_couple &couple, size_t at, const names &all) {
    const std::string lan = check_field(couple.lan);
    const std::string guest = check_field(couple.guest);
    if (lan == guest) {
        walk.add(at, CHECK_WARNING, "no-partner", check_quoted(lan) + " is its own partner");
        return;
    }
    check_partner(walk, at, lan, all);
    check_partner(walk, at, guest, all);
}

// Links that go are followed on the bridges that loop avoidance programs, and on no others.
void check_bridge(const check_walk &walk, const config_bridge &bridge, size_t at) {
    if ((bridge.flags & CONFIG_PATH_SELECTION) != 0 && (bridge.flags & CONFIG_LOOP_AVOIDANCE) == 0)
        walk.add(at, CHECK_WARNING, "never-flushed",
                 check_quoted(check_field(bridge.name)) +
                     " has path selection without loop avoidance: when a link goes, streams stay on it, since nothing "
                     "flushes the bridge's tables");
}

// The power-line backhaul's id also tells which wired couples count without a neighbour.
bool is_wired_couple(const config &record) {
    return std::any_of(record.couples, record.couples + record.couple_num,
                       [](const config_couple &couple) { return strncmp(couple.lan, "eth", 3) == 0; });
}

bool is_used(const check_report &report, int32_t exchange) {
    return (report.exchanges >> exchange & 1U) != 0 ||
           (exchange == CONFIG_EXCHANGE_PLC_BACKHAUL && is_wired_couple(report.record));
}

} // namespace

void check_walk_record(const check_walk &walk) {
    const config &record = walk.report->record;
    for (size_t i = 0; i < walk.report->bridges.size(); i++)
        check_bridge(walk, record.bridges[i], walk.report->bridges[i].at);
    names all;
    for (uint32_t i = 0; i < record.interface_num; i++)
        all.push_back(check_field(record.interfaces[i].name));
    check_equal_names(walk, all);
    for (size_t i = 0; i < walk.report->couples.size(); i++)
        check_couple(walk, record.couples[i], walk.report->couples[i].at, all);
}

void check_walk_vlan_ids(const check_walk &walk) {
    const check_member *param = walk.root->find("param");
    for (const check_setting &setting : walk.report->param) {
        const config_setting &row = *setting.row;
        if (row.exchange == 0 || setting.value == 0 || is_used(*walk.report, row.exchange))
            continue;
        walk.add(check_place(walk, param->value, row.key).at, CHECK_NOTE, "unused-vlan",
                 check_quoted(row.key) + " has no effect: no name is built with it");
    }
}
