// What outlives kolt-bridged in the files of its run folder.
#include "bridged/saved_state.h"

#include "linux/decide/support_node.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

constexpr char TREE_FILE[] = "/tmp/run/tree.br-lan";
constexpr char PORT_FILE[] = "/tmp/run/port.wlan1.1";
constexpr char MODE_FILE[] = "/tmp/run/mode";
constexpr bridge_port_flags FLAGS = {false, true, false, true, MCAST_ROUTER_ALWAYS};

std::string bytes_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class SavedState : public testing::Test {
protected:
    SavedState() {
        self_->settings.run_folder = "/tmp/run";
        kolt_copy_name(node_.name, "br-lan");
        kolt_copy_name(port_.name, "wlan1.1");
        node_.owner = self_.get();
        port_.found = FLAGS;
        fs::remove_all("/tmp/run");
        fs::create_directory("/tmp/run");
        clear_log();
    }
    // The tree of a node with a parent.
    void write_child() {
        one_node node;
        node.port(10, NONRELAY);
        node.join({.ifindex = 10});
        ASSERT_EQ(node.state.parent, node_mac(BEST));
        node_.links = node.state;
        ASSERT_TRUE(saved_state_write(&node_));
    }
    // Whether the tree of a new process goes on from the file.
    [[nodiscard]] bool goes_on() {
        tree_start(&node_.links, OWN_ID, 1, 1, 1);
        return saved_state_read(&node_, 5);
    }

    // Whether a new process finds how the port was.
    [[nodiscard]] bool finds_port() {
        found_ = {};
        kolt_copy_name(found_.name, "wlan1.1");
        return saved_port_read(self_.get(), &found_);
    }

    std::unique_ptr<bridged> self_ = std::make_unique<bridged>();
    bridge_node &node_ = self_->bridges[0];
    node_port port_;
    node_port found_;
};

TEST_F(SavedState, TreeGoesOnFromItsFile) {
    write_child();
    EXPECT_TRUE(goes_on());
    EXPECT_EQ(node_.links.parent, node_mac(BEST));
    EXPECT_NE(tree_slot(node_.links, 10), NO_SLOT);
}

TEST_F(SavedState, TreeIsWrittenOnlyWhenItIsAnother) {
    write_child();
    ASSERT_TRUE(fs::remove(TREE_FILE));
    EXPECT_TRUE(saved_state_write(&node_));
    EXPECT_FALSE(fs::exists(TREE_FILE));
    tree_set_follow(&node_.links, true, 1);
    EXPECT_TRUE(saved_state_write(&node_));
    EXPECT_TRUE(fs::exists(TREE_FILE));
}

TEST_F(SavedState, WithoutAFileTheTreeBeginsAnew) {
    EXPECT_FALSE(goes_on());
    EXPECT_EQ(node_.links.parent, 0U);
}

TEST_F(SavedState, DamagedTreeIsNotTakenOver) {
    write_child();
    const std::string whole = bytes_of(TREE_FILE);
    ASSERT_EQ(whole.size(), sizeof(tree_record));
    std::vector<std::string> damaged = {"", whole.substr(0, whole.size() - 1), whole + '\0',
                                        std::string(whole.size(), '\0')};
    for (const size_t offset : {size_t{0}, offsetof(tree_record, record_version), offsetof(tree_record, size),
                                offsetof(tree_record, checksum), offsetof(tree_record, parent), whole.size() - 1}) {
        damaged.push_back(whole);
        damaged.back()[offset] = static_cast<char>(damaged.back()[offset] ^ 1);
    }
    for (const std::string &bytes : damaged) {
        write_file(TREE_FILE, bytes);
        EXPECT_FALSE(goes_on()) << "one of " << bytes.size() << " bytes";
        EXPECT_EQ(node_.links.parent, 0U);
    }
    write_file(TREE_FILE, whole);
    EXPECT_TRUE(goes_on());
}

TEST_F(SavedState, EachBridgeHasAFileOfItsOwn) {
    write_child();
    kolt_copy_name(node_.name, "br-guest");
    EXPECT_FALSE(goes_on());
}

TEST_F(SavedState, RemovedTreeIsForgotten) {
    write_child();
    saved_state_remove(&node_);
    EXPECT_FALSE(fs::exists(TREE_FILE));
    saved_state_remove(&node_);
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_TRUE(saved_state_write(&node_));
    EXPECT_TRUE(fs::exists(TREE_FILE)) << "the same once more";
}

TEST_F(SavedState, WhatCannotBeWrittenIsToldAndTriedAgain) {
    fs::remove_all("/tmp/run");
    write_child();
    EXPECT_THAT(logged_texts(), ElementsAre(HasSubstr("Error: cannot write /tmp/run/tree.br-lan: No such file")));
    saved_port_write(self_.get(), port_);
    EXPECT_EQ(logged().size(), 2U);
    fs::create_directory("/tmp/run");
    EXPECT_TRUE(saved_state_write(&node_));
    EXPECT_TRUE(fs::exists(TREE_FILE));
}

