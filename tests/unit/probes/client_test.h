// What the tests of the client list share: a bridge's ports, a client array, and what was listed in it.
#pragma once

#include "port_records.h"
#include "probe_test.h"
#include "raw_tables.h"

#include "probes/clients.h"

#include <memory>
#include <syslog.h>
#include <vector>

constexpr uint32_t NO_HD = 65535;
constexpr mac_address FIRST{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr mac_address OTHER{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

class client_probe : public probe {
protected:
    struct client {
        mac_address mac;
        kolt_link_type type;
        uint8_t relay;
        uint32_t port;
        uint32_t hd_port;
        bool operator==(const client &) const = default;
    };

    std::vector<client> fdb_clients() {
        return listed(kolt_get_fdb_client_list("br-lan", array_->data(), ports_.get()));
    }
    std::vector<client> all_clients() {
        return listed(kolt_get_client_list("br-lan", ports_.get(), array_->data()));
    }
    [[nodiscard]] std::vector<client> listed(uint8_t count) const {
        std::vector<client> result;
        for (uint8_t i = 0; i < count; i++) {
            const kolt_client &record = (*array_)[i];
            result.push_back({{}, record.type, record.relay, record.port, record.hd_port});
            memcpy(result.back().mac.data(), record.mac, 6);
        }
        return result;
    }

    static log_line error(const std::string &function, const std::string &text) {
        return {LOG_ERR, function, "Error: " + text};
    }

    using client_array = std::array<kolt_client, KOLT_MAX_CLIENTS>;
    std::unique_ptr<client_array> array_ = std::make_unique<client_array>();
    port_records ports_;
};
