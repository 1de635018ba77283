// Putting the programs on an interface and taking them off.
#include "linux/support/data_plane.h"
#include "linux/support/rights.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <linux/capability.h>
#include <stdexcept>
#include <unistd.h>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>

namespace {

using testing::HasSubstr;

bpf_tc_hook ingress_of(uint32_t ifindex) {
    bpf_tc_hook hook{};
    hook.sz = sizeof hook;
    hook.ifindex = static_cast<int>(ifindex);
    hook.attach_point = BPF_TC_INGRESS;
    return hook;
}

// A program that is not this process's, and lets everything pass.
unique_fd foreign_program(const char *name = "shaper") {
    const bpf_insn code[] = {{.code = BPF_ALU64 | BPF_MOV | BPF_K, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0},
                             {.code = BPF_JMP | BPF_EXIT, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0}};
    return unique_fd(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, name, "none", code, std::size(code), nullptr));
}

bool put_foreign_filter(uint32_t ifindex, uint32_t priority, uint32_t handle) {
    const unique_fd program = foreign_program();
    bpf_tc_hook hook = ingress_of(ifindex);
    bpf_tc_opts options{};
    options.sz = sizeof options;
    options.prog_fd = program.get();
    options.priority = priority;
    options.handle = handle;
    const int made = bpf_tc_hook_create(&hook);
    return (made == 0 || made == -EEXIST) && bpf_tc_attach(&hook, &options) == 0;
}

// What holds for both ways.
class hooks_test : public data_plane_test, public testing::WithParamInterface<kolt_hooking> {
protected:
    hooks_test() {
        bring_up("p0");
        bring_up("e0");
        if (GetParam() == kolt_hooking::TCX && !tcx_available())
            throw std::runtime_error("this kernel is too old for TCX");
    }
    bool attach() {
        return programs_.attach(one_, &why_, GetParam());
    }
    // Whether a frame that arrives at the closed port is stopped.
    [[nodiscard]] static bool guards() {
        const wire_end inside("p0", 0x9000); // sees what has passed the hook
        const wire_end outside("e0");
        outside.send(ethernet_frame(CLIENT, SERVER, 0x9000));
        return inside.receive(100).empty();
    }
};

TEST_P(hooks_test, BothStandThereUntilTheyAreTakenOff) {
    EXPECT_FALSE(kolt_programs::attached(one_));
    EXPECT_FALSE(guards());
    ASSERT_TRUE(attach()) << why_.text;
    EXPECT_TRUE(kolt_programs::attached(one_));
    EXPECT_TRUE(guards());
    ASSERT_TRUE(programs_.detach(one_, &why_)) << why_.text;
    EXPECT_FALSE(kolt_programs::attached(one_));
    EXPECT_FALSE(guards());
    EXPECT_TRUE(programs_.detach(one_, &why_)) << "there is nothing to take off";
}

TEST_P(hooks_test, AttachingAgainChangesNothing) {
    ASSERT_TRUE(attach()) << why_.text;
    ASSERT_TRUE(attach()) << why_.text;
    EXPECT_TRUE(guards());
    ASSERT_TRUE(programs_.detach(one_, &why_));
    EXPECT_FALSE(guards()) << "there was a second one";
}

TEST_P(hooks_test, TheNextProcessReplacesThem) {
    ASSERT_TRUE(attach());
    kolt_programs next;
    ASSERT_EQ(kolt_opened::TAKEN_OVER, next.open(PINS, &why_));
    EXPECT_TRUE(kolt_programs::attached(one_));
    ASSERT_TRUE(next.attach(one_, &why_, GetParam())) << why_.text;
    EXPECT_TRUE(guards());
    ASSERT_TRUE(next.detach(one_, &why_));
    EXPECT_FALSE(guards());
}

TEST_P(hooks_test, TheyOutliveTheirProcess) {
    {
        kolt_programs gone;
        ASSERT_EQ(kolt_opened::TAKEN_OVER, gone.open(PINS, &why_));
        ASSERT_TRUE(gone.attach(one_, &why_, GetParam()));
    }
    EXPECT_TRUE(guards());
}

TEST_P(hooks_test, OneWayReplacesTheOther) {
    ASSERT_TRUE(attach());
    const kolt_hooking other = GetParam() == kolt_hooking::TCX ? kolt_hooking::CLSACT : kolt_hooking::TCX;
    ASSERT_TRUE(programs_.attach(one_, &why_, other)) << why_.text;
    for (const auto direction : KOLT_DIRECTIONS) {
        EXPECT_EQ(other == kolt_hooking::TCX, tcx_attached(one_, direction, {}));
        EXPECT_EQ(other == kolt_hooking::CLSACT, clsact_attached(one_, direction));
    }
    EXPECT_TRUE(guards());
}

