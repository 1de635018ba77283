// Link notifications for real interfaces, and the bridges that they act on.
#pragma once

#include "core/hub/link_notification.h"
#include "core/hub/netlink_sockets.h"
#include "hub_test.h"
#include "netlink_bytes.h"
#include "support/sandbox.h"

#include <linux/rtnetlink.h>
#include <memory>

class link_message_test : public hub_test {
protected:
    link_message_test() {
        l_ev = &node.ev;
    }

    // Hands over a message in a buffer that ends where it ends.
    static void handle(const std::string &message) {
        const auto *bytes = message.data();
        const std::unique_ptr<char[]> exact(new char[message.size()]);
        memcpy(exact.get(), bytes, message.size());
        nl_wifi_newlink_handle(reinterpret_cast<const nlmsghdr *>(exact.get()));
    }
    static std::string link_message(uint32_t index, const std::string &attributes) {
        return netlink_message(RTM_NEWLINK, link_info(index) + attributes);
    }
    static std::string expiry(uint32_t index) {
        return link_message(index, attribute(WIRELESS, record(EXPIRED)));
    }
    void add_active_bridge(const char *name, uint32_t flags, const std::vector<uint32_t> &ports) {
        add_bridge(name, flags);
        platform.bridges[name] = ports;
    }
    // The calls that changed something.
    static std::vector<std::string> changes() {
        return platform.programming();
    }
};
