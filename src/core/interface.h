// A bridge port as it is configured.
#pragma once

#include "core/link_type.h"
#include "core/names.h"

#include <cstdint>

constexpr uint32_t CONFIG_MAX_INTERFACES = 128;

// The two broadcast classes: each is a network of its own, in which broadcast must not circle. Path
// selection leaves class 1 alone.
constexpr uint8_t KOLT_BCAST_CLASS_0 = 0;
constexpr uint8_t KOLT_BCAST_CLASS_1 = 1;

struct config_interface {
    char name[KOLT_NAME_SIZE] = {};
    uint32_t ifindex = 0; // 0 until the port was first seen on a bridge
    kolt_link_type type = KOLT_LINK_ETHERNET;
    uint8_t compat_group = 0;
    uint8_t priority = 0; // 0..10
    uint8_t relay = 0;    // loop avoidance rewrites it for power-line and Ethernet ports
    uint8_t path = 0;
    uint8_t class_ = 0;
    uint8_t needha = 0;
    uint8_t ssdp_allow = 0; // read and kept; nothing reads it yet
    uint8_t ctl_iface = 0;  // likewise

    [[nodiscard]] bool is_relay() const {
        return relay == 1;
    }
    // Any other flag than 0 and 1 makes it neither.
    [[nodiscard]] bool is_nonrelay() const {
        return relay == 0;
    }
};
