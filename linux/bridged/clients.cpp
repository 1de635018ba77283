// A client's place is two entries: one in the programs' table, so that its streams are counted, and one in the bridge's
// that neither ages nor moves when its frames arrive by several links.
#include "bridged/clients.h"

#include "core/log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr uint32_t CLIENT_UNUSED_TICKS = 3000; // of 1/100 s: when its streams are forgotten, too
constexpr uint64_t LOOK_FOR_ROOM_MS = 1000;

// Frames for this node itself must not be sent away.
bool is_own(const bridge_node *node, const uint8_t *mac) {
    fdb_mac address;
    memcpy(address.data(), mac, address.size());
    fdb_record found;
    return fdb_find(node->owner->rtnl, node->ifindex, address, &found) == 0 && found.is_local;
}

bool is_open_port(const bridge_node *node, uint32_t ifindex) {
    const int slot = ifindex == 0 ? NO_SLOT : tree_slot(node->links, ifindex);
    return slot != NO_SLOT && (node->set[static_cast<size_t>(slot)].word.flags & PORT_OPEN) != 0;
}

placed_client *find(bridge_node *node, const uint8_t *mac) {
    for (size_t i = 0; i < node->client_count; i++) {
        if (memcmp(node->clients[i].mac.data(), mac, KOLT_MAC_SIZE) == 0)
            return &node->clients[i];
    }
    return nullptr;
}

void forget(bridge_node *node, placed_client *client) {
    *client = node->clients[--node->client_count];
}

placed_client *add(bridge_node *node, const uint8_t *mac) {
    if (node->client_count == MAX_CLIENTS)
        return nullptr;
    placed_client *client = &node->clients[node->client_count++];
    *client = {};
    memcpy(client->mac.data(), mac, KOLT_MAC_SIZE);
    return client;
}

// Collects what is to be pinned, so that a thousand clients are one exchange with the kernel.
class placing {
public:
    explicit placing(bridge_node *node) : node_(node) {}

    // In no place after all when the programs' table has none left.
    void place(placed_client *client, uint32_t ifindex) {
        if (ifindex != 0 && !node_->owner->programs.hd_set(client->mac.data(), ifindex)) {
            full_ = true;
            ifindex = 0;
        }
        client->placed = ifindex;
        if (ifindex == 0) {
            gone_[gone_count_++] = {client->mac, 0};
            (void)node_->owner->programs.hd_remove(client->mac.data());
            return;
        }
        pinned_[pinned_count_++] = {client->mac, ifindex};
    }

    // The first error.
    int finish() {
        const int pinned = fdb_pin(node_->owner->rtnl, {pinned_.data(), pinned_count_});
        for (size_t i = 0; i < gone_count_; i++) {
            fdb_record record;
            if (fdb_find(node_->owner->rtnl, node_->ifindex, gone_[i].mac, &record) == 0)
                gone_[i].port = record.port;
        }
        (void)fdb_remove(node_->owner->rtnl, {gone_.data(), gone_count_}); // an entry that is not there is fine
        return pinned != 0 ? pinned : full_ ? ENOSPC : 0;
    }

private:
    bridge_node *node_;
    std::array<fdb_place, MAX_CLIENTS> pinned_;
    std::array<fdb_place, MAX_CLIENTS> gone_;
    size_t pinned_count_ = 0;
    size_t gone_count_ = 0;
    bool full_ = false;
};

void tell_failed(const bridge_node *node, int error) {
    if (error != 0)
        KOLT_ERROR_AS("clients_place", "%s: cannot place its clients: %s", node->name,
                      error == ENOSPC ? strerror(error) : node->owner->rtnl.last_error().text.data());
}

// The client without a frame for the longest time, if that is long enough; null when there is none.
placed_client *longest_unused(bridge_node *node) {
    placed_client *longest = nullptr;
    uint32_t ticks = CLIENT_UNUSED_TICKS - 1;
    const int error = fdb_dump(node->owner->rtnl, node->ifindex, [&](const fdb_record &entry) {
        if (!entry.sticky || entry.idle_ticks <= ticks)
            return;
        if (placed_client *client = find(node, entry.mac.data()); client != nullptr) {
            longest = client;
            ticks = entry.idle_ticks;
        }
    });
    return error == 0 ? longest : nullptr;
}

// Entries that are pinned do not age, and whoever has placed a client does not take it back by itself. One that is of
// no use now gives its place up.
void make_room(bridge_node *node) {
    const auto end = node->clients.begin() + static_cast<ptrdiff_t>(node->client_count);
    const auto nowhere =
        std::find_if(node->clients.begin(), end, [](const placed_client &client) { return client.placed == 0; });
    if (nowhere != end)
        return forget(node, &*nowhere);
    const uint64_t now = node_now();
    if (now < node->full_until_ms)
        return;
    if (placed_client *client = longest_unused(node); client != nullptr)
        (void)clients_remove(node, fdb_mac(client->mac).data());
    else
        node->full_until_ms = now + LOOK_FOR_ROOM_MS;
}

} // namespace

