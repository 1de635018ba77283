// The words and identities of the ports and the HD table of kolt_programs.
#include "kernel/programs.h"

#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <unistd.h>

#include <sys/mman.h>

#include <bpf/bpf.h>

namespace {

kolt_hd_key key_of(const uint8_t *mac) {
    kolt_hd_key key{};
    memcpy(key.mac, mac, sizeof key.mac);
    return key;
}

// Calls `see` for each of at most `room` entries with its key and value. An entry is not missed when `see` removes or
// changes it.
template <class Key, class Value, class See> void walk(int map, size_t room, See see) {
    Key key{};
    Key next{};
    Value value{};
    bool more = bpf_map_get_next_key(map, nullptr, &key) == 0;
    for (size_t seen = 0; more && seen < room; seen++) {
        more = bpf_map_get_next_key(map, &key, &next) == 0;
        if (bpf_map_lookup_elem(map, &key, &value) == 0)
            see(key, value);
        key = next;
    }
}

// Of the HD table, with the client and the interface.
template <class See> void walk_clients(int map, See see) {
    walk<kolt_hd_key, uint32_t>(map, KOLT_MAX_HD, see);
}

size_t page_size() {
    return static_cast<size_t>(sysconf(_SC_PAGESIZE));
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

kolt_programs::~kolt_programs() {
    for (void *page : port_pages_) {
        if (page != nullptr)
            munmap(page, page_size());
    }
}

kolt_port_entry *kolt_programs::entry(uint32_t ifindex) const {
    errno = ERANGE;
    if (ifindex == 0 || ifindex >= KOLT_MAX_PORTS)
        return nullptr;
    const size_t size = page_size();
    const size_t offset = ifindex * sizeof(kolt_port_entry);
    void *&page = port_pages_[offset / size];
    if (page == nullptr) {
        const auto start = static_cast<off_t>(offset - offset % size);
        void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, map(KOLT_MAP_PORTS), start);
        if (memory == MAP_FAILED)
            return nullptr;
        page = memory;
    }
    return static_cast<kolt_port_entry *>(page) + offset % size / sizeof(kolt_port_entry);
}

bool kolt_programs::set_port(uint32_t ifindex, const kolt_port &port) {
    kolt_port_entry *place = entry(ifindex);
    if (place == nullptr)
        return false;
    __atomic_store_n(&place->word, kolt_port_word(port), __ATOMIC_RELEASE);
    return true;
}

kolt_port kolt_programs::port(uint32_t ifindex) const {
    const kolt_port_entry *place = entry(ifindex);
    return place == nullptr ? kolt_port{} : kolt_port_of_word(__atomic_load_n(&place->word, __ATOMIC_ACQUIRE));
}

uint32_t kolt_programs::foreign(uint32_t ifindex) const {
    const kolt_port_entry *place = entry(ifindex);
    return place == nullptr ? 0 : __atomic_load_n(&place->foreign, __ATOMIC_RELAXED);
}

// Of interfaces that went while no process was there to see it.
void kolt_programs::forget_identities_of_nobody() {
    const int identities = map(KOLT_MAP_IDENTITIES);
    walk<uint32_t, kolt_port_identity>(identities, KOLT_MAX_LINKS, [&](uint32_t ifindex, const kolt_port_identity &) {
        char name[IF_NAMESIZE];
        if (if_indextoname(ifindex, name) == nullptr)
            (void)bpf_map_delete_elem(identities, &ifindex); // it is there
    });
}

bool kolt_programs::set_identity(uint32_t ifindex, const kolt_port_identity *identity) {
    const int identities = map(KOLT_MAP_IDENTITIES);
    if (identity == nullptr)
        return bpf_map_delete_elem(identities, &ifindex) == 0 || errno == ENOENT;
    kolt_port_identity value = *identity;
    value.valid = 1;
    if (bpf_map_update_elem(identities, &ifindex, &value, BPF_ANY) == 0)
        return true;
    forget_identities_of_nobody();
    return bpf_map_update_elem(identities, &ifindex, &value, BPF_ANY) == 0;
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
    walk_clients(map(KOLT_MAP_HD), [&](const kolt_hd_key &key, uint32_t ifindex) {
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
    walk_clients(map(KOLT_MAP_HD), [&](const kolt_hd_key &key, uint32_t ifindex) {
        if (ifindex == from && bpf_map_update_elem(map(KOLT_MAP_HD), &key, &to, BPF_EXIST) == 0)
            count++;
    });
    return count;
}

void kolt_programs::hd_flush() {
    walk_clients(map(KOLT_MAP_HD), [this](const kolt_hd_key &key, uint32_t) {
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
