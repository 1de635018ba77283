// Any text as the node's UCI options, from the file to what the daemon makes of the values. Separated by 0x1e: the
// names of the Ethernet ports (16 bytes each), the file, and the changes that wait to be taken over.
#include "core/log.h"
#include "core_log.h"
#include "probes/ports.h"
#include "probes/uci_options.h"
#include "support/files.h"
#include "support/platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr const char *TUPLES[] = {"tolmux.tolmux.TrafficPlcRoot", "tolmux.tolmux.TrafficEthActive",
                                  "tolmux.tolmux.eth_HasNeigh", "tolmux.tolmux.TrafficEthInterface"};

void check_value(const char *tuple) {
    constexpr uint8_t UNTOUCHED = 0xA5;
    const auto asked =
        copy_of({reinterpret_cast<const uint8_t *>(tuple), strlen(tuple) + 1}); // the look-up writes to it
    const std::unique_ptr<uint8_t[]> value(new uint8_t[UCI_VALUE_SIZE]);
    std::fill_n(value.get(), UCI_VALUE_SIZE, UNTOUCHED);
    const auto *text = reinterpret_cast<char *>(value.get());
    if (uci_get_value(reinterpret_cast<char *>(asked.get()), reinterpret_cast<char *>(value.get())) == 0)
        require(value[0] == UNTOUCHED);
    else
        require(strnlen(text, UCI_VALUE_SIZE) < UCI_VALUE_SIZE && uci_check_value(tuple, text) == 1);
}

void check_flags() {
    for (const int flag : {plc_is_root(), eth_traffic_is_active(), uci_check_value(TUPLES[2], "")})
        require(flag == 0 || flag == 1);
    for (const char *name : {"eth0", "eth1.5", "abcdefghijklmn", ""}) {
        const int answer = kolt_check_eth_has_neigh(name);
        require(answer == 0 || answer == 1);
    }
}

// Only Ethernet ports change their role, and all of them stay in the list.
void check_traffic_ports(config *record) {
    kolt_port_list ports;
    (void)kolt_get_active_ports(record, "br-lan", &ports);
    const auto count_relays = [&] {
        return std::count_if(ports.span().begin(), ports.span().end(), [](const config_interface *port) {
            return port->type != KOLT_LINK_ETHERNET && port->is_relay();
        });
    };
    const auto relays = count_relays();
    const int told = update_eth_traffic_ports(ports.span());
    require((told == 0 || told == 1) && count_relays() == relays);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    static config record;
    log_level = KOLT_LOG_DUMP;
    platform_reset();
    platform_configure(&record);
    platform.ethernets = input.text();
    platform.ethernet_count = static_cast<int8_t>(size);
    serve_file("/etc/config/tolmux", input.text());
    if (input.left.empty())
        miss_file("/var/state/tolmux");
    else
        serve_file("/var/state/tolmux", input.left);
    for (const char *tuple : TUPLES)
        check_value(tuple);
    check_flags();
    check_traffic_ports(&record);
    return 0;
}
