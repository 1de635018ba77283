/*
 * Bridge queries over a table buffer's message, and the Ethernet profile of the device.
 */
#include "journal.h"
#include "script.h"
#include "table_message.h"

#pragma GCC visibility push(default)
#include <eth_encap.h>
#pragma GCC visibility pop

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <net/if.h>

namespace {

constexpr int CHECK_BRIDGE = 0;
constexpr int GET_PORTS = 256;
constexpr size_t PORT_RECORD = 36; // the port's interface index, then 32 bytes that nobody reads
constexpr size_t LIST_SIZE = 16384;

// The next line of `list`, terminated in place; null at the end.
char *next_line(char **list) {
    char *line = *list;
    if (line == nullptr || *line == '\0') {
        return nullptr;
    }
    char *end = strchr(line, '\n');
    *list = end != nullptr ? end + 1 : nullptr;
    if (end != nullptr) {
        *end = '\0';
    }
    return line;
}

// A line of digits alone is an index as it is; a name that is no interface is no port, as in a kernel.
uint32_t port_index(const char *line) {
    if (line[strspn(line, "0123456789")] == '\0') {
        return static_cast<uint32_t>(strtoul(line, nullptr, 10));
    }
    return if_nametoindex(line);
}

size_t list_ports(char *list, char *payload, size_t capacity) {
    size_t used = 0;
    while (const char *line = next_line(&list)) {
        uint32_t index = port_index(line);
        if (line[0] == '\0' || index == 0 || used + PORT_RECORD > capacity) {
            continue;
        }
        memset(payload + used, 0, PORT_RECORD);
        memcpy(payload + used, &index, sizeof(index));
        used += PORT_RECORD;
    }
    return used;
}

// Raw bytes of the file "reply" stand in for the list. They are cut at the buffer, the length that they announce is
// not.
bool raw_reply(const char *bridge, char *payload, size_t capacity, uint32_t *length) {
    char path[PATH_SIZE];
    if (!bridge_path(path, bridge, "reply") || file_size(path) < 0) {
        return false;
    }
    *length = static_cast<uint32_t>(file_size(path));
    return read_file(path, payload, capacity) >= 0;
}

int reply(int type, message_header *header, char *payload, size_t capacity) {
    char path[PATH_SIZE];
    char list[LIST_SIZE + 1];
    long size = bridge_path(path, header->bridge, "ports") ? read_file(path, list, LIST_SIZE) : -1;
    if (size < 0 || (type != CHECK_BRIDGE && type != GET_PORTS)) {
        return -1;
    }
    list[size] = '\0';
    header->reply_length = 0;
    if (type == GET_PORTS && !raw_reply(header->bridge, payload, capacity, &header->reply_length)) {
        header->reply_length = static_cast<uint32_t>(list_ports(list, payload, capacity));
    }
    long long forced = 0;
    if (type == GET_PORTS && bridge_path(path, header->bridge, "reply.length") && consult_rule(path, &forced)) {
        header->reply_length = static_cast<uint32_t>(forced);
    }
    return 0;
}

// Failures may be scripted for one type, as "netlink_msg:256", or for all.
bool fails(int type, const char *bridge, int *result) {
    char function[32];
    (void)snprintf(function, sizeof(function), "netlink_msg:%d", type);
    return scripted_failure(function, bridge, result) || scripted_failure("netlink_msg", bridge, result);
}

int finish(journal_line &line, const char *function) {
    int result = 0;
    (void)scripted_failure(function, nullptr, &result);
    return line.result(result);
}

void copy_names(char names[][16], int capacity) {
    char list[LIST_SIZE + 1];
    long size = read_file(NODE_DIR "/eth-names", list, LIST_SIZE);
    list[std::max(size, 0L)] = '\0';
    char *rest = list;
    for (int i = 0; i < capacity; i++) {
        const char *line = next_line(&rest);
        if (line == nullptr) {
            return;
        }
        memset(names[i], 0, NAME_SIZE);
        memcpy(names[i], line, strnlen(line, NAME_SIZE - 1));
    }
}

} // namespace

int netlink_msg(int type, void *message, uint32_t payload_size, int protocol) {
    message_header header = load_header(message);
    journal_line line(__func__);
    line.number("type", type).text("bridge", header.bridge);
    line.number("payload_size", payload_size).number("protocol", protocol);
    int result = 0;
    if (fails(type, header.bridge, &result)) {
        return line.result(result);
    }
    header.reply_length = 0;
    if (node_exists()) {
        result = reply(type, &header, static_cast<char *>(message) + sizeof(header), payload_size);
    }
    store_header(message, header);
    return line.number("reply_length", header.reply_length).result(result);
}

int uci_get_profile_eths(char names[][16], int capacity) {
    journal_line line(__func__);
    line.number("capacity", capacity);
    copy_names(names, capacity);
    return finish(line, __func__);
}

int uci_get_eth_port_num(int *count) {
    journal_line line(__func__);
    char text[32];
    long size = read_file(NODE_DIR "/eth-ports", text, sizeof(text) - 1);
    text[std::max(size, 0L)] = '\0';
    *count = static_cast<int>(strtol(text, nullptr, 10));
    return finish(line, __func__);
}
