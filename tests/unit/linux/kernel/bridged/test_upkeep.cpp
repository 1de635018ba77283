// Links that somebody else sets otherwise, or takes the programs off.
#include "bridged/upkeep.h"

#include "bridged/ports.h"
#include "linux/support/bridged_test.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <bpf/bpf.h>
#include <iterator>
#include <linux/bpf.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class upkeep_test : public bridged_test {
protected:
    upkeep_test() {
        join();
        EXPECT_TRUE(life_.hear_until([] { return true; }));
        upkeep_second(life_.get());
        clear_log();
        (void)life_.announced_ports();
    }
    void take_off(uint32_t ifindex) {
        kolt_reason why;
        EXPECT_TRUE(life_->programs.detach(ifindex, &why)) << why.text;
    }
    // A program of somebody else that is the first on the port, and ours on one of its hooks only.
    static void take_half_off(uint32_t ifindex) {
        constexpr auto TCX_INGRESS = static_cast<bpf_attach_type>(46);
        constexpr auto TCX_EGRESS = static_cast<bpf_attach_type>(47);
        constexpr unsigned BEFORE = 1U << 3;
        const bpf_insn code[] = {{.code = BPF_ALU64 | BPF_MOV | BPF_K, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0},
                                 {.code = BPF_JMP | BPF_EXIT, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0}};
        const unique_fd other(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "shaper", "none", code, std::size(code), nullptr));
        ASSERT_EQ(bpf_prog_attach(other.get(), static_cast<int>(ifindex), TCX_INGRESS, BEFORE), 0);
        uint32_t id = 0;
        uint32_t flags = 0;
        uint32_t count = 1;
        ASSERT_EQ(bpf_prog_query(static_cast<int>(ifindex), TCX_EGRESS, 0, &flags, &id, &count), 0);
        const unique_fd ours(bpf_prog_get_fd_by_id(id));
        ASSERT_EQ(bpf_prog_detach2(ours.get(), static_cast<int>(ifindex), TCX_EGRESS), 0);
    }
};

TEST_F(upkeep_test, NothingIsDoneWhileNobodyDoesAnything) {
    EXPECT_TRUE(life_.hear_until([] { return true; }));
    upkeep_second(life_.get());
    EXPECT_THAT(life_.announced_ports(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(upkeep_test, ProgramsThatWereTakenOffArePutOnAgain) {
    const kolt_port word = life_.word(port(FAST_LINK));
    take_off(port(FAST_LINK));
    upkeep_second(life_.get());
    EXPECT_TRUE(kolt_programs::attached(port(FAST_LINK)));
    EXPECT_EQ(life_.word(port(FAST_LINK)), word);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: p1: somebody has taken the programs off it; they are on it again"));
    upkeep_second(life_.get());
    EXPECT_EQ(logged().size(), 1U);
}

TEST_F(upkeep_test, LinkThatCannotHaveThemAsTheyAreIsTakenInAnew) {
    if (!tcx_available())
        throw std::runtime_error("this kernel is too old for TCX");
    take_half_off(port(FAST_LINK));
    upkeep_second(life_.get());
    EXPECT_TRUE(kolt_programs::attached(port(FAST_LINK)));
    EXPECT_EQ(life_.word(port(FAST_LINK)).flags & KOLT_PORT_OPEN, 0) << "nothing is known of it";
    EXPECT_EQ(life_.word(port(SLOW_LINK)).accepts, 3) << "the other one has its work at once";
    EXPECT_THAT(logged_texts(),
                ElementsAre(StartsWith("Error: p1: somebody has taken the programs off it; the program shaper runs"),
                            "Info: p1: another program sees what may pass: shaper"));
    EXPECT_TRUE(ports_release(life_.get()));
    EXPECT_EQ(life_.port(port(FAST_LINK)).flags, bridge_port_flags{}) << "as it was found";
}

TEST_F(upkeep_test, FlagsThatSomebodySetAreSetBackWithinASecond) {
    ASSERT_EQ(bridge_port_set(life_->rtnl, port(SLOW_LINK), SENDS_ALL), 0);
    ASSERT_TRUE(life_.hear_until([this] { return node_find_port(&life_.node(), "p0")->touched; }));
    EXPECT_EQ(life_.port(port(SLOW_LINK)).flags, SENDS_ALL);
    upkeep_second(life_.get());
    EXPECT_EQ(life_.port(port(SLOW_LINK)).flags, SENDS_NOTHING);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: p0: somebody has set what the bridge sends there; it is set back"));
    ASSERT_TRUE(life_.hear_until([] { return true; }));
    upkeep_second(life_.get());
    EXPECT_EQ(logged().size(), 1U);
}

TEST_F(upkeep_test, WhatTheKernelEndsByItselfIsLeftToIt) {
    bridge_port_flags later = SENDS_ALL;
    later.mcast_router = MCAST_ROUTER_LEARNT;
    ASSERT_EQ(bridge_port_set(life_->rtnl, port(FAST_LINK), later), 0);
    ASSERT_TRUE(life_.hear_until([] { return true; }));
    upkeep_second(life_.get());
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(life_.port(port(FAST_LINK)).flags, later);
}

TEST_F(upkeep_test, FlagsAreLookedAtAfterAnOverrun) {
    take_out_of_bridge("p0");
    put_into_bridge("p0", "br0"); // which has the kernel's flags then
    ports_overrun(life_.get());
    upkeep_second(life_.get());
    EXPECT_EQ(life_.port(port(SLOW_LINK)).flags, SENDS_NOTHING);
}

TEST_F(upkeep_test, LinkForWhichThereWasNoRoomIsTakenOnceThereIs) {
    constexpr uint32_t NOBODYS = 10000;
    take_out_of_bridge("p1");
    ASSERT_TRUE(life_.hear_until([this] { return node_find_port(&life_.node(), "p1") == nullptr; }));
    tree &links = life_.node().links;
    for (uint32_t i = 0; i < TREE_PORTS; i++)
        (void)tree_port_add(&links, NOBODYS + i, {}, false, node_now());
    put_into_bridge("p1", "br0");
    ASSERT_TRUE(life_.hear_until([this] { return node_find_port(&life_.node(), "p1") != nullptr; }));
    upkeep_second(life_.get());
    EXPECT_EQ(tree_slot(links, port(FAST_LINK)), NO_SLOT);
    tree_port_remove(&links, NOBODYS, node_now());
    upkeep_second(life_.get());
    EXPECT_NE(tree_slot(links, port(FAST_LINK)), NO_SLOT);
    EXPECT_TRUE(node_find_port(&life_.node(), "p1")->backhaul);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: br0: too many links, p1 stays closed"));
}

TEST_F(upkeep_test, PortThatHasLeftIsLeftAlone) {
    take_out_of_bridge("p1");
    take_off(port(FAST_LINK));
    upkeep_second(life_.get());
    EXPECT_FALSE(kolt_programs::attached(port(FAST_LINK)));
    EXPECT_THAT(logged(), IsEmpty());
}

} // namespace
