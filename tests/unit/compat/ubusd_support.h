// The real broker with the calls that its tests make.
#pragma once

#include "support.h"

class UbusdTest : public ::testing::Test {
protected:
    // The status that the broker answers to one request.
    static uint32_t ask(int fd, unsigned type, const Bytes &attributes) {
        EXPECT_TRUE(send_bytes(fd, wire_message(type, 9, 1, attributes)));
        return status_in(receive_message(fd));
    }
    static uint32_t call(int fd, const std::string &method, const Bytes &members) {
        return ask(fd, UBUS_MSG_INVOKE,
                   number_attr(UBUS_ATTR_OBJID, 1) + text_attr(UBUS_ATTR_METHOD, method) +
                       raw_attr(UBUS_ATTR_DATA, members));
    }
    // Whether the broker still serves others.
    bool serves() {
        const Fd client = broker.client();
        return ask(client.get(), UBUS_MSG_LOOKUP, {}) == UBUS_STATUS_OK;
    }
    Broker broker;
};
