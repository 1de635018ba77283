// Any bytes as what a bridge answers to the question for its ports. The first byte chooses whether the bridge is there
// (bit 0: not) and whether it refuses (bit 1); then the length that the answer has by its own account, 32 bits, and its
// records.
#include "core/log.h"
#include "core_log.h"
#include "probes/ports.h"
#include "support/platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

// Every port once at most needs the room that there is; a reply may name one as often as it likes.
void check(const config &record, const kolt_port_list &ports, uint32_t count) {
    require(count == ports.count && count <= CONFIG_MAX_INTERFACES);
    for (const config_interface *port : ports.span()) {
        require(port >= record.interfaces && port < record.interfaces + record.interface_num);
        require(port->ifindex >= 1 && port->ifindex <= PLATFORM_INTERFACES);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    static config record;
    log_level = KOLT_LOG_DUMP;
    platform_reset();
    platform_configure(&record);
    const uint8_t how = input.byte();
    platform.active = (how & 1) == 0;
    platform.ports_fail = (how & 2) != 0;
    platform.ports_length = input.number<uint32_t>();
    platform.ports = input.left;

    const auto ports = std::make_unique<kolt_port_list>(); // a block of its own: what stands behind it is out of bounds
    check(record, *ports, kolt_get_active_ports(&record, "br-lan", ports.get()));
    require(how % 4 == 0 || ports->count == 0);
    const uint32_t active = ports->count;
    check(record, *ports, kolt_get_path_ports(&record, "br-lan", ports.get()));
    require(ports->count <= active);
    for (const config_interface *port : ports->span())
        require(port->path != 0);
    require(kolt_is_loop_avoiding(record.bridges[0]) == platform.active);
    return 0;
}
