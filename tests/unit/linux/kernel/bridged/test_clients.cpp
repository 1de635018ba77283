// Clients that kolt places on links.
#include "bridged/clients.h"

#include "bridged/settle.h"
#include "linux/support/bridged_test.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <map>

using each_entry = callback_ref<void(const fdb_record &)>;

// The kernel's table, in which no entry gets old within a test.
int aged_fdb_dump(rtnl_socket &rtnl, uint32_t bridge,
                  each_entry each) asm("__wrap__Z8fdb_dumpR11rtnl_socketj12callback_refIFvRK10fdb_recordEE");
int real_fdb_dump(rtnl_socket &rtnl, uint32_t bridge,
                  each_entry each) asm("__real__Z8fdb_dumpR11rtnl_socketj12callback_refIFvRK10fdb_recordEE");

namespace {
std::map<mac_address, uint32_t> more_idle_ticks;
size_t fdb_dumps = 0;
} // namespace

int aged_fdb_dump(rtnl_socket &rtnl, uint32_t bridge, each_entry each) {
    fdb_dumps++;
    const auto age = [&](const fdb_record &entry) {
        fdb_record aged = entry;
        if (const auto more = more_idle_ticks.find(entry.mac); more != more_idle_ticks.end())
            aged.idle_ticks += more->second;
        each(aged);
    };
    return real_fdb_dump(rtnl, bridge, age);
}

