// The flow hash against worked values and a plain model of it, and the entry that it sets.
#include "adaptors/flow_cache.h"
#include "adaptors/rtk/rtk_flow_hash.h"
#include "support/fake_platform.h"
#include "support/log_capture.h"

#include <arpa/inet.h>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <set>

namespace {

using testing::ElementsAre;

const uint8_t SOURCE[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const uint8_t DESTINATION[] = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};

// 192.168.1.2 port 5000 to 10.0.0.1 port 80.
kolt_flow worked_flow(uint8_t protocol) {
    return {.src_ip = inet_addr("192.168.1.2"),
            .dst_ip = inet_addr("10.0.0.1"),
            .src_port = htons(5000),
            .dst_port = htons(80),
            .src_mac = SOURCE,
            .dst_mac = DESTINATION,
            .protocol = protocol};
}

TEST(RtkFlowHash, HashesOfTheWorkedFlowAreTheWorkedOnes) {
    EXPECT_EQ(kolt_ha_hash_rtk(worked_flow(6)), 64);
    EXPECT_EQ(kolt_ha_hash_rtk(worked_flow(17)), 197);
    EXPECT_EQ(kolt_ha_hash_rtk(worked_flow(1)), 22);
}

// ---- A model of the hash, by the bytes on the wire and in arithmetic that never wraps by itself.

using bytes6 = std::array<uint64_t, 6>;
using bytes4 = std::array<uint64_t, 4>;
using bytes2 = std::array<uint64_t, 2>;

struct wire_flow {
    bytes6 src_mac, dst_mac;
    bytes4 src_ip, dst_ip;
    bytes2 src_port, dst_port;
    uint64_t protocol;
};

constexpr uint64_t WORD = 0x100000000;

uint64_t model_step(uint64_t a, uint64_t b, uint64_t acc) {
    uint64_t mixed = 0;
    for (uint64_t bit = 1; bit < WORD; bit *= 2)
        mixed += (a / bit % 2 != b / bit % 2) ? bit : 0;
    return (acc * 33 + mixed) % WORD;
}

uint64_t lowest_first(uint64_t a, uint64_t b, uint64_t c, uint64_t d) {
    return a + b * 0x100 + c * 0x10000 + d * 0x1000000;
}

uint64_t model(const wire_flow &flow) {
    const auto &[src_mac, dst_mac, src, dst, src_port, dst_port, protocol] = flow;
    uint64_t acc = model_step(lowest_first(dst_mac[2], dst_mac[3], dst_mac[4], dst_mac[5]),
                              lowest_first(src_mac[2], src_mac[3], src_mac[4], src_mac[5]), 0);
    if (protocol == 6 || protocol == 17) {
        acc = model_step(protocol, 0, acc);
        acc = model_step(lowest_first(dst[3], dst[2], dst[1], dst[0]), dst_port[0] * 256 + dst_port[1], acc);
        acc = model_step(lowest_first(src[3], src[2], src[1], src[0]), src_port[0] * 256 + src_port[1], acc);
    } else {
        acc =
            model_step(lowest_first(dst[0], dst[1], dst[2], dst[3]), lowest_first(src[0], src[1], src[2], src[3]), acc);
    }
    uint64_t hash = 0;
    for (uint64_t byte = 1; byte < WORD; byte *= 256)
        hash ^= acc / byte % 256;
    return hash;
}

template <class Value, size_t N> Value in_memory(const std::array<uint64_t, N> &wire) {
    uint8_t bytes[N];
    std::copy(wire.begin(), wire.end(), bytes);
    Value value;
    static_assert(sizeof value == sizeof bytes);
    memcpy(&value, bytes, sizeof value);
    return value;
}

uint8_t hash_of(const wire_flow &flow) {
    uint8_t src_mac[6];
    uint8_t dst_mac[6];
    std::copy(flow.src_mac.begin(), flow.src_mac.end(), src_mac);
    std::copy(flow.dst_mac.begin(), flow.dst_mac.end(), dst_mac);
    return kolt_ha_hash_rtk({.src_ip = in_memory<uint32_t>(flow.src_ip),
                             .dst_ip = in_memory<uint32_t>(flow.dst_ip),
                             .src_port = in_memory<uint16_t>(flow.src_port),
                             .dst_port = in_memory<uint16_t>(flow.dst_port),
                             .src_mac = src_mac,
                             .dst_mac = dst_mac,
                             .protocol = static_cast<uint8_t>(flow.protocol)});
}

class RandomFlows : public testing::Test {
protected:
    wire_flow next(uint64_t protocol) {
        wire_flow flow{};
        fill(flow.src_mac);
        fill(flow.dst_mac);
        fill(flow.src_ip);
        fill(flow.dst_ip);
        fill(flow.src_port);
        fill(flow.dst_port);
        flow.protocol = protocol;
        return flow;
    }
    template <size_t N> void fill(std::array<uint64_t, N> &bytes) {
        for (uint64_t &byte : bytes)
            byte = random_() % 256;
    }

private:
    std::mt19937 random_{20240229};
};

constexpr bytes6 WIRE_SOURCE = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr bytes6 WIRE_DESTINATION = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};

