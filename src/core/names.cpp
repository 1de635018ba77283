// Name fields have no terminator when they are full; every routine here is bounded by the field.
#include "core/names.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

void kolt_copy_name(char *copy, const char *name) {
    const size_t length = strnlen(name, KOLT_NAME_SIZE);
    memmove(copy, name, length);
    memset(copy + length, 0, KOLT_NAME_SIZE - length);
}

int kolt_get_vlan_name(char *name, const char *base, uint32_t vlan_id, int dotted) {
    char text[32];
    (void)snprintf(text, sizeof text, dotted != 0 ? "%.16s.%u" : "%.16s%u", base, vlan_id);
    text[KOLT_NAME_SIZE - 1] = '\0';
    kolt_copy_name(name, text);
    return 1;
}

void kolt_get_base_name(char *base, const char *name) {
    const kolt_name_text whole(name);
    const size_t length = std::min(strcspn(whole.text, "."), KOLT_NAME_SIZE - 1);
    memset(base, 0, KOLT_NAME_SIZE);
    memcpy(base, whole.text, length);
}

int kolt_str_to_mac(const char *text, uint8_t *mac, int colon) {
    if (text == nullptr || mac == nullptr)
        return 0;
    const char separator = colon != 0 ? ':' : '-';
    memset(mac, 0, KOLT_MAC_SIZE);
    for (size_t i = 0; i < KOLT_MAC_SIZE; i++) {
        unsigned int octet = 0;
        int length = 0;
        if (sscanf(text, "%2X%n", &octet, &length) != 1)
            break;
        const char next = text[length];
        const bool last = i == KOLT_MAC_SIZE - 1;
        // Digits that run into anything but the separator are no octet, or "abc" would read as AB:00:00:00:00:00.
        if (!last && next != separator && next != '\0')
            break;
        mac[i] = static_cast<uint8_t>(octet);
        if (last || next == '\0')
            break;
        text += length + 1;
    }
    return 1;
}

void kolt_mac_add(uint8_t *mac, uint8_t delta) {
    unsigned int carry = delta;
    for (size_t i = KOLT_MAC_SIZE; i-- > 0;) {
        carry += mac[i];
        mac[i] = static_cast<uint8_t>(carry);
        carry >>= 8;
    }
}
