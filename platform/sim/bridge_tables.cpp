/*
 * Table buffers, the three tables that a bridge keeps, and the calls that write single entries of them.
 */
#include "journal.h"
#include "script.h"
#include "table_message.h"

#pragma GCC visibility push(default)
#include <duon_bridge.h>
#pragma GCC visibility pop

#include <algorithm>
#include <cstdlib>

namespace {

struct table_kind {
    int code;
    uint32_t entry_size;
    const char *file;  // the entries
    const char *need;  // rules: the bridge says that it has VALUE entries, fitting or not
    const char *count; // rules: the call succeeds and claims VALUE entries, whatever the capacity
};

constexpr table_kind KINDS[] = {
    {2, 16, "fdb", "fdb.need", "fdb.count"},
    {1, 24, "hd", "hd.need", "hd.count"},
    {8, 100, "ha", "ha.need", "ha.count"},
};

const table_kind *find_kind(int code) {
    for (const table_kind &kind : KINDS) {
        if (kind.code == code) {
            return &kind;
        }
    }
    return nullptr;
}

bool bridge_rule(const char *bridge, const char *file, long long *value) {
    char path[PATH_SIZE];
    return bridge_path(path, bridge, file) && consult_rule(path, value);
}

bool bridge_is_known(const char *bridge) {
    char path[PATH_SIZE];
    return bridge_path(path, bridge, "ports") && file_size(path) >= 0;
}

// Entries that a scripted number adds to those of the file read as zero.
void copy_entries(const char *path, const table_kind &kind, uint32_t entries, void *buf) {
    size_t size = size_t{entries} * kind.entry_size;
    long copied = entries > 0 ? read_file(path, buf, size) : 0;
    size_t filled = copied > 0 ? static_cast<size_t>(copied) : 0;
    if (filled < size) {
        memset(static_cast<char *>(buf) + filled, 0, size - filled);
    }
}

// What the bridge says that it has, which a rule may raise above the entries of the file.
uint32_t claimed_entries(const char *bridge, const table_kind &kind, const char *path) {
    long long number = std::max(file_size(path), 0L) / static_cast<long>(kind.entry_size);
    (void)bridge_rule(bridge, kind.need, &number);
    return static_cast<uint32_t>(number);
}

int fetch(const char *bridge, const table_kind &kind, uint32_t *entries, void *buf) {
    char path[PATH_SIZE];
    uint32_t capacity = *entries;
    *entries = 0;
    if (!bridge_is_known(bridge) || !bridge_path(path, bridge, kind.file)) {
        return -1;
    }
    long long forced = 0;
    if (bridge_rule(bridge, kind.count, &forced)) {
        *entries = static_cast<uint32_t>(forced);
        copy_entries(path, kind, std::min(*entries, capacity), buf);
        return 0;
    }
    *entries = claimed_entries(bridge, kind, path);
    int result = 0;
    if (scripted_failure("bridgeTableAction", bridge, &result)) {
        return result;
    }
    if (*entries > capacity) {
        return -1;
    }
    copy_entries(path, kind, *entries, buf);
    return 0;
}

int table_action(const char *bridge, int code, uint32_t *entries, void *buf) {
    if (!node_exists()) {
        *entries = 0;
        return 0;
    }
    const table_kind *kind = find_kind(code);
    return kind != nullptr ? fetch(bridge, *kind, entries, buf) : -1;
}

int finish(journal_line &line, const char *function, const char *bridge) {
    int result = 0;
    (void)scripted_failure(function, bridge, &result);
    return line.result(result);
}

} // namespace

// The payload is left as malloc gives it: whoever reads more than a reply holds is then found out by the usual tools.
void *bridgeAllocTableBuf(uint32_t size, const char *bridge) {
    journal_line line(__func__);
    line.number("size", size).text("bridge", bridge);
    int ignored = 0;
    char *message = nullptr;
    if (!scripted_failure(__func__, bridge, &ignored)) {
        message = static_cast<char *>(malloc(sizeof(message_header) + size));
    }
    if (message == nullptr) {
        line.no_result();
        return nullptr;
    }
    message_header header{};
    header.allocated = size;
    memcpy(header.bridge, bridge, strnlen(bridge, NAME_SIZE - 1));
    store_header(message, header);
    line.result(static_cast<int>(size));
    return message + sizeof(message_header);
}

void bridgeFreeTableBuf(void *buf) {
    journal_line line(__func__);
    if (buf == nullptr) {
        line.null("buf").no_result();
        return;
    }
    void *message = static_cast<char *>(buf) - sizeof(message_header);
    line.number("buf", load_header(message).allocated).no_result();
    free(message);
}

int bridgeTableAction(const char *bridge, int code, uint32_t *entries, void *buf, int zero) {
    journal_line line(__func__);
    line.text("bridge", bridge).number("code", code).number("capacity", *entries);
    int result = table_action(bridge, code, entries, buf);
    return line.number("entries", *entries).number("zero", zero).result(result);
}

int bridgeAddHDTableEntries(const char *bridge, const uint8_t *client_mac, const uint8_t *second_mac,
                            const char *ifname, const char *ifname_again, int zero) {
    journal_line line(__func__);
    line.text("bridge", bridge).mac("client_mac", client_mac).mac("second_mac", second_mac);
    line.text("ifname", ifname).text("ifname_again", ifname_again).number("zero", zero);
    return finish(line, __func__, bridge);
}

int bridgeDelHDTableEntriesByMAC(const char *bridge, const uint8_t *mac, const uint8_t *second_mac,
                                 const char *ifname) {
    journal_line line(__func__);
    line.text("bridge", bridge).mac("mac", mac).mac("second_mac", second_mac).text("ifname", ifname);
    return finish(line, __func__, bridge);
}

int bridgeSetHATableEntries(const char *bridge, uint16_t hash, const uint8_t *src, const uint8_t *dst,
                            uint16_t src_port, uint16_t dst_port, const char *ifname, uint16_t stream_kind,
                            uint32_t carried_value) {
    journal_line line(__func__);
    line.text("bridge", bridge).number("hash", hash).mac("src", src).mac("dst", dst);
    line.number("src_port", src_port).number("dst_port", dst_port).text("ifname", ifname);
    line.number("stream_kind", stream_kind).number("carried_value", carried_value);
    return finish(line, __func__, bridge);
}