int clients_add(bridge_node *node, const uint8_t *mac, const uint8_t *second_mac, const char *ifname) {
    const node_port *port = node_find_port(node, ifname);
    if (port == nullptr)
        return ENODEV;
    if ((mac[0] & 1) != 0 || is_own(node, mac))
        return EINVAL;
    placed_client *client = find(node, mac);
    if (client == nullptr && node->client_count == MAX_CLIENTS)
        make_room(node);
    if (client == nullptr)
        client = add(node, mac);
    if (client == nullptr)
        return ENOSPC;
    memcpy(client->second_mac.data(), second_mac, KOLT_MAC_SIZE);
    client->wished = port->ifindex;
    if (client->placed == port->ifindex)
        return 0;
    if (!is_open_port(node, port->ifindex))
        return client->placed != 0 ? 0 : ENETDOWN;
    placing work(node);
    work.place(client, port->ifindex);
    const int error = work.finish();
    if (error != 0) { // one that stands nowhere may be asked for again
        placing undo(node);
        undo.place(client, 0);
        (void)undo.finish();
    }
    return error;
}

// kolt names the bridge's own address with every client.
void clients_take_over(bridge_node *node, const uint8_t *mac, uint32_t ifindex) {
    placed_client *client = add(node, mac);
    if (client == nullptr)
        return;
    client->second_mac = node->mac;
    client->wished = ifindex;
    client->placed = ifindex;
}

void clients_pin(bridge_node *node) {
    placing work(node);
    for (size_t i = 0; i < node->client_count; i++) {
        if (node->clients[i].placed != 0)
            work.place(&node->clients[i], node->clients[i].placed);
    }
    tell_failed(node, work.finish());
}

bool clients_know(const bridge_node &node, const uint8_t *mac) {
    return std::any_of(node.clients.begin(), node.clients.begin() + static_cast<ptrdiff_t>(node.client_count),
                       [mac](const placed_client &one) { return memcmp(one.mac.data(), mac, KOLT_MAC_SIZE) == 0; });
}

int clients_remove(bridge_node *node, const uint8_t *mac) {
    placed_client *client = find(node, mac);
    if (client == nullptr)
        return ENOENT;
    placing work(node);
    work.place(client, 0);
    forget(node, client);
    return work.finish();
}

void clients_flush(bridge_node *node) {
    placing work(node);
    for (size_t i = 0; i < node->client_count; i++)
        work.place(&node->clients[i], 0);
    node->client_count = 0;
    (void)work.finish();
}

void clients_move_off(bridge_node *node, uint32_t ifindex, uint32_t backup) {
    placing work(node);
    for (size_t i = 0; i < node->client_count; i++) {
        if (node->clients[i].placed == ifindex)
            work.place(&node->clients[i], backup);
    }
    (void)work.finish();
}

void clients_place(bridge_node *node) {
    placing work(node);
    for (size_t i = 0; i < node->client_count; i++) {
        placed_client &client = node->clients[i];
        if (client.placed != client.wished && is_open_port(node, client.wished))
            work.place(&client, client.wished);
    }
    tell_failed(node, work.finish());
}

void clients_take_roamed(bridged *self) {
    fdb_mac mac{};
    for (size_t i = 0; i < CLIENTS_ROAMED_A_TURN && self->programs.roamed_take(mac.data()); i++) {
        if (self->programs.hd_find(mac.data()) != 0)
            continue; // it was placed anew since
        for (uint32_t j = 0; j < self->bridge_count; j++)
            (void)clients_remove(&self->bridges[j], mac.data()); // it was placed on one of them at most
    }
}

namespace {

constexpr size_t MAX_ANNOUNCED = 512;
constexpr size_t ANNOUNCEMENT_SIZE = 60;

// A frame from the client to all that tells nothing but where it is: an empty exchange of identifications (LLC XID).
std::array<uint8_t, ANNOUNCEMENT_SIZE> announcement(const fdb_mac &mac) {
    constexpr uint8_t EXCHANGE[] = {0x00, 0x06, 0x00, 0x01, 0xAF, 0x81, 0x01, 0x00};
    std::array<uint8_t, ANNOUNCEMENT_SIZE> frame{};
    memset(frame.data(), 0xFF, KOLT_MAC_SIZE);
    memcpy(frame.data() + KOLT_MAC_SIZE, mac.data(), KOLT_MAC_SIZE);
    memcpy(frame.data() + 2 * KOLT_MAC_SIZE, EXCHANGE, sizeof(EXCHANGE));
    return frame;
}

bool leads_up(const bridge_node *node, uint32_t ifindex) {
    const int slot = tree_slot(node->links, ifindex);
    return slot != NO_SLOT && node->set[static_cast<size_t>(slot)].word.group == GROUP_UP;
}

const node_port *port_up(bridge_node *node) {
    for (const port_setting &setting : node->set) {
        if (setting.word.group == GROUP_UP && carries_class(setting, KOLT_BCAST_CLASS_0))
            return node_find_port_index(node, setting.ifindex);
    }
    return nullptr;
}

} // namespace

void clients_announce(bridge_node *node) {
    const node_port *up = port_up(node);
    if (up == nullptr)
        return;
    size_t told = 0;
    (void)fdb_dump(node->owner->rtnl, node->ifindex, [&](const fdb_record &entry) {
        const bool here = entry.is_local ? entry.mac == node->mac : !leads_up(node, entry.port);
        if (here && told++ < MAX_ANNOUNCED)
            (void)up->frames.send(announcement(entry.mac)); // one that is lost speaks for itself sooner or later
    });
}
