// Any bytes as the kernel's table of interfaces (/proc/net/dev), as the daemon reads it and as kolt-top does. Before
// the first 0x1e stands the name of an interface.
#include "counters.h"

#include "core/names.h"
#include "core_log.h"
#include "probes/counters.h"
#include "support/files.h"

#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

bool has_line_of(std::string_view table, std::string_view name) {
    return table.find(std::string(name) + ":") != std::string_view::npos;
}

void read_counters(bytes table, bytes name) {
    const auto field = copy_of(name); // not terminated when it is full
    kolt_if_stat stat{.seconds = 1, .rx_bytes = 2, .rx_packets = 3, .tx_bytes = 4, .tx_packets = 5};
    const int result = kolt_get_if_stat(reinterpret_cast<const char *>(field.get()), &stat);
    require(result == 0 || result == 1);
    require(result == 1 || (stat.seconds == 1 && stat.rx_bytes == 2 && stat.tx_packets == 5));
    const std::string_view text(reinterpret_cast<const char *>(table.data()), table.size());
    const std::string_view key(reinterpret_cast<const char *>(field.get()),
                               strnlen(reinterpret_cast<const char *>(field.get()), KOLT_NAME_SIZE));
    require(result == 0 || key.size() >= KOLT_NAME_SIZE || has_line_of(text, key));
    kolt_if_stat again;
    require(kolt_get_if_stat(reinterpret_cast<const char *>(field.get()), &again) == result);
    require(result == 0 || (again.rx_bytes == stat.rx_bytes && again.tx_packets == stat.tx_packets));
}

// kolt-top takes whole names alone, and whole lines.
void read_top_counters(bytes table, const std::string &name) {
    static const auto READER = std::make_unique<top_counter_table>();
    READER->read();
    require(memchr(READER->text, '\0', sizeof READER->text) != nullptr);
    top_counters counters;
    const bool found = READER->find(name.c_str(), &counters);
    const std::string_view text(reinterpret_cast<const char *>(table.data()), table.size());
    require(!found || has_line_of(text, name));
    top_counters again;
    require(READER->find(name.c_str(), &again) == found);
    require(!found || (again.rx_bytes == counters.rx_bytes && again.tx_packets == counters.tx_packets));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    uint8_t name[KOLT_NAME_SIZE] = {};
    const bytes asked = input.text();
    std::copy_n(asked.begin(), std::min(asked.size(), sizeof name), name);
    serve_file("/proc/net/dev", input.left);
    read_counters(input.left, name);
    read_top_counters(
        input.left, {reinterpret_cast<const char *>(name), strnlen(reinterpret_cast<const char *>(name), sizeof name)});
    require(kolt_get_if_stat(nullptr, nullptr) == 0 && open_pipes == 0);
    return 0;
}