namespace {

class clients_test : public bridged_test {
protected:
    int add(const char *ifname, const mac_address &mac = CLIENT, const mac_address &second = SECOND) {
        return clients_add(&life_.node(), mac.data(), second.data(), ifname);
    }
    int remove(const mac_address &mac = CLIENT) {
        return clients_remove(&life_.node(), mac.data());
    }
    static mac_address numbered(size_t number) {
        mac_address mac = CLIENT;
        mac[3] = static_cast<uint8_t>(number >> 8);
        mac[4] = static_cast<uint8_t>(number);
        return mac;
    }
    void fill() {
        for (size_t i = 0; i < MAX_CLIENTS; i++)
            ASSERT_EQ(add("p1", numbered(i)), 0);
    }
    // Where both tables have the client; they must agree.
    uint32_t place(const mac_address &mac = CLIENT) {
        const fdb_record entry = life_.entry(mac);
        EXPECT_EQ(entry.port, life_->programs.hd_find(mac.data()));
        EXPECT_EQ(entry.is_static && entry.sticky, entry.port != 0);
        return entry.port;
    }
};

TEST_F(clients_test, AreStaticEntriesOfBothTables) {
    join();
    ASSERT_EQ(add("p0"), 0);
    EXPECT_EQ(place(), port(SLOW_LINK));
    EXPECT_EQ(life_.node().client_count, 1U);
    ASSERT_EQ(add("p1"), 0);
    EXPECT_EQ(place(), port(FAST_LINK));
    EXPECT_EQ(life_.node().client_count, 1U);
}

TEST_F(clients_test, NeedAPortOfTheBridge) {
    join();
    EXPECT_EQ(add("p9"), ENODEV);
    EXPECT_EQ(life_.node().client_count, 0U);
}

TEST_F(clients_test, AreNeitherGroupsNorThisNode) {
    join();
    EXPECT_EQ(add("p1", {0x01, 0, 0x5e, 1, 2, 3}), EINVAL);
    EXPECT_EQ(add("p1", life_.node().mac), EINVAL);
    EXPECT_EQ(life_.node().client_count, 0U);
}

TEST_F(clients_test, HaveTheSecondMacThatWasSaidLast) {
    join();
    ASSERT_EQ(add("p1"), 0);
    ASSERT_EQ(add("p1", CLIENT, SERVER), 0);
    EXPECT_EQ(life_.node().clients[0].second_mac, SERVER);
    EXPECT_EQ(place(), port(FAST_LINK));
}

TEST_F(clients_test, WaitForAClosedPortToOpen) {
    join();
    lose(FAST_LINK);
    EXPECT_EQ(add("p1"), ENETDOWN);
    EXPECT_EQ(place(), 0U);
    find_again();
    EXPECT_EQ(place(), port(FAST_LINK));
}

TEST_F(clients_test, StayWhereTheyAreWhileTheWishedPortIsClosed) {
    join();
    ASSERT_EQ(add("p0"), 0);
    lose(FAST_LINK);
    EXPECT_EQ(add("p1"), 0);
    EXPECT_EQ(place(), port(SLOW_LINK));
}

TEST_F(clients_test, ThatCouldNotBePlacedMayBeAskedForAgain) {
    join();
    take_out_of_bridge("p1"); // of which nobody has heard yet
    EXPECT_NE(add("p1"), 0);
    EXPECT_NE(add("p1"), 0);
    EXPECT_EQ(place(), 0U);
    EXPECT_EQ(add("p0"), 0);
    EXPECT_EQ(place(), port(SLOW_LINK));
    EXPECT_NE(add("p1"), 0);
    EXPECT_EQ(place(), 0U);
}

TEST_F(clients_test, AreTakenBack) {
    join();
    ASSERT_EQ(add("p1"), 0);
    EXPECT_EQ(remove(), 0);
    EXPECT_EQ(place(), 0U);
    EXPECT_EQ(life_.node().client_count, 0U);
    EXPECT_EQ(remove(), ENOENT);
}

TEST_F(clients_test, AreTakenBackAllAtOnce) {
    join();
    ASSERT_EQ(add("p1"), 0);
    ASSERT_EQ(add("p0", SECOND), 0);
    clients_flush(&life_.node());
    EXPECT_EQ(place(), 0U);
    EXPECT_EQ(place(SECOND), 0U);
    EXPECT_EQ(life_.node().client_count, 0U);
}

TEST_F(clients_test, OfOnePortAreMovedToAnother) {
    join();
    ASSERT_EQ(add("p1"), 0);
    ASSERT_EQ(add("p0", SECOND), 0);
    clients_move_off(&life_.node(), port(FAST_LINK), port(SLOW_LINK));
    EXPECT_EQ(place(), port(SLOW_LINK));
    clients_move_off(&life_.node(), port(SLOW_LINK), 0);
    EXPECT_EQ(place(), 0U);
    EXPECT_EQ(place(SECOND), 0U);
    clients_place(&life_.node());
    EXPECT_EQ(place(), port(FAST_LINK));
    EXPECT_EQ(place(SECOND), port(SLOW_LINK));
}

TEST_F(clients_test, ThatSpeakFromElsewhereLoseTheirPlace) {
    join();
    ASSERT_EQ(add("p1"), 0);
    clients_take_roamed(life_.get());
    EXPECT_EQ(place(), port(FAST_LINK)) << "it has not spoken yet";
    wires_.end(CHILD_LINK).send(ethernet_frame(BROADCAST, CLIENT, 0x9000));
    ASSERT_TRUE(comes_true([&] { return life_->programs.hd_find(CLIENT.data()) == 0; }));
    clients_take_roamed(life_.get());
    EXPECT_EQ(life_.node().client_count, 0U);
    EXPECT_FALSE(life_.entry(CLIENT).is_static);
}

TEST_F(clients_test, ThatArePlacedAnewAfterTheySpokeFromElsewhereStayThere) {
    join();
    ASSERT_EQ(add("p1"), 0);
    wires_.end(CHILD_LINK).send(ethernet_frame(BROADCAST, CLIENT, 0x9000));
    ASSERT_TRUE(comes_true([&] { return life_->programs.hd_find(CLIENT.data()) == 0; }));
    ASSERT_EQ(add("p0"), 0);
    clients_take_roamed(life_.get());
    EXPECT_EQ(place(), port(SLOW_LINK));
}

TEST_F(clients_test, ThatSpeakFromElsewhereAllAtOnceAllLoseTheirPlace) {
    constexpr size_t MANY = 600;
    join();
    for (size_t i = 0; i < MANY; i++)
        ASSERT_EQ(add("p1", numbered(i)), 0);
    for (size_t i = 0; i < MANY; i++)
        wires_.end(CHILD_LINK).send(ethernet_frame(BROADCAST, numbered(i), 0x9000));
    ASSERT_TRUE(comes_true([&] { return life_->programs.hd_read({}) == 0; }));
    for (size_t taken = 0; taken < MANY; taken += CLIENTS_ROAMED_A_TURN)
        clients_take_roamed(life_.get());
    EXPECT_EQ(life_.node().client_count, 0U);
    for (size_t i = 0; i < MANY; i++)
        ASSERT_EQ(place(numbered(i)), 0U) << i;
}

TEST_F(clients_test, ThatSpeakOnTheOtherLinkOfTheirBundleKeepTheirs) {
    join();
    ASSERT_EQ(add("p0"), 0);
    wires_.end(FAST_LINK).send(ethernet_frame(BROADCAST, CLIENT, 0x9000));
    ASSERT_FALSE(wires_.end(HOSTS).receive().empty());
    clients_take_roamed(life_.get());
    EXPECT_EQ(place(), port(SLOW_LINK));
}

// The programs' table is one for all bridges.
TEST_F(clients_test, WithoutARoomInTheProgramsTableAreNotPlaced) {
    join();
    ASSERT_EQ(add("p0", SECOND), 0);
    const auto other = [](size_t number) {
        return mac_address{0x0e, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number), 1};
    };
    size_t others = 0;
    while (life_->programs.hd_set(other(others).data(), port(SLOW_LINK)))
        others++;
    EXPECT_EQ(add("p1"), ENOSPC);
    EXPECT_EQ(place(), 0U);
    EXPECT_EQ(add("p1", SECOND), 0) << "one that is in it may move";
    EXPECT_EQ(place(SECOND), port(FAST_LINK));
    ASSERT_TRUE(life_->programs.hd_remove(other(0).data()));
    EXPECT_EQ(add("p1"), 0);
    EXPECT_EQ(place(), port(FAST_LINK));
}

