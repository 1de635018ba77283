// Programs on an interface's hooks as filters of a clsact.
#include <cerrno>
#include <cstdio>
#include <memory>
#include <span>
#include <string_view>

#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>

#include <bpf/libbpf.h>
#include <libmnl/libmnl.h>

#include "core/handle.h"
#include "kernel/hooks.h"
#include "kernel/net/attributes.h"
#include "kernel/net/messages.h"

namespace {

// First of all filters, so that none of them decides before it.
constexpr uint32_t PRIORITY = 1;
constexpr uint32_t HANDLE = 0x6b6f6c74;

using netlink = kolt_handle<mnl_socket, mnl_socket_close>;

// What a walk over filters or queueing disciplines looks for and has found.
struct search {
    uint32_t ifindex = 0;
    kolt_direction direction{};
    bool clsact = false; // the queueing discipline of the hooks is one
    bool ingress = false;
    bool ours = false;
    size_t others = 0;
    kolt_other_program first;
};

constexpr uint32_t parent_of(kolt_direction direction) {
    return TC_H_MAKE(TC_H_CLSACT, direction == kolt_direction::INGRESS ? TC_H_MIN_INGRESS : TC_H_MIN_EGRESS);
}

// What a message of that type is about; null for another one, and for one that ends before its head does.
const tcmsg *head_of(const nlmsghdr *message, uint16_t type) {
    if (message->nlmsg_type != type || mnl_nlmsg_get_payload_len(message) < sizeof(tcmsg))
        return nullptr;
    return static_cast<const tcmsg *>(mnl_nlmsg_get_payload(message));
}

std::string_view kind_of(const nlmsghdr *message) {
    return attribute_text(attribute_table<TCA_KIND>(*message, sizeof(tcmsg))[TCA_KIND]);
}

// The name that a BPF filter has, or else its kind.
std::string_view name_of(const nlmsghdr *message) {
    const std::string_view kind = kind_of(message);
    if (kind != "bpf")
        return kind;
    const attribute_table<TCA_OPTIONS> filter(*message, sizeof(tcmsg));
    const attribute_table<TCA_BPF_NAME> options(filter[TCA_OPTIONS]);
    return options[TCA_BPF_NAME] != nullptr ? attribute_text(options[TCA_BPF_NAME]) : kind;
}

// Filters are named after their program: "name:[number]".
bool is_name(std::string_view text, std::string_view name) {
    return text.starts_with(name) && (text.size() == name.size() || text[name.size()] == ':');
}

int see_filter(const nlmsghdr *message, void *data) {
    auto *found = static_cast<search *>(data);
    const tcmsg *filter = head_of(message, RTM_NEWTFILTER);
    if (filter == nullptr || filter->tcm_handle == 0)
        return MNL_CB_OK;
    const std::string_view name = name_of(message);
    if (filter->tcm_handle == HANDLE && is_name(name, kolt_program_name(found->direction))) {
        found->ours = true;
        return MNL_CB_OK;
    }
    if (found->others++ == 0)
        (void)snprintf(found->first.name, sizeof found->first.name, "%.*s", static_cast<int>(name.size()), name.data());
    return MNL_CB_OK;
}

int see_qdisc(const nlmsghdr *message, void *data) {
    auto *found = static_cast<search *>(data);
    const tcmsg *qdisc = head_of(message, RTM_NEWQDISC);
    if (qdisc == nullptr || static_cast<uint32_t>(qdisc->tcm_ifindex) != found->ifindex)
        return MNL_CB_OK;
    const std::string_view kind = kind_of(message);
    found->clsact = found->clsact || kind == "clsact";
    found->ingress = found->ingress || kind == "ingress";
    return MNL_CB_OK;
}

// One by one, as the library's walk over a datagram takes their lengths on trust.
int see_all(std::span<const std::byte> datagram, uint32_t sequence, unsigned port, mnl_cb_t see, search *found) {
    int result = MNL_CB_OK;
    message_reader messages(datagram);
    while (const nlmsghdr *message = result > MNL_CB_STOP ? messages.next() : nullptr)
        result = mnl_cb_run(message, message->nlmsg_len, sequence, port, see, found);
    return result;
}

bool receive(mnl_socket *socket, uint32_t sequence, mnl_cb_t see, search *found) {
    alignas(nlmsghdr) std::byte buffer[16384];
    for (;;) {
        const ssize_t size = mnl_socket_recvfrom(socket, buffer, sizeof buffer);
        if (size < 0)
            return false;
        const int result =
            see_all({buffer, static_cast<size_t>(size)}, sequence, mnl_socket_get_portid(socket), see, found);
        if (result <= MNL_CB_STOP)
            return result == MNL_CB_STOP;
    }
}

bool dump(uint16_t type, uint32_t parent, mnl_cb_t see, search *found) {
    constexpr uint32_t SEQUENCE = 1;
    alignas(nlmsghdr) char buffer[256];
    const netlink socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0)
        return false;
    nlmsghdr *request = mnl_nlmsg_put_header(buffer);
    request->nlmsg_type = type;
    request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request->nlmsg_seq = SEQUENCE;
    auto *head = static_cast<tcmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(tcmsg)));
    head->tcm_ifindex = static_cast<int>(found->ifindex);
    head->tcm_parent = parent;
    return mnl_socket_sendto(socket.get(), request, request->nlmsg_len) >= 0 &&
           receive(socket.get(), SEQUENCE, see, found);
}

