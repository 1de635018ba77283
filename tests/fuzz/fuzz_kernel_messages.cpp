// Any bytes as a datagram of the kernel: what it tells of interfaces, bridges, their ports and tables, of the packet
// filter's flow tables, and why it refuses something. record_kernel_messages made the seeds.
#include "kernel/net/bridge_ports.h"
#include "kernel/net/flow_tables.h"
#include "kernel/net/messages.h"
#include "kernel/net/monitor.h"
#include "kernel/net/rtnl.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr size_t LONGEST = 32768; // that is received

void require(bool holds) {
    if (!holds)
        abort();
}

// A copy that ends with the bytes, so that one behind them is out of bounds.
std::unique_ptr<std::byte[]> copy_of(const void *bytes, size_t size) {
    std::unique_ptr<std::byte[]> copy(new std::byte[size]);
    memcpy(copy.get(), bytes, size);
    return copy;
}

template <size_t Size> bool ends(const std::array<char, Size> &text) {
    return memchr(text.data(), '\0', Size) != nullptr;
}

void check_link(const link_info &link) {
    require(ends(link.name));
    require(link.ethernet || std::all_of(link.mac.begin(), link.mac.end(), [](uint8_t byte) { return byte == 0; }));
    require(!link_works(link) || (link.up && link.carrier && !link.deleted));
}

void check_entry(const fdb_record &entry) {
    require(entry.bridge != 0);
    require(!entry.is_local || entry.is_static);
    require(!entry.is_static || entry.age_ticks == 0);
}

// How much of each kind was told, which must not depend on what stands around a message.
struct told {
    size_t links = 0;
    size_t ports = 0;
    size_t entries = 0;
    bool operator==(const told &) const = default;
};

told tell(std::span<const std::byte> datagram) {
    told all;
    const auto link = [&all](const link_info &one) {
        check_link(one);
        all.links++;
    };
    const auto port = [&all](const bridge_port & /*one*/) { all.ports++; };
    const auto entry = [&all](const fdb_record &one) {
        check_entry(one);
        all.entries++;
    };
    monitor_callbacks callbacks;
    callbacks.link = link;
    callbacks.port = port;
    callbacks.fdb = entry;
    monitor_tell(datagram, callbacks);
    return all;
}

// What asks for a single message reads that alone.
void read_alone(const nlmsghdr &message) {
    bridge_settings settings;
    (void)bridge_parse(message, &settings);
    require(settings.index == 0);
    flow_table_use use;
    if (flow_table_parse(message, "eth0", &use))
        require(use.found && ends(use.name));
    require(rtnl_words(message).size() <= message.nlmsg_len);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > LONGEST)
        return 0;
    const auto datagram = copy_of(data, size);
    const told together = tell({datagram.get(), size});
    told one_by_one;
    message_reader messages({datagram.get(), size});
    while (const nlmsghdr *message = messages.next()) {
        const auto alone = copy_of(message, message->nlmsg_len);
        read_alone(*reinterpret_cast<const nlmsghdr *>(alone.get()));
        const told said = tell({alone.get(), message->nlmsg_len});
        one_by_one.links += said.links;
        one_by_one.ports += said.ports;
        one_by_one.entries += said.entries;
    }
    require(together == one_by_one);
    return 0;
}
