#include "model_ports/explore.h"

#include "core/event.h"
#include "core/log.h"
#include "loop_avoidance/module.h"

#include <algorithm>
#include <bitset>
#include <vector>

namespace {

constexpr node_role ROLES[] = {
    {.name = "RE", .mode = KOLT_MODE_RE},
    {.name = "RE with Ethernet traffic", .mode = KOLT_MODE_RE, .traffic = true},
    {.name = "RE with traffic on the first Ethernet port",
     .mode = KOLT_MODE_RE,
     .traffic = true,
     .traffic_on_first = true},
    {.name = "FAP", .mode = KOLT_MODE_FAP},
    {.name = "HAP", .mode = KOLT_MODE_HAP},
    {.name = "HAP, root of power line", .mode = KOLT_MODE_HAP, .plc_root = true},
    {.name = "no role", .mode = KOLT_MODE_UNKNOWN},
};
constexpr uint32_t ROLE_COUNT = std::size(ROLES);
constexpr uint32_t LINK_STATES = 1 << KOLT_LINK_COUNT;

// The role that the files tell now, the links that are up, and the ports' relay flags, which outlast an event.
struct state {
    uint8_t role;
    uint8_t links_up;
    uint8_t relays;
};
constexpr uint32_t STATES = ROLE_COUNT * LINK_STATES << NODE_MAX_PORTS;

uint32_t number_of(const state &one) {
    return (uint32_t{one.role} * LINK_STATES + one.links_up) << NODE_MAX_PORTS | one.relays;
}

// The modes that anybody on the bus can name, whatever the files say.
constexpr uint32_t NAMED_MODES[] = {KOLT_MODE_RE, KOLT_MODE_FAP, KOLT_MODE_HAP};

// The events: another role, told with its name or found in the files; a link that comes or goes; the bridge's own.
constexpr uint32_t CONFIGURES = ROLE_COUNT;
constexpr uint32_t ROLE_CHANGES = CONFIGURES + ROLE_COUNT; // nobody tells of them
constexpr uint32_t LINK_CHANGES = ROLE_CHANGES + KOLT_LINK_COUNT;
// LINK_CHANGES itself is the bridge's message; the next is to configure for the role that the files have.
constexpr uint32_t OWN_ROLE = LINK_CHANGES + 1;
constexpr uint32_t EVENTS = OWN_ROLE + 1 + std::size(NAMED_MODES);
constexpr uint32_t BRIDGE_RECONFIGURE = 6;

void put(const state &one) {
    node.role = ROLES[one.role];
    node.links_up = one.links_up;
    for (uint8_t i = 0; i < node.ports; i++)
        node.settings.interfaces[i].relay = one.relays >> i & 1;
}

state taken(uint8_t role) {
    state now{.role = role, .links_up = node.links_up, .relays = 0};
    for (uint8_t i = 0; i < node.ports; i++)
        now.relays |= static_cast<uint8_t>(node.settings.interfaces[i].relay << i);
    return now;
}

void tell(kolt_event_kind kind, uint32_t type) {
    kolt_event event{.type = type};
    loop_avoidance_event_cb(&node.settings, nullptr, kind, kind == KOLT_EVENT_START ? nullptr : &event);
}

// Whether ports were programmed.
bool happen(uint32_t event, state *now) {
    node.told.fill({});
    if (event < ROLE_CHANGES) {
        now->role = static_cast<uint8_t>(event % ROLE_COUNT);
        node.role = ROLES[now->role];
    }
    if (event < CONFIGURES) {
        tell(KOLT_EVENT_CONFIGURE, node.role.mode);
    } else if (event < ROLE_CHANGES) {
        return false;
    } else if (event < LINK_CHANGES) {
        const uint32_t link = event - ROLE_CHANGES;
        node.links_up ^= static_cast<uint8_t>(1 << link);
        tell(KOLT_EVENT_LINK_STATE, link == KOLT_LINK_ETHERNET ? 1 : 0);
    } else if (event == LINK_CHANGES) {
        tell(KOLT_EVENT_BRIDGE, BRIDGE_RECONFIGURE);
    } else {
        tell(KOLT_EVENT_CONFIGURE, event == OWN_ROLE ? KOLT_MODE_UNKNOWN : NAMED_MODES[event - OWN_ROLE - 1]);
    }
    return true;
}

std::string wrong_port() {
    for (uint8_t i = 0; i < node.ports; i++) {
        const config_interface &port = node.settings.interfaces[i];
        const told_port &told = node.told[i];
        if (told.broadcast == NOT_TOLD)
            return "a port was not told whether it carries broadcast";
        if (told.group != NOT_TOLD && told.group != port.relay)
            return "the bridge was told another relay group than the port has";
        if (port.is_relay() && told.broadcast != 1)
            return "a relay port carries no broadcast";
    }
    return {};
}

// One nonrelay port of each class that has any carries broadcast, and one whose link is up if there is such a one.
std::string wrong_class(uint8_t bcast_class) {
    unsigned nonrelay = 0;
    unsigned carrying = 0;
    bool any_up = false;
    bool carrying_up = false;
    for (uint8_t i = 0; i < node.ports; i++) {
        const config_interface &port = node.settings.interfaces[i];
        if (port.is_relay() || port.class_ != bcast_class)
            continue;
        const bool up = (node.links_up >> port.type & 1) != 0;
        const bool carries = node.told[i].broadcast == 1;
        nonrelay++;
        carrying += carries ? 1 : 0;
        any_up |= up;
        carrying_up |= up && carries;
    }
    if (carrying > 1)
        return "several nonrelay ports of a class carry broadcast";
    if (nonrelay > 0 && carrying == 0)
        return "no nonrelay port of a class carries broadcast";
    return any_up && !carrying_up ? "the nonrelay port that carries broadcast is down, and another is up" : "";
}

std::string what_is_wrong() {
    for (std::string wrong : {wrong_port(), wrong_class(KOLT_BCAST_CLASS_0), wrong_class(KOLT_BCAST_CLASS_1)}) {
        if (!wrong.empty())
            return wrong;
    }
    return {};
}

std::string describe(std::span<const port_kind> ports, const state &before, int event) {
    std::string text = ": ports (type/class/relay)";
    for (const port_kind &port : ports)
        text += " " + std::to_string(port.type) + "/" + std::to_string(port.class_) + "/" + std::to_string(port.relay);
    return text + "; " + ROLES[before.role].name + ", links up " + std::to_string(before.links_up) + ", relay flags " +
           std::to_string(before.relays) + (event < 0 ? ", start" : ", event " + std::to_string(event));
}

class walk {
public:
    explicit walk(std::span<const port_kind> ports) : ports_(ports) {
        node.ports = static_cast<uint8_t>(ports.size());
        node.settings.bridge_num = 1;
        node.settings.bridges[0].name[0] = 'b';
        for (uint8_t i = 0; i < node.ports; i++) {
            node.settings.interfaces[i] = {.type = ports[i].type, .relay = ports[i].relay, .class_ = ports[i].class_};
            node.settings.interfaces[i].name[0] = static_cast<char>('a' + i);
        }
    }

