// From what the node knows to what each backhaul port may do: the word that the kernel's programs read, and the flags
// of the port in the bridge. And how to get from one state of all ports to the next without a moment of both.
#pragma once

#include "decide/tree.h"

#include <array>
#include <cstddef>
#include <cstdint>

enum port_flag : uint8_t {
    PORT_OPEN = 1,    // frames pass; else only neighbour frames do
    PORT_NEED_HA = 2, // streams that leave here get an entry of their own
    PORT_FOLLOW = 4,  // streams leave by the link on which their other direction arrived
};

constexpr uint32_t GROUP_NONE = 0;
constexpr uint32_t GROUP_UP = 1;          // the links to the parent, or to whatever feeds a root
constexpr uint32_t GROUP_FIRST_CHILD = 2; // plus the child's place among the neighbours, which it keeps

struct port_word {
    uint32_t group = GROUP_NONE; // frames do not leave by the group that they came in by
    uint8_t flags = 0;
    uint8_t admits = 0;  // a bit per class: group frames that may come in
    uint8_t accepts = 0; // and those that may leave
    uint8_t class_ = 0;
    bool operator==(const port_word &) const = default;
};

// What the bridge may send out of the port without an entry for the address, and whether it learns there.
struct port_flooding {
    bool flood = false;
    bool mcast_flood = false;
    bool bcast_flood = false;
    bool learning = false;
    bool mcast_router = false; // whether groups may be asked for behind it
    bool operator==(const port_flooding &) const = default;
};

struct port_setting {
    uint32_t ifindex = 0; // 0 = no port
    port_word word;
    port_flooding flooding;
    bool operator==(const port_setting &) const = default;
};

using port_settings = std::array<port_setting, TREE_PORTS>;

// What every port may do now, by slot.
void port_words(const tree &self, port_settings *settings);

// At most TREE_PORTS steps that only take away, then, after the frames that are due have been sent, at most as many
// that only give. A step is the whole new setting of one port; `closing` also has the ports that are no longer there.
struct port_plan {
    std::array<port_setting, 2 * TREE_PORTS> closing;
    std::array<port_setting, TREE_PORTS> opening;
    size_t closing_count = 0;
    size_t opening_count = 0;
};

// The way from `from` (what was set last; all empty at first) to `to`.
void port_plan_make(const port_settings &from, const port_settings &to, port_plan *plan);

// Whether the group frames of a class leave towards the parent here.
[[nodiscard]] bool carries_class(const port_setting &setting, unsigned bcast_class);

// The port that takes over the streams of another, which is closed on the way from `from` to `to`: the best one of its
// group that is open then; 0 without any.
[[nodiscard]] uint32_t backup_port(const tree &self, const port_settings &from, const port_settings &to,
                                   uint32_t ifindex);
