// The CPU meter.
#pragma once

#include <cstdint>

struct config;

// The counters of the first line of the kernel's CPU statistics.
struct kolt_cpu_sample {
    uint32_t user = 0;
    uint32_t nice = 0;
    uint32_t system = 0;
    uint32_t idle = 0;
    uint32_t iowait = 0;
    uint32_t irq = 0;
    uint32_t softirq = 0;
};

// Fills `sample`; leaves it as it is when the statistics cannot be opened.
void kolt_read_cpu_sample(kolt_cpu_sample *sample);

// The percentage of time that the CPU was busy between two samples, in wrapping 32-bit arithmetic.
uint32_t kolt_cpu_occupancy(const kolt_cpu_sample &previous, const kolt_cpu_sample &current);

// Takes a reading and returns the percentage since the last one, whoever took it; since boot on the first.
uint32_t kolt_calculate_cpu_occupy();

// 1 when a reading is above the configured threshold, else 0. A threshold of 0 takes no reading.
int kolt_check_cpu_overload(const config *config);