TEST_F(SavedState, ModeThatWasAskedForGoesOnUnderTheSameCommandLine) {
    EXPECT_FALSE(saved_mode_read(self_.get()));
    self_->mode = KOLT_MODE_FAP;
    saved_mode_write(self_.get());
    self_->mode = KOLT_MODE_RE;
    EXPECT_TRUE(saved_mode_read(self_.get()));
    EXPECT_EQ(self_->mode, KOLT_MODE_FAP);
    self_->mode = self_->settings.mode = KOLT_MODE_HAP;
    EXPECT_FALSE(saved_mode_read(self_.get())) << "the node was meant to be another one";
    EXPECT_EQ(self_->mode, KOLT_MODE_HAP);
}

TEST_F(SavedState, DamagedModeIsNotBelieved) {
    saved_mode_write(self_.get());
    const std::string whole = bytes_of(MODE_FILE);
    ASSERT_EQ(whole.size(), 12U);
    std::string other_version = whole;
    other_version[0]++;
    std::string none_that_there_is = whole;
    none_that_there_is[8] = 99;
    for (const std::string &bytes :
         {std::string(), whole.substr(0, 11), whole + '\0', other_version, none_that_there_is}) {
        write_file(MODE_FILE, bytes);
        EXPECT_FALSE(saved_mode_read(self_.get()));
        EXPECT_EQ(self_->mode, KOLT_MODE_RE);
    }
}

TEST_F(SavedState, AllOfItIsForgottenTogether) {
    write_child();
    saved_port_write(self_.get(), port_);
    saved_mode_write(self_.get());
    write_file("/tmp/run/lock", "");
    kolt_copy_name(node_.name, "br-other");
    saved_state_remove_all(self_.get());
    EXPECT_FALSE(fs::exists(TREE_FILE) || fs::exists(PORT_FILE) || fs::exists(MODE_FILE));
    EXPECT_TRUE(fs::exists("/tmp/run/lock")) << "it is held";
}

TEST_F(SavedState, FlagsOfAPortComeBackAsTheyWere) {
    EXPECT_FALSE(finds_port());
    saved_port_write(self_.get(), port_);
    ASSERT_TRUE(finds_port());
    EXPECT_EQ(found_.found, FLAGS);
    EXPECT_FALSE(found_.shut);
    kolt_copy_name(found_.name, "wlan0.1");
    EXPECT_FALSE(saved_port_read(self_.get(), &found_));
}

TEST_F(SavedState, EveryFlagIsKeptByItself) {
    for (const bridge_port_flags &flags : {bridge_port_flags{true, false, false, false, MCAST_ROUTER_NEVER},
                                           bridge_port_flags{false, true, false, false, MCAST_ROUTER_LEARNT},
                                           bridge_port_flags{false, false, true, false, MCAST_ROUTER_ALWAYS},
                                           bridge_port_flags{false, false, false, true, MCAST_ROUTER_TEMPORARY}}) {
        port_.found = flags;
        saved_port_write(self_.get(), port_);
        ASSERT_TRUE(finds_port());
        EXPECT_EQ(found_.found, flags);
    }
}

TEST_F(SavedState, PortThatIsShutIsKnownToBe) {
    port_.shut = true;
    saved_port_write(self_.get(), port_);
    ASSERT_TRUE(finds_port());
    EXPECT_TRUE(found_.shut);
    EXPECT_EQ(found_.found, FLAGS);
}

TEST_F(SavedState, DamagedFlagsAreNotBelieved) {
    saved_port_write(self_.get(), port_);
    const std::string whole = bytes_of(PORT_FILE);
    ASSERT_EQ(whole.size(), 12U);
    std::string other_version = whole;
    other_version[0]++;
    std::string other_router = whole;
    other_router[8] = MCAST_ROUTER_TEMPORARY + 1;
    for (const std::string &bytes : {std::string(), whole.substr(0, 11), whole + '\0', other_version, other_router}) {
        write_file(PORT_FILE, bytes);
        EXPECT_FALSE(finds_port());
        EXPECT_EQ(found_.found, bridge_port_flags{});
    }
}

TEST_F(SavedState, RemovedFlagsAreForgotten) {
    saved_port_write(self_.get(), port_);
    saved_port_remove(self_.get(), "wlan1.1");
    EXPECT_FALSE(finds_port());
    EXPECT_FALSE(fs::exists(PORT_FILE));
    saved_port_remove(self_.get(), "wlan1.1");
    EXPECT_THAT(logged(), IsEmpty());
}

} // namespace