TEST_F(RandomFlows, ModelHasTheWorkedValuesToo) {
    wire_flow flow{WIRE_SOURCE, WIRE_DESTINATION, {192, 168, 1, 2}, {10, 0, 0, 1}, {0x13, 0x88}, {0, 80}, 6};
    EXPECT_EQ(model(flow), 64U);
    flow.protocol = 17;
    EXPECT_EQ(model(flow), 197U);
    flow.protocol = 1;
    EXPECT_EQ(model(flow), 22U);
}

TEST_F(RandomFlows, FlowsHashLikeTheModelForEveryProtocol) {
    for (uint64_t protocol = 0; protocol < 256; protocol++) {
        for (int i = 0; i < 50; i++) {
            const wire_flow flow = next(protocol);
            ASSERT_EQ(hash_of(flow), model(flow)) << "protocol " << protocol << ", flow " << i;
        }
    }
}

TEST_F(RandomFlows, FlowsHashLikeTheModelForTcpAndUdpWithExtremeValues) {
    for (const uint64_t protocol : {6U, 17U}) {
        for (unsigned int bits = 0; bits < 64; bits++) {
            const auto value = [bits](unsigned int bit) { return (bits >> bit & 1) != 0 ? uint64_t{255} : 0; };
            const wire_flow flow{{value(0), value(0), value(0), value(0), value(0), value(0)},
                                 {value(1), value(1), value(1), value(1), value(1), value(1)},
                                 {value(2), value(2), value(2), value(2)},
                                 {value(3), value(3), value(3), value(3)},
                                 {value(4), value(4)},
                                 {value(5), value(5)},
                                 protocol};
            ASSERT_EQ(hash_of(flow), model(flow)) << bits;
        }
    }
}

TEST_F(RandomFlows, FirstTwoBytesOfTheMacsNeverInfluenceTheHash) {
    for (const uint64_t protocol : {6U, 17U, 1U, 0U, 255U}) {
        for (int i = 0; i < 100; i++) {
            const wire_flow flow = next(protocol);
            wire_flow changed = flow;
            for (const size_t byte : {0U, 1U}) {
                changed.src_mac[byte] ^= 0xFF;
                changed.dst_mac[byte] ^= 0x5A;
            }
            ASSERT_EQ(hash_of(changed), hash_of(flow));
        }
    }
}

TEST_F(RandomFlows, EveryOtherByteOfTheMacsInfluencesTheHash) {
    const wire_flow flow = next(6);
    for (size_t byte = 2; byte < 6; byte++) {
        wire_flow changed = flow;
        changed.src_mac[byte] ^= 1;
        EXPECT_NE(hash_of(changed), hash_of(flow)) << byte;
    }
}

