// A bridge's ports, with the configured records that the daemon's list of them points to.
#pragma once

#include "core/interface_list.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <string>

class port_records {
public:
    config_interface &add(const std::string &name, uint32_t ifindex, uint8_t relay,
                          kolt_link_type type = KOLT_LINK_ETHERNET) {
        config_interface &port = records_.emplace_back();
        memcpy(port.name, name.c_str(), std::min(name.size(), sizeof port.name));
        port.ifindex = ifindex;
        port.relay = relay;
        port.type = type;
        ports_.add(&port);
        list_ = ports_.list();
        return port;
    }
    [[nodiscard]] const kolt_interface_list *get() const {
        return &list_;
    }

private:
    std::deque<config_interface> records_;
    kolt_port_list ports_;
    kolt_interface_list list_;
};
