// The whole state of kolt-bridged: what it holds open, and for each bridge of the configuration the tree of nodes that
// its links span, the clients that were placed, and what its ports are set to.
#pragma once

#include "bridged/bus.h"
#include "bridged/node_report.h"
#include "bridged/requests/server.h"
#include "bridged/settings.h"
#include "core/config.h"
#include "core/ubus.h"
#include "decide/port_words.h"
#include "decide/record.h"
#include "kernel/net/bridge_ports.h"
#include "kernel/net/fdb.h"
#include "kernel/net/monitor.h"
#include "kernel/net/raw_socket.h"
#include "kernel/net/rtnl.h"
#include "kernel/programs.h"
#include "kernel/streams.h"

#include <array>
#include <cstdint>

constexpr size_t MAX_CLIENTS = 1024;   // with an HD entry, of one bridge
constexpr size_t MAX_NODE_PORTS = 128; // of one bridge, access ports included
static_assert(MAX_NODE_PORTS >= CONFIG_MAX_INTERFACES);
static_assert(KOLT_MAX_LINKS >= TREE_PORTS * CONFIG_MAX_BRIDGES);

struct bridged;
struct bridge_node;

// A port of a bridge. Those that are no backhaul ports have neither socket nor programs.
struct node_port {
    uint32_t ifindex = 0; // 0: the place is free
    char name[KOLT_NAME_SIZE] = {};
    bool backhaul = false;
    bool guarded = false;  // the programs stand on it
    bool shut = false;     // they cannot: the bridge itself keeps it closed
    bool listened = false; // in the loop
    bool unset = false;    // the bridge has not taken what it was set to last
    bool touched = false;  // somebody else may have set it meanwhile
    bool unfit = false;    // it was set meanwhile as no port is taken in, which was told
    fdb_mac mac{};         // that its frames to neighbours come from: the bridge's, which they may learn
    raw_socket frames;
    uloop_fd watch = {};
    uint64_t heard_packets = 0; // the interface's counter at the last beat, while echoes are late
    bridge_port_flags found;    // how the port was set before
    bridge_node *node = nullptr;
};

// A client that kolt has placed, where it wants it. Where it is, the kernel's table says.
struct placed_client {
    fdb_mac mac{};
    fdb_mac second_mac{};
    uint32_t wished = 0; // interface index
    uint32_t placed = 0;
};

struct bridge_node {
    bridged *owner = nullptr;
    char name[KOLT_NAME_SIZE] = {};
    uint32_t ifindex = 0;        // 0: there is no such bridge at present
    uint32_t refused = 0;        // or there is this one, which cannot be kept
    const char *unfit = nullptr; // why one that is kept would not be taken now, as it was told
    fdb_mac mac{};
    tree links;
    port_settings set{};  // what the ports were set to last
    port_settings left{}; // and what the process before left them set to, as its file tells
    bool came = false;    // what that process has placed is still to be looked at
    uint32_t seen_changes = 0;
    uint64_t seen_parent = 0; // MAC
    uint64_t announce_ms = 0; // when a new parent is told who is behind this node, 0: it has been
    tree_record saved{};      // as it stands in its file
    uint64_t save_again_ms = 0;
    std::array<node_port, MAX_NODE_PORTS> ports;
    std::array<placed_client, MAX_CLIENTS> clients{};
    size_t client_count = 0;
    uint64_t full_until_ms = 0; // no client gives its place up before
};

// What the loop calls back. It tells who is meant by an address of its own, for which it is plain enough.
struct bridged_watches {
    bridged *owner = nullptr;
    uloop_fd monitor = {};         // the kernel's announcements
    uloop_timeout first_turn = {}; // of the loop
    uloop_timeout beat = {};       // the trees' own time
    uloop_timeout second = {};     // what is looked at every second
    uloop_timeout period = {};     // the measuring period
    uloop_timeout look = {};       // another look at the ports: the last one failed, or followed an overrun
};

struct bridged {
    bridged_settings settings;
    config configured;
    kolt_work_mode mode = KOLT_MODE_RE;
    bool mode_goes_on = false; // it is that of the process before, as its trees are
    rtnl_socket rtnl;
    kernel_monitor monitor;
    kolt_programs programs;
    kolt_streams streams;
    requests_server *requests = nullptr;
    bus_sender bus;
    node_report reported; // as it stands in the files
    node_report told;     // as the bus was told
    bridged_watches watches;
    uint64_t beat_at = 0;
    std::array<bridge_node, CONFIG_MAX_BRIDGES> bridges;
    uint32_t bridge_count = 0;
};

// CLOCK_MONOTONIC in ms.
[[nodiscard]] uint64_t node_now();

// The bridge of that name or index, null when the configuration has none such.
[[nodiscard]] bridge_node *node_find(bridged *self, const char *name);
[[nodiscard]] bridge_node *node_find_index(bridged *self, uint32_t ifindex);

// What the configuration says of an interface, null when it does not name it.
[[nodiscard]] const config_interface *node_configured(const bridged *self, const char *name);

// The class of group frames that come in by an interface; of one that is not configured, or not as one of them, the
// first.
[[nodiscard]] uint8_t node_class_of(const config_interface *interface);

// A place for one more port, null when there is none.
[[nodiscard]] node_port *node_free_place(bridge_node *node);

// The port of that name or index, or null.
[[nodiscard]] node_port *node_find_port(bridge_node *node, const char *name);
[[nodiscard]] node_port *node_find_port_index(bridge_node *node, uint32_t ifindex);
