// The numbers of clients by their MACs.
#include "../mac_address.h"

#include "probes/streams/client_index.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<kolt_client> clients_of(const std::vector<mac_address> &macs) {
    std::vector<kolt_client> clients(macs.size());
    for (size_t i = 0; i < macs.size(); i++)
        memcpy(clients[i].mac, macs[i].data(), KOLT_MAC_SIZE);
    return clients;
}

TEST(ClientIndex, NewIndexKnowsNobody) {
    const kolt_client_index index;
    EXPECT_EQ(index.number_of(numbered_mac(0).data()), KOLT_NO_CLIENT);
}

TEST(ClientIndex, DistinctMacsAreNumberedInTheOrderOfTheList) {
    kolt_client_index index;
    index.assign(clients_of({numbered_mac(7), numbered_mac(3), numbered_mac(7), numbered_mac(5)}));
    EXPECT_EQ(index.number_of(numbered_mac(7).data()), 0);
    EXPECT_EQ(index.number_of(numbered_mac(3).data()), 1);
    EXPECT_EQ(index.number_of(numbered_mac(5).data()), 2);
    EXPECT_EQ(index.count, 3);
}

TEST(ClientIndex, OtherMacsHaveNoNumber) {
    kolt_client_index index;
    index.assign(clients_of({numbered_mac(7)}));
    EXPECT_EQ(index.number_of(numbered_mac(8).data()), KOLT_NO_CLIENT);
    mac_address first_octet_differs = numbered_mac(7);
    first_octet_differs[0] ^= 0x80;
    EXPECT_EQ(index.number_of(first_octet_differs.data()), KOLT_NO_CLIENT);
}

TEST(ClientIndex, AssigningAgainForgetsTheListBefore) {
    kolt_client_index index;
    index.assign(clients_of({numbered_mac(7)}));
    index.assign(clients_of({numbered_mac(8)}));
    EXPECT_EQ(index.number_of(numbered_mac(7).data()), KOLT_NO_CLIENT);
    EXPECT_EQ(index.number_of(numbered_mac(8).data()), 0);
    index.assign({});
    EXPECT_EQ(index.number_of(numbered_mac(8).data()), KOLT_NO_CLIENT);
}

TEST(ClientIndex, FullListOfMacsThatDifferAnywhereIsToldApart) {
    for (size_t octet = 0; octet < KOLT_MAC_SIZE; octet++) {
        std::vector<mac_address> macs(KOLT_MAX_LISTED_CLIENTS);
        for (size_t i = 0; i < macs.size(); i++)
            macs[i][octet] = static_cast<uint8_t>(i);
        kolt_client_index index;
        index.assign(clients_of(macs));
        for (size_t i = 0; i < macs.size(); i++)
            ASSERT_EQ(index.number_of(macs[i].data()), i) << "octet " << octet;
        mac_address other{};
        other[octet] = 255;
        EXPECT_EQ(index.number_of(other.data()), KOLT_NO_CLIENT);
    }
}

} // namespace