TEST_P(hooks_test, AnotherFilterIsToldAndLeftAlone) {
    kolt_other_program first;
    EXPECT_EQ(0U, kolt_programs::others(one_, kolt_direction::INGRESS, &first));
    ASSERT_TRUE(put_foreign_filter(one_, 10, 1));
    ASSERT_TRUE(attach()) << why_.text;
    EXPECT_EQ(1U, kolt_programs::others(one_, kolt_direction::INGRESS, &first));
    EXPECT_THAT(first.name, HasSubstr("shaper"));
    EXPECT_EQ(0U, kolt_programs::others(one_, kolt_direction::EGRESS, &first));
    EXPECT_TRUE(guards()) << "it has come first";
    ASSERT_TRUE(programs_.detach(one_, &why_));
    EXPECT_EQ(1U, kolt_programs::others(one_, kolt_direction::INGRESS, &first));
}

TEST_P(hooks_test, AnInterfaceThatIsNotThereIsRefused) {
    EXPECT_FALSE(programs_.attach(3999, &why_, GetParam()));
    EXPECT_EQ(ENODEV, why_.error);
    EXPECT_THAT(why_.text, HasSubstr("interface 3999"));
    EXPECT_FALSE(kolt_programs::attached(3999));
    EXPECT_TRUE(programs_.detach(3999, &why_)) << why_.text;
}

TEST_P(hooks_test, WhatCannotBeSeenIsNotTakenForNothing) {
    ASSERT_TRUE(attach()) << why_.text;
    {
        const without_capability no_network(CAP_NET_ADMIN);
        const without_capability no_system(CAP_SYS_ADMIN);
        const no_descriptors no_sockets;
        EXPECT_FALSE(programs_.detach(one_, &why_));
        EXPECT_THAT(why_.text, HasSubstr("cannot see what"));
        EXPECT_FALSE(attach());
    }
    EXPECT_TRUE(guards());
    ASSERT_TRUE(programs_.detach(one_, &why_)) << why_.text;
    EXPECT_FALSE(guards());
}

TEST_P(hooks_test, AnInterfaceIsGuardedHoweverManyThereWereBefore) {
    constexpr uint32_t LAST = 65535;
    make_wire("p2", "e2", 1500, LAST);
    bring_up("p2");
    bring_up("e2");
    ASSERT_TRUE(programs_.attach(LAST, &why_, GetParam())) << why_.text;
    const wire_end near("p2");
    const wire_end far("e2");
    far.send(ethernet_frame(BROADCAST, SERVER, 0x9000));
    ASSERT_TRUE(programs_.set_port(LAST, {.flags = KOLT_PORT_OPEN, .admits = 1}));
    EXPECT_EQ(KOLT_PORT_OPEN, programs_.port(LAST).flags);
    EXPECT_EQ(1U, programs_.foreign(LAST)) << "the frame before it was open";
    EXPECT_EQ(kolt_port{}, programs_.port(one_)) << "which is on another page";
}

TEST_P(hooks_test, AnInterfaceBeyondTheTableIsRefused) {
    EXPECT_FALSE(programs_.attach(KOLT_MAX_PORTS, &why_, GetParam()));
    EXPECT_EQ(ERANGE, why_.error);
}

INSTANTIATE_TEST_SUITE_P(Ways, hooks_test, testing::Values(kolt_hooking::CLSACT, kolt_hooking::TCX),
                         [](const auto &way) { return way.param == kolt_hooking::TCX ? "Tcx" : "Clsact"; });

using clsact_test = data_plane_test;

TEST_F(clsact_test, IsRemovedWithTheLastFilterOnly) {
    ASSERT_TRUE(programs_.attach(one_, &why_, kolt_hooking::CLSACT));
    ASSERT_TRUE(programs_.detach(one_, &why_));
    bpf_tc_hook hook = ingress_of(one_);
    EXPECT_EQ(0, bpf_tc_hook_create(&hook)) << "one was left behind";
    ASSERT_TRUE(put_foreign_filter(one_, 5, 1));
    ASSERT_TRUE(programs_.attach(one_, &why_, kolt_hooking::CLSACT));
    ASSERT_TRUE(programs_.detach(one_, &why_));
    EXPECT_EQ(-EEXIST, bpf_tc_hook_create(&hook));
}

TEST_F(clsact_test, SharesItsPriorityWithAnotherFilter) {
    ASSERT_TRUE(put_foreign_filter(one_, 1, 1));
    EXPECT_TRUE(programs_.attach(one_, &why_, kolt_hooking::CLSACT)) << why_.text;
    kolt_other_program first;
    EXPECT_EQ(1U, kolt_programs::others(one_, kolt_direction::INGRESS, &first));
}

TEST_F(clsact_test, DoesNotTakeAnIngressQdiscForOne) {
    put_ingress_qdisc("p0");
    EXPECT_FALSE(programs_.attach(one_, &why_, kolt_hooking::CLSACT));
    EXPECT_EQ(EBUSY, why_.error);
    EXPECT_FALSE(kolt_programs::attached(one_));
}

using best_test = data_plane_test;

