// Each option is looked up with a context of its own: the management rewrites the files at any time.
#include "probes/uci_options.h"

#include "core/handle.h"
#include "core/json_file.h"
#include "core/log.h"
#include "core/names.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <eth_encap.h>
#include <uci.h>

namespace {

constexpr char CONFIGURATION[] = "/etc/config";
constexpr char CHANGES[] = "/var/state"; // that were not committed yet
constexpr size_t TUPLE_SIZE = 64;
constexpr int MAX_ETH_PORTS = 10;

using uci_context_ptr = kolt_handle<uci_context, uci_free_context>;

// Copies as much of `text` as fits `size` bytes with its terminator.
void copy_text(char *copy, size_t size, const char *text) {
    const size_t length = strnlen(text, size - 1);
    memcpy(copy, text, length);
    copy[length] = '\0';
}

// Reads an option by its constant tuple.
int read_option(const char *tuple, char *value) {
    char text[TUPLE_SIZE];
    copy_text(text, sizeof text, tuple);
    return uci_get_value(text, value);
}

// Whether the library may read what is in a package's place in a folder. It would wait for a pipe's other end, and take
// in a file of any size.
bool is_readable(const char *folder, const char *tuple) {
    char path[sizeof CONFIGURATION + TUPLE_SIZE];
    (void)snprintf(path, sizeof path, "%s/%.*s", folder, static_cast<int>(strcspn(tuple, ".")), tuple);
    return kolt_open_state_file(path) || errno == ENOENT || errno == ENOTDIR;
}

bool look_up(uci_context *context, char *tuple, uci_ptr *found) {
    return is_readable(CONFIGURATION, tuple) && is_readable(CHANGES, tuple) &&
           uci_lookup_ptr(context, found, tuple, true) == UCI_OK && found->last != nullptr;
}

// The text of the option that the tuple names, borrowed from the context; null after a message that names `asked`.
const char *find_option(uci_context *context, char *tuple, const char *asked) {
    constexpr char OPERATION[] = "uci_get_value";
    uci_ptr found{};
    if (!look_up(context, tuple, &found)) {
        KOLT_ERROR_AS(OPERATION, "fail to get ptr %s ", asked);
        return nullptr;
    }
    // A missing option or section is no error of the look-up: what was found last is then the level above.
    if (found.last->type != UCI_TYPE_OPTION) {
        KOLT_ERROR_AS(OPERATION, "element type is not option:%d", static_cast<int>(found.last->type));
        return nullptr;
    }
    if (found.o->type != UCI_TYPE_STRING) {
        KOLT_ERROR_AS(OPERATION, "option type is not string:%d", static_cast<int>(found.o->type));
        return nullptr;
    }
    return found.o->v.string;
}

} // namespace

int uci_get_value(char *tuple, char *value) {
    if (tuple == nullptr || value == nullptr) {
        KOLT_ERROR("pUciTupleStr or pValue is null");
        return 0;
    }
    char asked[TUPLE_SIZE];
    copy_text(asked, sizeof asked, tuple);
    const uci_context_ptr context(uci_alloc_context());
    if (!context) {
        KOLT_ERROR("fail to init uci context:%s", asked);
        return 0;
    }
    // Refused only for lack of memory, and then the look-up fails.
    (void)uci_set_confdir(context.get(), CONFIGURATION);
    (void)uci_set_savedir(context.get(), CHANGES);
    const char *text = find_option(context.get(), tuple, asked);
    if (text == nullptr)
        return 0;
    copy_text(value, UCI_VALUE_SIZE, text);
    KOLT_DUMP("Success to get  option value %s = %s ", asked, value);
    return 1;
}

int uci_check_value(const char *tuple, const char *expected) {
    if (tuple == nullptr || expected == nullptr)
        return 0;
    char value[UCI_VALUE_SIZE] = {};
    return read_option(tuple, value) == 1 && strncmp(value, expected, sizeof value) == 0 ? 1 : 0;
}

int plc_is_root() {
    return uci_check_value("tolmux.tolmux.TrafficPlcRoot", "1");
}

int eth_traffic_is_active() {
    return uci_check_value("tolmux.tolmux.TrafficEthActive", "1");
}

int kolt_check_eth_has_neigh(const char *name) {
    if (name == nullptr)
        return 0;
    char value[UCI_VALUE_SIZE] = {};
    if (read_option("tolmux.tolmux.eth_HasNeigh", value) == 0)
        return 0;
    const int mask = atoi(value);
    char names[MAX_ETH_PORTS][KOLT_NAME_SIZE] = {};
    int port_count = 0;
    if (uci_get_profile_eths(names, MAX_ETH_PORTS) != 0 || uci_get_eth_port_num(&port_count) != 0)
        return 0;
    const int known = std::clamp(port_count, 0, MAX_ETH_PORTS);
    int port = 0;
    while (port < known && !kolt_name_equal(names[port], name))
        port++;
    if (port == known) {
        KOLT_ERROR("can't find ifname[%.16s] in eth_ifname", name);
        // An unknown name is judged by the bit behind the last port's, as long as the mask has one.
        port = port_count;
    }
    return port >= 0 && port < MAX_ETH_PORTS && (mask >> port & 1) != 0 ? 1 : 0;
}

int update_eth_traffic_ports(port_span ports) {
    char value[UCI_VALUE_SIZE] = {};
    if (read_option("tolmux.tolmux.TrafficEthInterface", value) == 0)
        return 0;
    uint8_t group = 0;
    for (const config_interface *port : ports) {
        if (strcmp(kolt_name_text(port->name).text, value) == 0) {
            group = port->compat_group;
            break;
        }
    }
    for (config_interface *port : ports) {
        if (port->compat_group == group && port->type == KOLT_LINK_ETHERNET)
            port->relay = 0;
    }
    return 1;
}
