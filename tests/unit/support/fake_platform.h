// The two platform libraries, faked: they keep what they are told, record every call in order, and fail as scripted.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct fake_platform {
    // Every call as it was made: "bridgeSetIFGroup(br-lan, eth0, 1, 1)". MACs read "00:11:22:33:44:55".
    std::vector<std::string> calls;

    // The active bridges and the interface indexes of their ports.
    std::map<std::string, std::vector<uint32_t>> bridges;

    // Raw entries by library code (8 HA, 1 HD, 2 FDB) with their entry size.
    struct table {
        uint32_t entry_size;
        std::vector<uint8_t> bytes;
    };
    std::map<int, table> tables;

    // The device's Ethernet profile.
    std::vector<std::string> eths;
    int eth_port_num = 0;

    // When not 0, the reply length that a port query claims, and the entry count that bridgeTableAction claims.
    uint32_t claimed_reply_length = 0;
    uint32_t claimed_entries = 0;

    // Buffers that were allocated and not yet freed.
    int live_buffers = 0;

    // Makes a function return `result` (null for bridgeAllocTableBuf) on its `nth` call from now, or on every call when
    // `nth` is 0.
    void fail(const std::string &function, int result = 1, int nth = 0);

    // The calls whose function is not among the queries bridgeAllocTableBuf, bridgeFreeTableBuf and netlink_msg.
    [[nodiscard]] std::vector<std::string> programming() const;

    // Appends an entry to a table.
    template <class Entry> void add_entry(int code, const Entry &entry) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&entry);
        table &target = tables.try_emplace(code, table{sizeof(Entry), {}}).first->second;
        target.bytes.insert(target.bytes.end(), bytes, bytes + sizeof entry);
    }

    // For the fake's own functions: records the call and returns the scripted failure, or `fallback`.
    int result_of(const std::string &function, const std::string &arguments, int fallback = 0);

private:
    struct failure {
        int result;
        int nth;
    };
    std::map<std::string, failure> failures_;
};

// The one that the library functions use; assign fake_platform{} to start afresh.
extern fake_platform platform;
