// The trials, each one request.
#include "kernel/net/trial.h"

#include "kernel/net/rtnl.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <linux/bpf.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int LOOPBACK = 1; // its index in every new namespace

int make_bridge(rtnl_socket &rtnl) {
    rtnl_message message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    message.head<ifinfomsg>();
    mnl_attr_put_strz(message.header, IFLA_IFNAME, "trial");
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_strz(message.header, IFLA_INFO_KIND, "bridge");
    mnl_attr_nest_end(message.header, info);
    return rtnl.request(message);
}

int make_clsact(rtnl_socket &rtnl) {
    rtnl_message message(RTM_NEWQDISC, NLM_F_CREATE | NLM_F_EXCL);
    auto *head = message.head<tcmsg>();
    head->tcm_ifindex = LOOPBACK;
    head->tcm_handle = TC_H_MAKE(TC_H_CLSACT, 0);
    head->tcm_parent = TC_H_CLSACT;
    mnl_attr_put_strz(message.header, TCA_KIND, "clsact");
    return rtnl.request(message);
}

int attach(rtnl_socket &rtnl, int program) {
    if (program < 0)
        return EBADF;
    rtnl_message message(RTM_NEWTFILTER, NLM_F_CREATE | NLM_F_EXCL);
    auto *head = message.head<tcmsg>();
    head->tcm_ifindex = LOOPBACK;
    head->tcm_parent = TC_H_MAKE(TC_H_CLSACT, TC_H_MIN_EGRESS);
    head->tcm_info = TC_H_MAKE(1U << 16, htons(ETH_P_ALL));
    mnl_attr_put_strz(message.header, TCA_KIND, "bpf");
    nlattr *options = mnl_attr_nest_start(message.header, TCA_OPTIONS);
    mnl_attr_put_u32(message.header, TCA_BPF_FD, static_cast<uint32_t>(program));
    mnl_attr_put_strz(message.header, TCA_BPF_NAME, "trial");
    mnl_attr_put_u32(message.header, TCA_BPF_FLAGS, TCA_BPF_FLAG_ACT_DIRECT);
    mnl_attr_nest_end(message.header, options);
    return rtnl.request(message);
}

// A process without the right to make a network namespace may still make a user namespace, in which it has that right.
int enter_namespace() {
    if (unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0)
        return 0;
    return errno;
}

trial_results failed_at_start(int code) {
    return {.space = code, .bridge = code, .clsact = code, .attach = code};
}

trial_results try_all(int program) {
    rtnl_socket rtnl;
    int space = enter_namespace();
    if (space == 0)
        space = rtnl.open();
    if (space != 0)
        return failed_at_start(space);
    trial_results results{.bridge = make_bridge(rtnl), .clsact = make_clsact(rtnl)};
    results.attach = results.clsact == 0 ? attach(rtnl, program) : results.clsact;
    return results;
}

[[noreturn]] void run_child(int answers, int program) {
    const trial_results results = try_all(program);
    const bool told = write(answers, &results, sizeof results) == sizeof results;
    _exit(told ? 0 : 1);
}

} // namespace

unique_fd load_trial_program() {
    const bpf_insn code[] = {
        {.code = BPF_ALU64 | BPF_MOV | BPF_K, .dst_reg = BPF_REG_0, .src_reg = 0, .off = 0, .imm = 0},
        {.code = BPF_JMP | BPF_EXIT, .dst_reg = 0, .src_reg = 0, .off = 0, .imm = 0},
    };
    bpf_attr request{};
    request.prog_type = BPF_PROG_TYPE_SCHED_CLS;
    request.insn_cnt = sizeof code / sizeof *code;
    request.insns = reinterpret_cast<uintptr_t>(code);
    request.license = reinterpret_cast<uintptr_t>("");
    return unique_fd(static_cast<int>(syscall(SYS_bpf, BPF_PROG_LOAD, &request, sizeof request)));
}

trial_results try_in_namespace(int program) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return failed_at_start(errno);
    const unique_fd answers(ends[0]);
    unique_fd childs_end(ends[1]);
    const pid_t child = fork();
    if (child == 0)
        run_child(childs_end.get(), program);
    if (child < 0)
        return failed_at_start(errno);
    childs_end.reset();
    trial_results results;
    ssize_t size = 0;
    do
        size = read(answers.get(), &results, sizeof results);
    while (size < 0 && errno == EINTR);
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return size == sizeof results ? results : failed_at_start(ECHILD);
}
