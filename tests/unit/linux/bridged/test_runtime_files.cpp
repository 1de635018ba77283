// What kolt reads of the node: written whole, and only when it is another.
#include "bridged/replace_file.h"
#include "bridged/runtime_files.h"
#include "support/sandbox.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string text_of(const std::string &path) {
    const std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

node_report extender() {
    node_report report;
    report.mode = KOLT_MODE_RE;
    const uint8_t root[] = {0x02, 0, 0, 0, 0, 0xFE};
    const uint8_t parent[] = {0x02, 0, 0, 0, 0, 0x77};
    memcpy(report.root, root, sizeof(root));
    memcpy(report.parent, parent, sizeof(parent));
    return report;
}

class RuntimeFiles : public testing::Test {
protected:
    void write(const node_report &report, bool all = false) {
        runtime_files_write(report, &written_, all);
    }
    node_report written_;
};

TEST_F(RuntimeFiles, RoleIsWrittenWithTheMacsOfRootAndParent) {
    write(extender(), true);
    EXPECT_EQ(text_of("/tmp/work_mode"), "{ \"work_mode\": \"RE\", \"cap_mac\": \"02:00:00:00:00:FE\", "
                                         "\"parent_mac\": \"02:00:00:00:00:77\" }\n");
}

TEST_F(RuntimeFiles, LinkToTheRootCarriesTheNumberThatKoltAdds) {
    node_report report = extender();
    for (const kolt_link_type type : {KOLT_LINK_2G, KOLT_LINK_5G, KOLT_LINK_5G_2})
        report.links[type] = {.up = true, .to_root = true};
    write(report, true);
    EXPECT_EQ(text_of("/tmp/wifi_runtime_info.2g"), "{ \"status\": 1, \"rootap_mac\": \"02:00:00:00:01:00\" }\n");
    EXPECT_EQ(text_of("/tmp/wifi_runtime_info.5g"), "{ \"status\": 1, \"rootap_mac\": \"02:00:00:00:01:01\" }\n");
    EXPECT_EQ(text_of("/tmp/wifi_runtime_info.5g2"), "{ \"status\": 1, \"rootap_mac\": \"00:00:00:00:00:FE\" }\n");
}

TEST_F(RuntimeFiles, LinkToAnotherExtenderCarriesItsMac) {
    node_report report = extender();
    report.links[KOLT_LINK_PLC] = {.up = true, .neighbour = {0x02, 1, 2, 3, 4, 5}};
    write(report, true);
    EXPECT_EQ(text_of("/tmp/plc_runtime_info"),
              "{ \"status\": 1, \"rootap_mac\": \"02:01:02:03:04:05\", \"cap_has_plc\": 0 }\n");
    EXPECT_EQ(text_of("/tmp/eth_runtime_info"), "{ \"status\": 0, \"rootap_mac\": \"00:00:00:00:00:00\" }\n");
}

TEST_F(RuntimeFiles, EthernetUplinkIsAnOptionOfTheSettings) {
    node_report report = extender();
    memcpy(report.ethernet_uplink, "eth1", 5);
    report.ethernet_neighbours = 2;
    write(report, true);
    EXPECT_EQ(text_of("/etc/config/tolmux"), "config tolmux 'tolmux'\n");
    EXPECT_EQ(text_of("/var/state/tolmux"), "tolmux.tolmux.TrafficEthActive='1'\n"
                                            "tolmux.tolmux.TrafficEthInterface='eth1'\n"
                                            "tolmux.tolmux.eth_HasNeigh='2'\n");
}

TEST_F(RuntimeFiles, SettingsOfTheUserAreKept) {
    write_file("/etc/config/tolmux", "config tolmux 'tolmux'\n\toption TrafficPlcRoot '1'\n");
    write(extender(), true);
    EXPECT_EQ(text_of("/etc/config/tolmux"), "config tolmux 'tolmux'\n\toption TrafficPlcRoot '1'\n");
}

TEST_F(RuntimeFiles, OnlyWhatIsAnotherIsWritten) {
    write(extender(), true);
    ASSERT_EQ(unlink("/tmp/work_mode"), 0);
    ASSERT_EQ(unlink("/tmp/eth_runtime_info"), 0);
    ASSERT_EQ(unlink("/tmp/wifi_runtime_info.5g"), 0);
    node_report report = extender();
    report.links[KOLT_LINK_5G].up = true;
    write(report);
    EXPECT_NE(access("/tmp/work_mode", F_OK), 0);
    EXPECT_NE(access("/tmp/eth_runtime_info", F_OK), 0);
    EXPECT_EQ(access("/tmp/wifi_runtime_info.5g", F_OK), 0);
}

TEST_F(RuntimeFiles, LinkInPlaceOfAFileIsReplacedAndNotFollowed) {
    write_file("/tmp/elsewhere", "mine");
    ASSERT_EQ(symlink("/tmp/elsewhere", "/tmp/work_mode"), 0);
    ASSERT_EQ(symlink("/tmp/elsewhere", "/tmp/work_mode.kolt-bridged"), 0);
    write(extender(), true);
    EXPECT_EQ(text_of("/tmp/elsewhere"), "mine");
    EXPECT_EQ(text_of("/tmp/work_mode").substr(0, 17), "{ \"work_mode\": \"R");
}

TEST_F(RuntimeFiles, WhatCouldNotBeWrittenIsTriedAgain) {
    ASSERT_EQ(mkdir("/tmp/work_mode", 0755), 0);
    write(extender());
    ASSERT_EQ(rmdir("/tmp/work_mode"), 0);
    write(extender());
    EXPECT_EQ(access("/tmp/work_mode", F_OK), 0);
}

TEST(ReplaceFile, EverybodyMayReadIt) {
    umask(077);
    ASSERT_TRUE(replace_file("/tmp/one", "text", 4));
    struct stat status {};
    ASSERT_EQ(stat("/tmp/one", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644U);
    EXPECT_EQ(text_of("/tmp/one"), "text");
}

TEST(ReplaceFile, PathThatIsTooLongIsAFailure) {
    const std::string path = "/tmp/" + std::string(200, 'x');
    EXPECT_FALSE(replace_file(path.c_str(), "text", 4));
    EXPECT_EQ(access(path.c_str(), F_OK), -1);
}

} // namespace
