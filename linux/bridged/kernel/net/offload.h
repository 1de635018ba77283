// What may forward frames of a port without the kernel's traffic control seeing them, where no filter of ours can hold.
#pragma once

#include "kernel/net/flow_tables.h"
#include "kernel/net/links.h"
#include "kernel/net/rtnl.h"

#include <array>
#include <cstdint>

enum offload_answer : uint8_t { OFFLOAD_NO, OFFLOAD_YES, OFFLOAD_UNKNOWN };

struct offload_finding {
    offload_answer answer = OFFLOAD_UNKNOWN;
    std::array<char, 192> sentence{}; // for the user; names the interface
};

struct offload_findings {
    offload_finding switch_chip; // the port is one of a switch that forwards between its ports by itself
    offload_finding tc_offload;  // filters may run in the interface's hardware
    offload_finding flow_table;  // established flows are handed from interface to interface

    [[nodiscard]] bool any() const {
        return switch_chip.answer == OFFLOAD_YES || tc_offload.answer == OFFLOAD_YES ||
               flow_table.answer == OFFLOAD_YES;
    }
};

// Looks at one interface, by its name. What cannot be found out is OFFLOAD_UNKNOWN with the reason in its sentence.
[[nodiscard]] offload_findings offload_find(rtnl_socket &rtnl, const char *ifname);

// The three answers from what the kernel said: `result` is 0 or the errno of asking.
[[nodiscard]] offload_finding judge_switch_chip(const char *ifname, int result, const link_info &link);
[[nodiscard]] offload_finding judge_tc_offload(const char *ifname, int result, bool on);
[[nodiscard]] offload_finding judge_flow_table(const char *ifname, int result, const flow_table_use &use);