// A dump whose answer a signal or a change has cut short is asked for again. Without traffic control there is nothing.
bool dump_whole(uint16_t type, uint32_t parent, mnl_cb_t see, search *found) {
    constexpr int ATTEMPTS = 10;
    const search before = *found;
    for (int attempt = 0; attempt < ATTEMPTS; attempt++) {
        *found = before;
        if (dump(type, parent, see, found) || errno == EOPNOTSUPP)
            return true;
        if (errno != EINTR)
            return false;
    }
    return false;
}

// An interface that is gone meanwhile has no filters.
bool look_for_filters(search *found) {
    return dump_whole(RTM_GETTFILTER, parent_of(found->direction), see_filter, found);
}

bool cannot_look(uint32_t ifindex, kolt_reason *why) {
    return why->say(errno, "cannot see what filters interface %u has", ifindex);
}

// All that stands on one hook.
bool look(uint32_t ifindex, kolt_direction direction, search *found, kolt_reason *why) {
    found->ifindex = ifindex;
    found->direction = direction;
    // The older ingress qdisc has the same handle, and takes filters for egress as ones for ingress.
    return (dump_whole(RTM_GETQDISC, 0, see_qdisc, found) && (!found->clsact || look_for_filters(found))) ||
           cannot_look(ifindex, why);
}

bpf_tc_hook hook_of(uint32_t ifindex, kolt_direction direction) {
    bpf_tc_hook hook{};
    hook.sz = sizeof hook;
    hook.ifindex = static_cast<int>(ifindex);
    hook.attach_point = direction == kolt_direction::INGRESS ? BPF_TC_INGRESS : BPF_TC_EGRESS;
    return hook;
}

bpf_tc_opts own_filter() {
    bpf_tc_opts options{};
    options.sz = sizeof options;
    options.handle = HANDLE;
    options.priority = PRIORITY;
    return options;
}

bool make_clsact(uint32_t ifindex, kolt_reason *why) {
    bpf_tc_hook hook = hook_of(ifindex, kolt_direction::INGRESS);
    const int error = bpf_tc_hook_create(&hook);
    return error == 0 || error == -EEXIST || why->say(-error, "cannot put a clsact on interface %u", ifindex);
}

void remove_empty_clsact(uint32_t ifindex) {
    kolt_reason ignored; // an empty one does no harm
    for (const auto direction : KOLT_DIRECTIONS) {
        search left;
        if (!look(ifindex, direction, &left, &ignored) || !left.clsact || left.ours || left.others != 0)
            return;
    }
    bpf_tc_hook hook = hook_of(ifindex, kolt_direction::INGRESS);
    hook.attach_point = static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS);
    (void)bpf_tc_hook_destroy(&hook);
}

} // namespace

bool clsact_attach(uint32_t ifindex, kolt_direction direction, int program, kolt_reason *why) {
    search found;
    if (!look(ifindex, direction, &found, why))
        return false;
    if (found.ingress)
        return why->say(EBUSY, "an ingress qdisc stands in the way of a clsact on interface %u", ifindex);
    if (!found.clsact && !make_clsact(ifindex, why))
        return false;
    const bpf_tc_hook hook = hook_of(ifindex, direction);
    bpf_tc_opts options = own_filter();
    options.prog_fd = program;
    options.flags = BPF_TC_F_REPLACE;
    const int error = bpf_tc_attach(&hook, &options);
    return error == 0 || why->say(-error, "cannot put the filter %s on interface %u%s%s", kolt_program_name(direction),
                                  ifindex, found.others != 0 ? ", where another one stands: " : "", found.first.name);
}

bool clsact_detach(uint32_t ifindex, kolt_direction direction, kolt_reason *why) {
    bool there = false;
    if (!clsact_find(ifindex, direction, &there, why))
        return false;
    if (!there)
        return true;
    const bpf_tc_hook hook = hook_of(ifindex, direction);
    const bpf_tc_opts options = own_filter();
    const int error = bpf_tc_detach(&hook, &options);
    if (error != 0 && error != -ENOENT)
        return why->say(-error, "cannot take the filter %s off interface %u", kolt_program_name(direction), ifindex);
    remove_empty_clsact(ifindex);
    return true;
}

// Of the interface alone: a list of all queueing disciplines may lack some while interfaces go.
bool clsact_find(uint32_t ifindex, kolt_direction direction, bool *there, kolt_reason *why) {
    search found;
    found.ifindex = ifindex;
    found.direction = direction;
    const bool seen = look_for_filters(&found);
    *there = found.ours;
    return seen || cannot_look(ifindex, why);
}

bool clsact_attached(uint32_t ifindex, kolt_direction direction) {
    bool there = false;
    kolt_reason ignored;
    return clsact_find(ifindex, direction, &there, &ignored) && there;
}

size_t clsact_others(uint32_t ifindex, kolt_direction direction, kolt_other_program *first) {
    search found;
    kolt_reason ignored;
    if (!look(ifindex, direction, &found, &ignored) || found.others == 0)
        return 0;
    *first = found.first;
    return found.others;
}
