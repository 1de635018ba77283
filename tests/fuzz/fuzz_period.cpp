// Any bytes as all that a period of path selection reads: 8 bytes of parameters, the ports of the bridges, their FDB,
// HD and HA tables (as in fuzz_bridge_tables), one text for all runtime files, and the driver's station table, the
// driver's statistics, the kernel's table of interfaces and its CPU statistics, a part each.
#include "core/log.h"
#include "support/daemon.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr int PERIODS = 3; // in the second that is overloaded streams are moved

void set_parameters(config_param *param, fuzz_input *input) {
    const uint8_t flags = input->byte();
    param->cpu_limit = flags & 1;
    param->estimate_ack_enable = flags >> 1 & 1;
    param->wifi_rate_check = flags >> 2 & 1;
    param->backhual_prefered = static_cast<uint8_t>((flags >> 3) % 5);
    param->high_threshold = input->byte() % 101;
    param->delta_threshold = input->byte() % 101;
    param->reserved_ratio = input->byte() % 101;
    param->adjusted_streams = input->byte();
    param->adjusted_ratio = input->byte() % 101;
    param->cpu_threshold = input->byte();
    param->rate_abnormal_threshold = param->rate_threshold = input->byte();
}

void read_table(fuzz_input *input, platform_table *table) {
    table->fails = (input->byte() & 1) != 0;
    table->count = input->number<uint32_t>();
    table->second = input->number<uint32_t>();
    table->entries = input->part();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    config *record = daemon_anew();
    set_parameters(&record->param, &input);
    platform.ports = input.part();
    platform.ports_length = static_cast<uint32_t>(platform.ports.size());
    for (platform_table *table : {&platform.fdb, &platform.hd, &platform.ha})
        read_table(&input, table);
    const bytes runtime = input.part();
    for (const char *path : DAEMON_RUNTIME_FILES)
        serve_file(path, runtime);
    for (const char *path : DAEMON_DRIVER_FILES)
        serve_file(path, input.part());
    for (const char *path : {"/proc/net/dev", "/proc/stat"})
        serve_file(path, input.part());
    for (int i = 0; i < PERIODS; i++)
        daemon_period();
    require(open_pipes == 0);
    return 0;
}
