// Any bytes as each of the runtime files in which the node's other daemons tell its state.
#include "core_log.h"
#include "probes/ap_clients.h"
#include "probes/node_state.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...);
}

namespace {

void require(bool condition) {
    if (!condition)
        abort();
}

// The bytes in memory, under a path that can be opened like any file's.
struct memory_file {
    int fd = memfd_create("runtime", MFD_CLOEXEC);
    char path[32] = {};
    memory_file() {
        (void)snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    }
    void fill(const uint8_t *data, size_t size) const {
        require(ftruncate(fd, 0) == 0 && pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));
    }
};

memory_file &file() {
    static memory_file the_file;
    return the_file;
}

// A block of exactly `size` bytes, so that a byte behind it is out of bounds.
template <class T> std::unique_ptr<T[]> field_of(size_t size, T filler) {
    std::unique_ptr<T[]> field(new T[size]);
    std::fill(field.get(), field.get() + size, filler);
    return field;
}

void check_texts() {
    using getter = int (*)(char *);
    for (const getter get : {getter{kolt_get_dhcp_ifname}, getter{kolt_get_lan_gw_ip}}) {
        const auto field = field_of<char>(KOLT_NAME_SIZE, '?');
        const int result = get(field.get());
        require(result == 1 || (result == 0 && field[0] == '?' && field[KOLT_NAME_SIZE - 1] == '?'));
    }
    require(kolt_get_dhcp_ifname(nullptr) == 0);
}

void check_macs() {
    using getter = int (*)(uint8_t *);
    const auto cap = field_of<uint8_t>(KOLT_MAC_SIZE, 0);
    for (const getter get : {getter{kolt_get_parent_mac}, getter{kolt_get_cap_mac}}) {
        const int result = get(cap.get());
        require(result == 0 || result == 1);
    }
    int direct = 0;
    for (uint32_t link = 0; link < 7; link++) { // two of them no links
        const int result = kolt_check_rootap_is_cap(static_cast<kolt_link_type>(link), cap.get());
        require(result == 0 || (result == 1 && link < 5));
        direct |= link >= 2 ? result : 0;
    }
    const int told = kolt_check_direct_connect_cap();
    require(told == 0 || told == direct);
    const int by_text = kolt_is_direct_connect_ap();
    require(by_text == 0 || by_text == 1);
}

void check_states() {
    require(kolt_get_work_mode() <= KOLT_MODE_UNKNOWN);
    const int state = kolt_check_link_state(KOLT_LINK_ETHERNET);
    require(state == 0 || state == 1);
    for (const kolt_link_type link : KOLT_LINKS)
        require(kolt_check_link_state(link) == state);
    const int has_plc = kolt_check_cap_has_plc();
    require(has_plc == 0 || has_plc == 1);
    uint8_t devices = 77;
    require(kolt_get_mesh_dev_num(&devices) == 1 || devices == 77);
}

void check_clients() {
    const std::unique_ptr<kolt_ap_client_list> list(new kolt_ap_client_list);
    list->count = 3;
    if (kolt_get_ap_client_list(list.get()) == 0)
        require(list->count == 3);
    for (uint8_t i = 0; i < list->count; i++)
        require(kolt_check_mac_in_ap_client_list(list.get(), list->macs[i]) == 1);
}

} // namespace

int __wrap_open(const char *path, int flags, ...) {
    require(strncmp(path, "/tmp/", 5) == 0);
    return __real_open(file().path, flags);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    file().fill(data, size);
    check_texts();
    check_macs();
    check_states();
    check_clients();
    return 0;
}
