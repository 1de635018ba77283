// Interface names and MAC addresses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

constexpr size_t KOLT_NAME_SIZE = 16; // of a name field; a name that fills it has no terminator
constexpr size_t KOLT_MAC_SIZE = 6;

// The arguments of "%02X:%02X:%02X:%02X:%02X:%02X" for a MAC.
#define KOLT_MAC_OCTETS(mac) (mac)[0], (mac)[1], (mac)[2], (mac)[3], (mac)[4], (mac)[5]

// A name field's text, terminated, for interfaces that want C strings.
struct kolt_name_text {
    char text[KOLT_NAME_SIZE + 1];
    // Reads at most 16 characters at `name`.
    explicit kolt_name_text(const char *name) : text{} {
        memcpy(text, name, strnlen(name, KOLT_NAME_SIZE));
    }
};

// Copies at most 16 characters of `name` into the field `copy` and zeroes what is left of it.
void kolt_copy_name(char *copy, const char *name);

// Compares two names over at most 16 characters.
[[nodiscard]] inline bool kolt_name_equal(const char *a, const char *b) {
    return strncmp(a, b, KOLT_NAME_SIZE) == 0;
}

// Writes `base` with the VLAN id behind it, with a dot between them when `dotted` is not 0, into the field `name`: at
// most 15 characters, always terminated. Returns 1.
int kolt_get_vlan_name(char *name, const char *base, uint32_t vlan_id, int dotted);

// Writes what stands before the first "." of the field `name` into the field `base`: at most 15 characters, always
// terminated, empty when `name` begins with the dot.
void kolt_get_base_name(char *base, const char *name);

// Parses "AA:BB:CC:DD:EE:FF" (`colon` not 0) or "AA-BB-CC-DD-EE-FF" into the 6 bytes of `mac`. Octets that the text
// does not reach are 0. 0 only for a null argument, else 1.
int kolt_str_to_mac(const char *text, uint8_t *mac, int colon);

// 1 when the two MACs are equal, else 0.
[[nodiscard]] inline int kolt_mac_equal(const uint8_t *a, const uint8_t *b) {
    return memcmp(a, b, KOLT_MAC_SIZE) == 0 ? 1 : 0;
}

// Adds `delta` to the MAC as a 48-bit big-endian number; a carry out of the first octet is lost.
void kolt_mac_add(uint8_t *mac, uint8_t delta);
