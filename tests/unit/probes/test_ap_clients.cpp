// The clients of the access point, from their management daemon's file.
#include "probe_test.h"

#include "probes/ap_clients.h"

#include <cstring>

namespace {

using testing::IsEmpty;

constexpr char CLIENT_FILE[] = "/tmp/client_mgmt/ap_client_list";

// The record as bytes: one of count, then the MACs without a gap.
std::string bytes_of(const kolt_ap_client_list &list, size_t size) {
    return {reinterpret_cast<const char *>(&list), size};
}

kolt_ap_client_list marked_list() {
    kolt_ap_client_list list;
    memset(static_cast<void *>(&list), 0xEE, sizeof list);
    return list;
}

struct list_row {
    const char *name;
    const char *text;
    const char *expected; // record bytes: count, then MACs
    size_t size;
};

class ApClients : public probe_rows<list_row> {};

TEST_P(ApClients, ApClientsAreListedInTheOrderOfTheFile) {
    const at_log_level dump(3);
    write_file(CLIENT_FILE, GetParam().text);
    kolt_ap_client_list list = marked_list();
    EXPECT_EQ(kolt_get_ap_client_list(&list), 1);
    EXPECT_EQ(bytes_of(list, GetParam().size), std::string(GetParam().expected, GetParam().size));
    EXPECT_THAT(logged(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Probes, ApClients,
    testing::Values(list_row{"One", R"([{"mac": "01-02-03-04-05-06"}])", "\x01\x01\x02\x03\x04\x05\x06", 7},
                    list_row{"Two", R"([{"name": "b", "mac": "B1-B2-B3-B4-B5-B6"}, {"mac": "a1-a2-a3-a4-a5-a6"}])",
                             "\x02\xB1\xB2\xB3\xB4\xB5\xB6\xA1\xA2\xA3\xA4\xA5\xA6", 13},
                    list_row{"TheSameTwice", R"([{"mac": "01-02-03-04-05-06"}, {"mac": "01-02-03-04-05-06"}])",
                             "\x02\x01\x02\x03\x04\x05\x06\x01\x02\x03\x04\x05\x06", 13},
                    list_row{"EmptyArray", "[]", "\0", 1},
                    list_row{"ElementsWithoutMacAreSkipped",
                             R"([{}, {"MAC": "01-02-03-04-05-06"}, {"mac": "A1-A2-A3-A4-A5-A6"}, {"ip": 1}])",
                             "\x01\xA1\xA2\xA3\xA4\xA5\xA6", 7},
                    list_row{"NullMacIsSkipped", R"([{"mac": null}, {"mac": "A1-A2-A3-A4-A5-A6"}])",
                             "\x01\xA1\xA2\xA3\xA4\xA5\xA6", 7},
                    list_row{"ElementsThatAreNoObjectsAreSkipped",
                             R"([null, 1, "mac", ["mac"], true, 1.5, {"mac": "A1-A2-A3-A4-A5-A6"}])",
                             "\x01\xA1\xA2\xA3\xA4\xA5\xA6", 7},
                    list_row{"ColonFormIsAllZero", R"([{"mac": "01:02:03:04:05:06"}])", "\x01\0\0\0\0\0\0", 7},
                    list_row{"UnparsableIsAllZero", R"([{"mac": "abc"}])", "\x01\0\0\0\0\0\0", 7},
                    list_row{"NumberReadsAsText", R"([{"mac": 12}])", "\x01\x12\0\0\0\0\0", 7},
                    list_row{"OtherTypesReadAsText", R"([{"mac": {}}, {"mac": ["01-02"]}])",
                             "\x02\0\0\0\0\0\0\0\0\0\0\0\0", 13},
                    list_row{"AnObjectIsNoArray", R"({"mac": "01-02-03-04-05-06"})", "\0", 1},
                    list_row{"ATextIsNoArray", R"("01-02-03-04-05-06")", "\0", 1}),
    row_name<list_row>);

class ApClientFile : public probe {
protected:
    void SetUp() override {
        remove_file(CLIENT_FILE);
    }

    static void expect_untouched() {
        const at_log_level dump(3);
        kolt_ap_client_list list = marked_list();
        EXPECT_EQ(kolt_get_ap_client_list(&list), 0);
        EXPECT_EQ(bytes_of(list, sizeof list), std::string(sizeof list, '\xEE'));
        EXPECT_THAT(logged(), IsEmpty());
    }

    // So many clients; the last two octets count them.
    static std::string list_of(int clients) {
        std::string text = "[";
        for (int i = 0; i < clients; i++) {
            char element[64];
            snprintf(element, sizeof element, "%s{\"mac\":\"02-00-00-00-%02X-%02X\"}", i != 0 ? "," : "", i / 256,
                     i % 256);
            text += element;
        }
        return text + "]";
    }

    static void expect_listed(int clients, uint8_t expected) {
        write_file(CLIENT_FILE, list_of(clients));
        kolt_ap_client_list list = marked_list();
        ASSERT_EQ(kolt_get_ap_client_list(&list), 1);
        EXPECT_EQ(list.count, expected);
        for (uint8_t i = 0; i < expected; i++)
            EXPECT_THAT(list.macs[i], testing::ElementsAre(2, 0, 0, 0, 0, i)) << int{i};
    }

    // Two clients and so many blanks that the closing bracket is the byte number `size`.
    static std::string list_that_ends_at(size_t size) {
        const std::string head = R"([{"mac": "01-02-03-04-05-06"}, {"mac": "A1-A2-A3-A4-A5-A6"})";
        return head + std::string(size - head.size() - 1, ' ') + "]";
    }
};

TEST_F(ApClientFile, AbsentFileLeavesTheRecordUntouched) {
    expect_untouched();
}

TEST_F(ApClientFile, UnparsableFileLeavesTheRecordUntouched) {
    for (const char *text : {"", "[", R"([{"mac": "01-02-03-04-05-06"}, )", "clients", "null"}) {
        write_file(CLIENT_FILE, text);
        expect_untouched();
    }
}

TEST_F(ApClientFile, FolderInItsPlaceLeavesTheRecordUntouched) {
    write_file(std::string(CLIENT_FILE) + "/file", "[]");
    expect_untouched();
}

TEST_F(ApClientFile, NullRecordIsRefused) {
    write_file(CLIENT_FILE, "[]");
    EXPECT_EQ(kolt_get_ap_client_list(nullptr), 0);
}

TEST_F(ApClientFile, TextEndsAtAZeroByte) {
    const std::string text = R"([{"mac": "01-02-03-04-05-06"}])";
    write_file(CLIENT_FILE, text + std::string(10, '\0') + "{{{");
    kolt_ap_client_list list;
    EXPECT_EQ(kolt_get_ap_client_list(&list), 1);
    EXPECT_EQ(list.count, 1);
}

TEST_F(ApClientFile, FileOfExactly32768BytesIsReadWhole) {
    write_file(CLIENT_FILE, list_that_ends_at(32768));
    kolt_ap_client_list list;
    EXPECT_EQ(kolt_get_ap_client_list(&list), 1);
    EXPECT_EQ(list.count, 2);
}

TEST_F(ApClientFile, FileWhoseLastNeededByteIsNumber32769DoesNotParse) {
    write_file(CLIENT_FILE, list_that_ends_at(32769));
    expect_untouched();
}

TEST_F(ApClientFile, BytesBehind32768AreNotLookedAt) {
    write_file(CLIENT_FILE, list_that_ends_at(32768) + "}}} no json at all");
    kolt_ap_client_list list;
    EXPECT_EQ(kolt_get_ap_client_list(&list), 1);
    EXPECT_EQ(list.count, 2);
}

TEST_F(ApClientFile, ListHoldsUpTo255Clients) {
    expect_listed(254, 254);
    expect_listed(255, 255);
}

TEST_F(ApClientFile, LongerListsAreCutAt255Clients) {
    expect_listed(256, 255);
    expect_listed(300, 255);
    expect_listed(1000, 255);
}

TEST_F(ApClientFile, ShorterListReplacesALongerOne) {
    kolt_ap_client_list list;
    write_file(CLIENT_FILE, list_of(5));
    ASSERT_EQ(kolt_get_ap_client_list(&list), 1);
    write_file(CLIENT_FILE, list_of(1));
    ASSERT_EQ(kolt_get_ap_client_list(&list), 1);
    EXPECT_EQ(list.count, 1);
}

TEST_F(ApClientFile, ListHoldsAMacOnlyWithinItsCount) {
    kolt_ap_client_list list;
    const mac_address first{1, 2, 3, 4, 5, 6};
    const mac_address last{1, 2, 3, 4, 5, 7};
    const mac_address beyond{1, 2, 3, 4, 5, 8};
    const mac_address absent{9, 2, 3, 4, 5, 6};
    memcpy(list.macs[0], first.data(), 6);
    memcpy(list.macs[1], last.data(), 6);
    memcpy(list.macs[2], beyond.data(), 6);
    list.count = 2;
    EXPECT_EQ(kolt_check_mac_in_ap_client_list(&list, first.data()), 1);
    EXPECT_EQ(kolt_check_mac_in_ap_client_list(&list, last.data()), 1);
    EXPECT_EQ(kolt_check_mac_in_ap_client_list(&list, beyond.data()), 0);
    EXPECT_EQ(kolt_check_mac_in_ap_client_list(&list, absent.data()), 0);
    list.count = 0;
    EXPECT_EQ(kolt_check_mac_in_ap_client_list(&list, first.data()), 0);
}

TEST_F(ApClientFile, FullListIsSearchedToItsEnd) {
    kolt_ap_client_list list;
    const mac_address last{1, 2, 3, 4, 5, 6};
    memcpy(list.macs[254], last.data(), 6);
    list.count = 255;
    EXPECT_EQ(kolt_check_mac_in_ap_client_list(&list, last.data()), 1);
    list.count = 254;
    EXPECT_EQ(kolt_check_mac_in_ap_client_list(&list, last.data()), 0);
}

TEST_F(ApClientFile, NullListHoldsNothing) {
    const mac_address mac{};
    EXPECT_EQ(kolt_check_mac_in_ap_client_list(nullptr, mac.data()), 0);
}

} // namespace
