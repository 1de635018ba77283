// Any bytes as the kernel's CPU statistics (/proc/stat), two readings of them, separated by 0x1e.
#include "core/config.h"
#include "core_log.h"
#include "probes/cpu.h"
#include "support/files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

kolt_cpu_sample read_sample(bytes content) {
    serve_file("/proc/stat", content);
    const auto sample = std::make_unique<kolt_cpu_sample>(); // a block of its own
    kolt_read_cpu_sample(sample.get());
    return *sample;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_input input{{data, size}};
    const bytes first = input.text();
    const kolt_cpu_sample before = read_sample(first);
    (void)kolt_calculate_cpu_occupy(); // now the meter's last reading is this one
    const kolt_cpu_sample after = read_sample(input.left);
    const uint32_t occupancy = kolt_calculate_cpu_occupy();
    require(occupancy == kolt_cpu_occupancy(before, after));

    config record;
    record.param.cpu_threshold = 50;
    require(kolt_check_cpu_overload(&record) == 0); // nothing was counted since the last reading
    record.param.cpu_threshold = 0;
    const int opened = files_opened;
    require(kolt_check_cpu_overload(&record) == 0 && files_opened == opened);
    return 0;
}
