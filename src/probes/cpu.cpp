// The meter sets the kernel's counters against those of the reading before, whoever took that one.
#include "probes/cpu.h"

#include "core/config.h"
#include "core/file.h"
#include "core/log.h"

namespace {

// Lives as long as the process: a reading by one caller is the beginning of the next caller's interval.
struct {
    kolt_cpu_sample samples[2];
    bool read_first = true; // which of the two samples the next reading replaces
} meter;

uint32_t busy_time(const kolt_cpu_sample &sample) {
    return sample.user + sample.nice + sample.system + sample.irq + sample.softirq;
}

uint32_t total_time(const kolt_cpu_sample &sample) {
    return busy_time(sample) + sample.idle + sample.iowait;
}

} // namespace

void kolt_read_cpu_sample(kolt_cpu_sample *sample) {
    const file_ptr file(fopen("/proc/stat", "re"));
    if (!file)
        return;
    char line[1024] = {};
    if (fgets(line, sizeof line, file.get()) == nullptr)
        return;
    char name[16];
    (void)sscanf(line, "%15s %u %u %u %u %u %u %u", name, &sample->user, &sample->nice, &sample->system, &sample->idle,
                 &sample->iowait, &sample->irq, &sample->softirq); // a short line leaves the rest as it is
}

uint32_t kolt_cpu_occupancy(const kolt_cpu_sample &previous, const kolt_cpu_sample &current) {
    const uint32_t total = total_time(current) - total_time(previous);
    if (total == 0)
        return 0;
    return (busy_time(current) - busy_time(previous)) * 100 / total;
}

uint32_t kolt_calculate_cpu_occupy() {
    kolt_cpu_sample &current = meter.samples[meter.read_first ? 0 : 1];
    const kolt_cpu_sample &previous = meter.samples[meter.read_first ? 1 : 0];
    current = kolt_cpu_sample{};
    kolt_read_cpu_sample(&current);
    const uint32_t occupancy = kolt_cpu_occupancy(previous, current);
    meter.read_first = !meter.read_first;
    KOLT_INFO("cpu =================> %u", occupancy);
    return occupancy;
}

int kolt_check_cpu_overload(const config *config) {
    if (config->param.cpu_threshold == 0)
        return 0;
    return kolt_calculate_cpu_occupy() > config->param.cpu_threshold ? 1 : 0;
}