TEST_F(RandomFlows, PortsOnlyCountForTcpAndUdp) {
    for (int i = 0; i < 100; i++) {
        for (const uint64_t protocol : {0U, 1U, 5U, 7U, 16U, 18U, 255U}) {
            const wire_flow flow = next(protocol);
            wire_flow changed = flow;
            fill(changed.src_port);
            fill(changed.dst_port);
            ASSERT_EQ(hash_of(changed), hash_of(flow)) << protocol;
        }
    }
    for (const uint8_t protocol : {uint8_t{6}, uint8_t{17}}) {
        kolt_flow changed = worked_flow(protocol);
        changed.src_port = htons(5001);
        EXPECT_NE(kolt_ha_hash_rtk(changed), kolt_ha_hash_rtk(worked_flow(protocol)));
        changed = worked_flow(protocol);
        changed.dst_port = htons(81);
        EXPECT_NE(kolt_ha_hash_rtk(changed), kolt_ha_hash_rtk(worked_flow(protocol)));
    }
}

wire_flow reversed(const wire_flow &flow) {
    return {flow.dst_mac, flow.src_mac, flow.dst_ip, flow.src_ip, flow.dst_port, flow.src_port, flow.protocol};
}

TEST_F(RandomFlows, ReverseDirectionHashesAlikeOnlyForOtherProtocolsThanTcpAndUdp) {
    for (int i = 0; i < 100; i++) {
        const wire_flow flow = next(1);
        ASSERT_EQ(hash_of(reversed(flow)), hash_of(flow));
    }
    for (const uint64_t protocol : {6U, 17U}) {
        int different = 0;
        for (int i = 0; i < 100; i++) {
            const wire_flow flow = next(protocol);
            different += hash_of(reversed(flow)) != hash_of(flow) ? 1 : 0;
        }
        EXPECT_GT(different, 80) << protocol; // one flow of 256 hashes alike by chance
    }
}

TEST_F(RandomFlows, FlowsReachEveryBucket) {
    std::set<int> buckets;
    for (int i = 0; i < 10000; i++)
        buckets.insert(hash_of(next(6)));
    EXPECT_EQ(buckets.size(), 256U);
}

// ---- Setting the HA entry

class CalHashAndSetHa : public testing::Test {
protected:
    void SetUp() override {
        platform = fake_platform{};
        clear_log();
    }
    static int set(uint32_t protocol) {
        return kolt_cal_hash_and_set_ha("br-lan", protocol, inet_addr("192.168.1.2"), inet_addr("10.0.0.1"),
                                        htons(5000), htons(80), SOURCE, DESTINATION, "wlan0.1", 65535, 4000000000U);
    }
    // The entry for a hash; the ports are handed on in network order, as they came.
    static std::string entry(const std::string &hash) {
        return "bridgeSetHATableEntries(br-lan, " + hash + ", 00:11:22:33:44:55, 66:77:88:99:AA:BB, " +
               std::to_string(htons(5000)) + ", " + std::to_string(htons(80)) + ", wlan0.1, 65535, 4000000000)";
    }
};

TEST_F(CalHashAndSetHa, EntryIsWrittenInTheBucketOfTheFlow) {
    EXPECT_EQ(set(6), 1);
    EXPECT_EQ(set(17), 1);
    EXPECT_EQ(set(1), 1);
    EXPECT_THAT(platform.calls, ElementsAre(entry("64"), entry("197"), entry("22")));
}

TEST_F(CalHashAndSetHa, ProtocolIsReducedToEightBits) {
    EXPECT_EQ(set(0x106), 1);
    EXPECT_EQ(set(0xFFFFFF11), 1);
    EXPECT_THAT(platform.calls, ElementsAre(entry("64"), entry("197")));
}

TEST_F(CalHashAndSetHa, ResultTellsWhetherTheEntryWasWritten) {
    platform.fail("bridgeSetHATableEntries", -1);
    EXPECT_EQ(set(6), 0);
    EXPECT_EQ(kolt_cal_hash_and_set_ha_rtk("br-lan", 6, 1, 2, 3, 4, SOURCE, DESTINATION, "eth0", 0, 0), 0);
    platform.fail("bridgeSetHATableEntries", 0);
    EXPECT_EQ(kolt_cal_hash_and_set_ha_rtk("br-lan", 6, 1, 2, 3, 4, SOURCE, DESTINATION, "eth0", 0, 0), 1);
    EXPECT_THAT(platform.calls, testing::SizeIs(3));
    EXPECT_THAT(logged(), testing::IsEmpty());
}

} // namespace
