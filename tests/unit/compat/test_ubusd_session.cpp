// The recorded session, with the clients' parts played from the record against the real broker: its answers must be
// what was recorded, but for the ids that it draws.
#include "support.h"

#include <map>

namespace {

class UbusdSession : public ::testing::Test {
protected:
    // Replaces the recorded ids with the ones of this run.
    Bytes translated(Bytes bytes) const {
        for (const auto &[recorded, actual] : ids) {
            for (size_t at = bytes.find(recorded); at != Bytes::npos; at = bytes.find(recorded, at + 4))
                bytes.replace(at, 4, actual);
        }
        return bytes;
    }
    void play(const SessionRecord &record) {
        if (!clients.count(record.client))
            clients[record.client] = connect_to(broker.socket());
        const int fd = clients[record.client].get();
        if (!record.from_broker) {
            EXPECT_TRUE(send_bytes(fd, translated(record.bytes)));
            return;
        }
        const Bytes received = receive_bytes(fd, record.bytes.size());
        ASSERT_EQ(received.size(), record.bytes.size());
        if (record.bytes[1] == UBUS_MSG_HELLO)
            ids[record.bytes.substr(4, 4)] = received.substr(4, 4);
        if (record.bytes[1] == UBUS_MSG_DATA)
            ids[record.bytes.substr(16, 4)] = received.substr(16, 4);
        EXPECT_EQ(to_hex(received), to_hex(translated(record.bytes)));
    }
    Broker broker;
    std::map<std::string, Fd> clients;
    std::map<Bytes, Bytes> ids;
};

TEST_F(UbusdSession, BrokerSendsTheRecordedBytes) {
    for (const SessionRecord &record : recorded_session()) {
        SCOPED_TRACE(record.client + ": " + to_hex(record.bytes));
        ASSERT_NO_FATAL_FAILURE(play(record));
    }
    // A client, an object, four senders; all drawn ids differ.
    ASSERT_EQ(ids.size(), 6u);
}

} // namespace