TEST_F(clients_test, ThatArePlacedNowhereMakeRoomFirst) {
    join();
    fill();
    ASSERT_EQ(add("p0", numbered(7)), 0);
    clients_move_off(&life_.node(), port(SLOW_LINK), 0);
    more_idle_ticks[numbered(8)] = 100000;
    EXPECT_EQ(add("p1", SERVER), 0);
    EXPECT_EQ(place(SERVER), port(FAST_LINK));
    EXPECT_FALSE(clients_know(life_.node(), numbered(7).data()));
    EXPECT_EQ(place(numbered(8)), port(FAST_LINK));
}

TEST_F(clients_test, ThatAreUnusedForTheLongestTimeMakeRoom) {
    join();
    fill();
    more_idle_ticks[numbered(7)] = 3000;
    more_idle_ticks[numbered(8)] = 5000;
    more_idle_ticks[numbered(9)] = 4000;
    EXPECT_EQ(add("p1", SERVER), 0);
    EXPECT_EQ(place(SERVER), port(FAST_LINK));
    EXPECT_FALSE(clients_know(life_.node(), numbered(8).data()));
    EXPECT_EQ(place(numbered(8)), 0U);
    EXPECT_EQ(add("p1", SECOND), 0);
    EXPECT_EQ(place(numbered(9)), 0U);
    EXPECT_EQ(life_.node().client_count, MAX_CLIENTS);
}

TEST_F(clients_test, InUseAreNotLookedThroughForEachThatIsRefused) {
    join();
    fill();
    more_idle_ticks[numbered(7)] = 1000; // and not twenty seconds more since
    fdb_dumps = 0;
    EXPECT_EQ(add("p1", SERVER), ENOSPC);
    EXPECT_EQ(add("p1", SECOND), ENOSPC);
    EXPECT_EQ(fdb_dumps, 1U);
    more_idle_ticks[numbered(7)] = 3000;
    life_.node().full_until_ms = 0; // a second later
    EXPECT_EQ(add("p1", SERVER), 0);
}

TEST_F(clients_test, BeyondTheTableAreRefusedWhileAllAreInUse) {
    join();
    fill();
    const mac_address mac = numbered(0);
    EXPECT_EQ(add("p1", SERVER), ENOSPC);
    EXPECT_EQ(life_.entry(SERVER).port, 0U);
    EXPECT_EQ(add("p0", mac), 0) << "one that is in it may move";
    EXPECT_EQ(place(mac), port(SLOW_LINK));
    EXPECT_EQ(remove(mac), 0);
    EXPECT_EQ(add("p1", SERVER), 0) << "there is room again";
}

} // namespace