TEST_F(best_test, TakesTcxWhereTheKernelHasIt) {
    ASSERT_TRUE(programs_.attach(one_, &why_)) << why_.text;
    EXPECT_EQ(tcx_available(), tcx_attached(one_, kolt_direction::EGRESS, {}));
    EXPECT_NE(tcx_available(), clsact_attached(one_, kolt_direction::EGRESS));
}

// A process that may not look at programs by their numbers alone.
class pinned_test : public data_plane_test {
protected:
    static constexpr auto TCX_INGRESS = static_cast<bpf_attach_type>(46);

    pinned_test() {
        if (!tcx_available())
            throw std::runtime_error("this kernel is too old for TCX");
    }
    static unsigned count(uint32_t ifindex) {
        uint32_t ids[64];
        uint32_t flags = 0;
        uint32_t number = std::size(ids);
        EXPECT_EQ(0, bpf_prog_query(static_cast<int>(ifindex), TCX_INGRESS, 0, &flags, ids, &number));
        return number;
    }
    static void stand(const unique_fd &program, uint32_t ifindex, unsigned flags = 0) {
        ASSERT_EQ(0, bpf_prog_attach(program.get(), static_cast<int>(ifindex), TCX_INGRESS, flags));
    }
    // What an earlier process of another version has left on both ports.
    void leave_old_programs() {
        const unique_fd old = foreign_program("kolt_ingress");
        const std::string pin = std::string(PINS) + "/kolt_ingress";
        ASSERT_EQ(0, unlink(pin.c_str()));
        ASSERT_EQ(0, bpf_obj_pin(old.get(), pin.c_str()));
        stand(old, one_);
        stand(old, two_);
    }
    void begin(kolt_programs *process) {
        ASSERT_EQ(kolt_opened::TAKEN_OVER, process->open(PINS, &why_)) << why_.text;
    }
    void attach(kolt_programs *process, uint32_t ifindex) {
        ASSERT_TRUE(process->attach(ifindex, &why_)) << why_.text;
    }
};

TEST_F(pinned_test, TheNextProcessKnowsThem) {
    const without_capability confined(CAP_SYS_ADMIN);
    attach(&programs_, one_);
    kolt_programs next;
    begin(&next);
    attach(&next, one_);
    EXPECT_EQ(1U, count(one_));
    EXPECT_TRUE(kolt_programs::attached(one_, next.own()));
    ASSERT_TRUE(next.detach(one_, &why_));
    EXPECT_EQ(0U, count(one_));
    EXPECT_FALSE(kolt_programs::attached(one_, next.own()));
}

TEST_F(pinned_test, AnotherVersionIsReplaced) {
    const without_capability confined(CAP_SYS_ADMIN);
    leave_old_programs();
    {
        kolt_programs stopped_half_way;
        begin(&stopped_half_way);
        attach(&stopped_half_way, one_);
    }
    kolt_programs next;
    begin(&next);
    for (const uint32_t port : {one_, two_}) {
        attach(&next, port);
        EXPECT_EQ(1U, count(port));
        ASSERT_TRUE(next.detach(port, &why_));
        EXPECT_EQ(0U, count(port));
    }
}

TEST_F(pinned_test, OneWithoutAPinIsToldByItsNumber) {
    const unique_fd program = foreign_program("kolt_ingress");
    bpf_prog_info info{};
    uint32_t size = sizeof info;
    ASSERT_EQ(0, bpf_obj_get_info_by_fd(program.get(), &info, &size));
    stand(program, one_);
    kolt_other_program first;
    EXPECT_EQ(0U, kolt_programs::others(one_, kolt_direction::INGRESS, &first, programs_.own())) << "its name tells";
    const without_capability confined(CAP_SYS_ADMIN);
    EXPECT_EQ(1U, kolt_programs::others(one_, kolt_direction::INGRESS, &first, programs_.own()));
    EXPECT_EQ("number " + std::to_string(info.id), first.name);
    attach(&programs_, one_);
    ASSERT_TRUE(programs_.detach(one_, &why_));
    EXPECT_EQ(1U, count(one_)) << "it is left alone";
}

TEST_F(pinned_test, OneThatRunsBeforeThemIsRefused) {
    constexpr unsigned BEFORE = 1U << 3;
    stand(foreign_program("first"), one_);
    attach(&programs_, one_); // it comes after
    attach(&programs_, one_);
    stand(foreign_program(), one_, BEFORE);
    EXPECT_FALSE(programs_.attach(one_, &why_));
    EXPECT_THAT(why_.text, HasSubstr("the program shaper runs before kolt_ingress on interface"));
    EXPECT_TRUE(kolt_programs::attached(one_)) << "it is of use until the bridge has closed the port";
}

TEST_F(pinned_test, AllOfThemAreTakenOffTogether) {
    stand(foreign_program("kolt_ingress"), one_);
    stand(foreign_program("kolt_ingress"), one_);
    attach(&programs_, one_);
    EXPECT_EQ(1U, count(one_));
}

} // namespace
