// Any bytes as events of the bus, up to what the modules do about them. The first byte is the node's state (below);
// then each event is a byte for its name and a part with its members, with the name before that when the byte says so.
#include "core/hub/dispatch.h"
#include "core/hub/ubus_events.h"
#include "core/log.h"
#include "support/daemon.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr size_t MOST_EVENTS = 16;

enum node_state : uint8_t {
    MODE = 3, // RE, FAP, HAP, not told
    LINKS_UP = 4,
    ETHERNET_TRAFFIC = 8,
    BRIDGES_GONE = 16,
    BRIDGES_REFUSE = 32,
};

void serve_text(const char *path, const std::string &text) {
    serve_file(path, {reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

void serve_node(uint8_t state) {
    constexpr const char *MODES[] = {"RE", "FAP", "HAP"};
    const std::string mode = (state & MODE) < 3 ? MODES[state & MODE] : "";
    const std::string up = (state & LINKS_UP) != 0 ? "1" : "0";
    for (const char *path : DAEMON_RUNTIME_FILES)
        serve_text(path, "{\"work_mode\":\"" + mode + "\",\"status\":" + up + "}");
    if ((state & ETHERNET_TRAFFIC) != 0)
        serve_text("/etc/config/tolmux", "config tolmux tolmux\noption TrafficEthActive 1\noption TrafficPlcRoot 1\n"
                                         "option TrafficEthInterface eth0\noption eth_HasNeigh 3\n");
    platform.active = (state & BRIDGES_GONE) == 0;
    platform.setting = (state & BRIDGES_REFUSE) != 0 ? -1 : 0;
}

// The library has made sure that the attribute is as long as it says; what is in it may be anything.
void receive(config *record, const std::string &name, bytes members) {
    const std::unique_ptr<uint8_t[]> memory(new uint8_t[sizeof(blob_attr) + members.size()]);
    auto *attribute = reinterpret_cast<blob_attr *>(memory.get());
    attribute->id_len = htobe32(static_cast<uint32_t>(sizeof(blob_attr) + members.size()) | UINT32_C(7) << 24);
    std::copy(members.begin(), members.end(), memory.get() + sizeof(blob_attr));
    event_ubus_receive_cb(nullptr, &record->ev.ubus_handler, name.c_str(), attribute);
}

std::string next_name(fuzz_input *input) {
    constexpr const char *NAMES[] = {"kolt.configure", "kolt.link_state", "kolt.debug"};
    const uint8_t which = input->byte() & 3;
    if (which < 3)
        return NAMES[which];
    const bytes text = input->text();
    return {text.begin(), text.end()};
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    config *record = daemon_anew();
    const uint8_t state = input.byte();
    serve_node(state);
    for (size_t i = 0; i < MOST_EVENTS && !input.left.empty(); i++) {
        const std::string name = next_name(&input);
        receive(record, name, input.part());
        require(log_level >= KOLT_LOG_QUIET && log_level <= KOLT_LOG_DUMP);
        require(platform.active || journal.settings == 0);
    }
    event_ubus_receive_cb(nullptr, &record->ev.ubus_handler, "kolt.link_state", nullptr);
    require(open_pipes == 0);
    return 0;
}
