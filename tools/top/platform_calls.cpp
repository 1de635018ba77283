// What is defined here is all that the probes can reach of the libraries.
#include "platform_calls.h"

#include <cstdint>
#include <cstdio>
#include <dlfcn.h>
#include <duon_bridge.h>
#include <eth_encap.h>

namespace {

constexpr char BRIDGE_LIBRARY[] = "libduon-bridge.so";
constexpr char QUERY_LIBRARY[] = "libeth_encap.so";
constexpr int REFUSED = -1;

// The two questions about a bridge: whether there is one, and which ports it has.
constexpr int QUERY_PROTOCOL = 38;
constexpr int QUERY_BRIDGE = 0;
constexpr int QUERY_PORTS = 256;

struct {
    decltype(&bridgeAllocTableBuf) alloc_buffer = nullptr;
    decltype(&bridgeFreeTableBuf) free_buffer = nullptr;
    decltype(&bridgeTableAction) table_action = nullptr;
    decltype(&netlink_msg) query = nullptr;
} library;

bool fail(char *why, size_t size) {
    const char *reason = dlerror();
    (void)snprintf(why, size, "%s", reason != nullptr ? reason : "unknown error"); // a cut reason is a reason still
    return false;
}

template <class Function> bool find(void *handle, const char *name, Function **function) {
    *function = reinterpret_cast<Function *>(dlsym(handle, name));
    return *function != nullptr;
}

// Kept open for good; a library may need the other's symbols, as it may in the daemon.
void *open_library(const char *name) {
    return dlopen(name, RTLD_LAZY | RTLD_GLOBAL);
}

} // namespace

bool top_open_platform(char *why, size_t size) {
    void *bridge = open_library(BRIDGE_LIBRARY);
    if (bridge == nullptr || !find(bridge, "bridgeAllocTableBuf", &library.alloc_buffer) ||
        !find(bridge, "bridgeFreeTableBuf", &library.free_buffer) ||
        !find(bridge, "bridgeTableAction", &library.table_action))
        return fail(why, size);
    void *queries = open_library(QUERY_LIBRARY);
    if (queries == nullptr || !find(queries, "netlink_msg", &library.query))
        return fail(why, size);
    return true;
}

void *bridgeAllocTableBuf(uint32_t size, const char *bridge) {
    return library.alloc_buffer(size, bridge);
}

void bridgeFreeTableBuf(void *buf) {
    library.free_buffer(buf);
}

int bridgeTableAction(const char *bridge, int code, uint32_t *entries, void *buf, int zero) {
    return library.table_action(bridge, code, entries, buf, zero);
}

int netlink_msg(int type, void *message, uint32_t payload_size, int protocol) {
    if (protocol != QUERY_PROTOCOL || (type != QUERY_BRIDGE && type != QUERY_PORTS))
        return REFUSED;
    return library.query(type, message, payload_size, protocol);
}