    explored run() {
        start();
        while (!todo_.empty() && found_.wrong.empty()) {
            const state before = todo_.back();
            todo_.pop_back();
            for (uint32_t event = 0; event < EVENTS && found_.wrong.empty(); event++)
                step(before, static_cast<int>(event));
        }
        return found_;
    }

private:
    void start() {
        state before{.role = 0, .links_up = 0, .relays = 0};
        for (size_t i = 0; i < ports_.size(); i++)
            before.relays |= static_cast<uint8_t>(ports_[i].relay << i);
        for (before.role = 0; before.role < ROLE_COUNT; before.role++) {
            for (uint32_t links = 0; links < LINK_STATES && found_.wrong.empty(); links++) {
                before.links_up = static_cast<uint8_t>(links);
                step(before, -1);
            }
        }
    }

    void step(const state &before, int event) {
        put(before);
        state now = before;
        bool programmed = true;
        if (event < 0) {
            node.told.fill({});
            tell(KOLT_EVENT_START, 0);
        } else {
            programmed = happen(static_cast<uint32_t>(event), &now);
        }
        found_.events++;
        if (programmed)
            found_.wrong = what_is_wrong();
        if (!found_.wrong.empty())
            found_.wrong += describe(ports_, before, event);
        const state after = taken(now.role);
        if (seen_[number_of(after)])
            return;
        seen_[number_of(after)] = true;
        found_.states++;
        todo_.push_back(after);
    }

    std::span<const port_kind> ports_;
    std::bitset<STATES> seen_;
    std::vector<state> todo_;
    explored found_;
};

} // namespace

port_kind kind_of(uint32_t number) {
    return {.type = static_cast<kolt_link_type>(number / 4),
            .class_ = static_cast<uint8_t>(number / 2 % 2),
            .relay = static_cast<uint8_t>(number % 2)};
}

explored explore_ports(std::span<const port_kind> ports) {
    log_level = KOLT_LOG_QUIET;
    return walk(ports).run();
}
