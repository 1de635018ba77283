// The recorded session, with the broker's part played from the record: what this client sends must be what was
// recorded, byte for byte.
#include "support.h"

namespace {

std::vector<SessionRecord> part_of(const std::string &client) {
    std::vector<SessionRecord> part;
    for (const SessionRecord &record : recorded_session()) {
        if (record.client == client)
            part.push_back(record);
    }
    return part;
}

std::vector<std::string> senders() {
    std::vector<std::string> names;
    for (const SessionRecord &record : recorded_session()) {
        if (record.client != "daemon" && (names.empty() || names.back() != record.client) &&
            std::find(names.begin(), names.end(), record.client) == names.end())
            names.push_back(record.client);
    }
    return names;
}

ScriptedBroker::Script playback(std::vector<SessionRecord> part) {
    return [part = std::move(part)](int fd) {
        for (const SessionRecord &record : part) {
            if (record.from_broker)
                EXPECT_TRUE(send_bytes(fd, record.bytes));
            else
                EXPECT_EQ(to_hex(receive_bytes(fd, record.bytes.size())), to_hex(record.bytes));
        }
    };
}

class UbusClientSession : public LoopTest {
protected:
    static std::vector<std::string> events;
    TempDir dir;
};

std::vector<std::string> UbusClientSession::events;

TEST_F(UbusClientSession, ListenerSendsTheRecordedBytesAndSeesTheRecordedEvents) {
    events.clear();
    ScriptedBroker broker(dir.path("sock"), playback(part_of("daemon")));
    ubus_context *ctx = ubus_connect(dir.path("sock").c_str());
    ASSERT_TRUE(ctx);
    EXPECT_EQ(ctx->local_id, 0xcb631148u);
    ubus_event_handler handler = {};
    handler.cb = [](ubus_context *, ubus_event_handler *, const char *type, blob_attr *message) {
        events.push_back(std::string(type) + " " +
                         to_hex(Bytes(static_cast<char *>(blob_data(message)), blob_len(message))));
    };
    EXPECT_EQ(ubus_register_event_handler(ctx, &handler, "kolt.*"), 0);
    EXPECT_EQ(handler.obj.id, 0xbbbf01e0u);
    ctx->connection_lost = [](ubus_context *) { uloop_end(); };
    EXPECT_EQ(ubus_add_uloop(ctx), 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(events, (std::vector<std::string>{
                          "kolt.configure " + to_hex(text_member("mode", "RE")),
                          "kolt.link_state " + to_hex(number_member("LINK_WIFI_2G", 1) + number_member("LINK_ETH", 0)),
                          "kolt.debug " + to_hex(number_member("dbg_level", 0xffffffff))}));
    ubus_free(ctx);
}

class UbusSenderSession : public ::testing::TestWithParam<std::string> {
protected:
    TempDir dir;
};

TEST_P(UbusSenderSession, EventSenderSendsTheRecordedBytes) {
    ScriptedBroker broker(dir.path("sock"), playback(part_of(GetParam())));
    const std::string call = GetParam().substr(strlen("send "));
    const size_t blank = call.find(' ');
    Process sender({KOLT_EVENT, "-s", dir.path("sock"), call.substr(0, blank), call.substr(blank + 1)});
    EXPECT_EQ(sender.wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(, UbusSenderSession, ::testing::ValuesIn(senders()),
                         [](const auto &param) { return "Sender" + std::to_string(param.index); });

} // namespace
