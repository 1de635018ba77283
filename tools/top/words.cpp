#include "words.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <net/if.h>

const char *top_link_name(kolt_link_type type) {
    constexpr const char *NAMES[KOLT_LINK_COUNT] = {"ethernet", "plc", "2.4g", "5g", "5g_2"};
    return type < std::size(NAMES) ? NAMES[type] : "none";
}

const char *top_mode_name(kolt_work_mode mode) {
    constexpr const char *NAMES[] = {"RE", "FAP", "HAP"};
    return mode < std::size(NAMES) ? NAMES[mode] : "unknown";
}

top_text<18> top_mac_text(const uint8_t *mac) {
    top_text<18> text;
    (void)snprintf(text.text, sizeof text.text, "%02X:%02X:%02X:%02X:%02X:%02X", KOLT_MAC_OCTETS(mac));
    return text;
}

top_text<8> top_short_number(uint64_t number) {
    constexpr char UNITS[] = {'k', 'M', 'G', 'T', 'P', 'E'};
    top_text<8> text;
    if (number < 1000) {
        (void)snprintf(text.text, sizeof text.text, "%" PRIu64, number);
        return text;
    }
    uint64_t tenths = number / 100;
    size_t unit = 0;
    for (; tenths >= 10000; tenths /= 1000)
        unit++;
    const auto whole = static_cast<unsigned int>(tenths / 10);
    if (whole < 10)
        (void)snprintf(text.text, sizeof text.text, "%u.%u%c", whole % 10, static_cast<unsigned int>(tenths % 10),
                       UNITS[unit]);
    else
        (void)snprintf(text.text, sizeof text.text, "%u%c", whole % 1000, UNITS[unit]);
    return text;
}

top_text<12> top_quota_text(int64_t hundredths) {
    if (hundredths >= 100000)
        return {">999%"};
    top_text<12> text;
    const auto number = static_cast<int>(hundredths);
    (void)snprintf(text.text, sizeof text.text, "%d.%02d%%", number / 100 % 1000, number % 100);
    return text;
}

top_name top_kernel_name(uint32_t ifindex) {
    char name[IF_NAMESIZE] = {};
    if (if_indextoname(ifindex, name) != nullptr)
        return top_printable(name);
    top_name text;
    (void)snprintf(text.text, sizeof text.text, "#%" PRIu32, ifindex);
    return text;
}

top_name top_printable(const char *name) {
    top_name text{};
    for (size_t i = 0; i < KOLT_NAME_SIZE && name[i] != '\0'; i++)
        text.text[i] = name[i] > ' ' && name[i] <= '~' ? name[i] : '?';
    return text;
}

top_text<24> top_time_text(int64_t seconds) {
    const auto when = static_cast<time_t>(seconds);
    tm parts{};
    top_text<24> text{};
    if (gmtime_r(&when, &parts) != nullptr)
        (void)strftime(text.text, sizeof text.text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}
