// The kernel's table of interfaces is read through a child, as the drivers behind it want.
#include "probes/counters.h"

#include "core/log.h"
#include "core/names.h"
#include "probes/pipe.h"

#include <cstring>
#include <sys/time.h>

namespace {

constexpr size_t LINE_SIZE = 256;
constexpr size_t WORD_SIZE = 32;

uint64_t to_number(const char *word) {
    unsigned long long number = 0;
    (void)sscanf(word, "%llu", &number); // what is no number counts as 0
    return number;
}

// Takes the four counters from the words behind the one that `words` begins with.
void parse_counters(const char *words, kolt_if_stat *stat) {
    char rx_bytes[WORD_SIZE] = {};
    char rx_packets[WORD_SIZE] = {};
    char tx_bytes[WORD_SIZE] = {};
    char tx_packets[WORD_SIZE] = {};
    (void)sscanf(words, "%*s%31s%31s%*s%*s%*s%*s%*s%*s%31s%31s", rx_bytes, rx_packets, tx_bytes, tx_packets);
    stat->rx_bytes = to_number(rx_bytes);
    stat->rx_packets = to_number(rx_packets);
    stat->tx_bytes = to_number(tx_bytes);
    stat->tx_packets = to_number(tx_packets);
}

// Scans the table for the first line that contains `key`, wherever in the line it is.
bool find_counters(FILE *table, const char *key, kolt_if_stat *stat) {
    char line[LINE_SIZE];
    while (kolt_read_line(table, line, sizeof line) > 0) {
        if (const char *words = strstr(line, key)) {
            parse_counters(words, stat);
            return true;
        }
    }
    return false;
}

} // namespace

int kolt_get_if_stat(const char *ifname, kolt_if_stat *stat) {
    if (ifname == nullptr || stat == nullptr)
        return 0;
    const pipe_ptr table = kolt_open_pipe("cat /proc/net/dev");
    if (!table) {
        KOLT_ERROR("popen cat /proc/net/dev");
        return 0;
    }
    char key[KOLT_NAME_SIZE + 2];
    (void)snprintf(key, sizeof key, "%.16s:", ifname);
    key[KOLT_NAME_SIZE] = '\0';
    kolt_if_stat reading;
    const bool found = find_counters(table.get(), key, &reading);
    timeval now{};
    (void)gettimeofday(&now, nullptr); // cannot fail
    if (!found)
        return 0;
    reading.seconds = static_cast<uint32_t>(now.tv_sec);
    *stat = reading;
    return 1;
}
