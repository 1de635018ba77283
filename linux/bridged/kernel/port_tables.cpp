// The words of the ports and the HD table of kolt_programs.
#include "kernel/programs.h"

#include <cstring>

#include <bpf/bpf.h>

namespace {

kolt_hd_key key_of(const uint8_t *mac) {
    kolt_hd_key key{};
    memcpy(key.mac, mac, sizeof key.mac);
    return key;
}

// Calls `see` for each entry with its key and interface. An entry is not missed when `see` removes or changes it.
template <class See> void walk(int map, See see) {
    kolt_hd_key key{};
    kolt_hd_key next{};
    uint32_t ifindex = 0;
    bool more = bpf_map_get_next_key(map, nullptr, &key) == 0;
    for (size_t seen = 0; more && seen < KOLT_MAX_HD; seen++) {
        more = bpf_map_get_next_key(map, &key, &next) == 0;
        if (bpf_map_lookup_elem(map, &key, &ifindex) == 0)
            see(key, ifindex);
        key = next;
    }
}

} // namespace

uint32_t kolt_port_word(const kolt_port &port) {
    const auto field = [](uint32_t value, int shift) { return (value & KOLT_PORT_FIELD_MASK) << shift; };
    return port.group | field(port.flags, KOLT_PORT_FLAGS_SHIFT) | field(port.admits, KOLT_PORT_ADMITS_SHIFT) |
           field(port.accepts, KOLT_PORT_ACCEPTS_SHIFT) |
           (static_cast<uint32_t>(port.class_) & KOLT_PORT_CLASS_MASK) << KOLT_PORT_CLASS_SHIFT;
}

kolt_port kolt_port_of_word(uint32_t word) {
    const auto field = [word](int shift) { return static_cast<uint8_t>(word >> shift & KOLT_PORT_FIELD_MASK); };
    return {.group = static_cast<uint16_t>(word & KOLT_PORT_GROUP_MASK),
            .flags = field(KOLT_PORT_FLAGS_SHIFT),
            .admits = field(KOLT_PORT_ADMITS_SHIFT),
            .accepts = field(KOLT_PORT_ACCEPTS_SHIFT),
            .class_ = static_cast<uint8_t>(word >> KOLT_PORT_CLASS_SHIFT & KOLT_PORT_CLASS_MASK)};
}

bool kolt_programs::set_port(uint32_t ifindex, const kolt_port &port) {
    if (ports_ == nullptr || ifindex == 0 || ifindex >= KOLT_MAX_PORTS)
        return false;
    __atomic_store_n(&ports_[ifindex].word, kolt_port_word(port), __ATOMIC_RELEASE);
    return true;
}

kolt_port kolt_programs::port(uint32_t ifindex) const {
    if (ports_ == nullptr || ifindex >= KOLT_MAX_PORTS)
        return {};
    return kolt_port_of_word(__atomic_load_n(&ports_[ifindex].word, __ATOMIC_ACQUIRE));
}

uint32_t kolt_programs::foreign(uint32_t ifindex) const {
    if (ports_ == nullptr || ifindex >= KOLT_MAX_PORTS)
        return 0;
    return __atomic_load_n(&ports_[ifindex].foreign, __ATOMIC_RELAXED);
}

bool kolt_programs::set_identity(uint32_t ifindex, const kolt_port_identity *identity) {
    kolt_port_identity value{};
    if (identity != nullptr) {
        value = *identity;
        value.valid = 1;
    }
    return bpf_map_update_elem(map(KOLT_MAP_IDENTITIES), &ifindex, &value, BPF_ANY) == 0;
}

bool kolt_programs::identified(uint32_t ifindex) const {
    kolt_port_identity value{};
    return bpf_map_lookup_elem(map(KOLT_MAP_IDENTITIES), &ifindex, &value) == 0 && value.valid != 0;
}

bool kolt_programs::hd_set(const uint8_t *mac, uint32_t ifindex) {
    const kolt_hd_key key = key_of(mac);
    return bpf_map_update_elem(map(KOLT_MAP_HD), &key, &ifindex, BPF_ANY) == 0;
}

bool kolt_programs::hd_remove(const uint8_t *mac) {
    const kolt_hd_key key = key_of(mac);
    return bpf_map_delete_elem(map(KOLT_MAP_HD), &key) == 0;
}

uint32_t kolt_programs::hd_find(const uint8_t *mac) const {
    const kolt_hd_key key = key_of(mac);
    uint32_t ifindex = 0;
    return bpf_map_lookup_elem(map(KOLT_MAP_HD), &key, &ifindex) == 0 ? ifindex : 0;
}

size_t kolt_programs::hd_read(std::span<kolt_hd_entry> entries) const {
    size_t count = 0;
    walk(map(KOLT_MAP_HD), [&](const kolt_hd_key &key, uint32_t ifindex) {
        if (count < entries.size()) {
            memcpy(entries[count].mac.data(), key.mac, sizeof key.mac);
            entries[count].ifindex = ifindex;
        }
        count++;
    });
    return count;
}

size_t kolt_programs::hd_repoint(uint32_t from, uint32_t to) {
    size_t count = 0;
    walk(map(KOLT_MAP_HD), [&](const kolt_hd_key &key, uint32_t ifindex) {
        if (ifindex == from && bpf_map_update_elem(map(KOLT_MAP_HD), &key, &to, BPF_EXIST) == 0)
            count++;
    });
    return count;
}

void kolt_programs::hd_flush() {
    walk(map(KOLT_MAP_HD), [this](const kolt_hd_key &key, uint32_t) {
        (void)bpf_map_delete_elem(map(KOLT_MAP_HD), &key); // one that a program has removed meanwhile is fine
    });
}

bool kolt_programs::roamed_take(uint8_t *mac) {
    kolt_hd_key key{};
    if (bpf_map_lookup_and_delete_elem(map(KOLT_MAP_ROAMED), nullptr, &key) != 0)
        return false;
    memcpy(mac, key.mac, sizeof key.mac);
    return true;
}
