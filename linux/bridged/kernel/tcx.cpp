// Programs on an interface's hooks by TCX (Linux 6.6): by bare system calls, since a library may be older than the
// kernel.
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <linux/bpf.h>
#include <sys/syscall.h>

#include <bpf/bpf.h>

#include "core/handle.h"
#include "kernel/hooks.h"

namespace {

constexpr uint32_t TCX_INGRESS = 46;
constexpr uint32_t TCX_EGRESS = 47;
constexpr uint32_t FLAG_REPLACE = 1U << 2;
constexpr uint32_t FLAG_BEFORE = 1U << 3; // before a given program; with none given, before all
constexpr size_t MAX_PROGRAMS = 64;       // the kernel's limit for a hook

struct attach_request {
    uint32_t ifindex;
    uint32_t program;
    uint32_t type;
    uint32_t flags;
    uint32_t replaced_program;
    uint32_t relative;
    uint64_t expected_revision;
};

struct query_request {
    uint32_t ifindex;
    uint32_t type;
    uint32_t query_flags;
    uint32_t attach_flags;
    uint64_t program_ids; // address
    uint32_t count;
    uint32_t zero;
    uint64_t program_attach_flags;
    uint64_t link_ids;
    uint64_t link_attach_flags;
    uint64_t revision;
};

// The programs on a hook, in the order in which they run.
struct hook_programs {
    std::array<uint32_t, MAX_PROGRAMS> ids{};
    size_t count = 0;
};

constexpr uint32_t type_of(kolt_direction direction) {
    return direction == kolt_direction::INGRESS ? TCX_INGRESS : TCX_EGRESS;
}

template <class Request> int call(bpf_cmd command, Request *request) {
    return syscall(SYS_bpf, command, request, sizeof *request) < 0 ? errno : 0;
}

int query(uint32_t ifindex, uint32_t type, hook_programs *programs) {
    query_request request{};
    request.ifindex = ifindex;
    request.type = type;
    request.program_ids = reinterpret_cast<uintptr_t>(programs->ids.data());
    request.count = MAX_PROGRAMS;
    const int error = call(BPF_PROG_QUERY, &request);
    programs->count = error == 0 ? request.count : 0;
    return error;
}

// False when the program is gone.
bool describe(uint32_t id, unique_fd *program, bpf_prog_info *info) {
    uint32_t size = sizeof *info;
    program->reset(bpf_prog_get_fd_by_id(id));
    return *program && bpf_obj_get_info_by_fd(program->get(), info, &size) == 0;
}

struct survey {
    unique_fd ours;
    uint32_t our_id = 0;
    size_t others = 0;
    kolt_other_program first;
};

survey look(uint32_t ifindex, kolt_direction direction) {
    survey result;
    hook_programs programs;
    (void)query(ifindex, type_of(direction), &programs); // an interface gone meanwhile has none
    for (size_t place = 0; place < programs.count; place++) {
        unique_fd program;
        bpf_prog_info info{};
        if (!describe(programs.ids[place], &program, &info))
            continue;
        if (strcmp(info.name, kolt_program_name(direction)) == 0) {
            result.ours = std::move(program);
            result.our_id = info.id;
            continue;
        }
        if (result.others++ == 0)
            (void)snprintf(result.first.name, sizeof result.first.name, "%s", info.name);
    }
    return result;
}

} // namespace

// A kernel that knows the hook looks for the interface next; one that does not refuses the hook.
bool tcx_available() {
    hook_programs programs;
    return query(INT_MAX, TCX_INGRESS, &programs) == ENODEV;
}

bool tcx_attach(uint32_t ifindex, kolt_direction direction, int program, kolt_reason *why) {
    const survey present = look(ifindex, direction);
    bpf_prog_info info{};
    uint32_t size = sizeof info;
    if (bpf_obj_get_info_by_fd(program, &info, &size) == 0 && info.id == present.our_id)
        return true;
    attach_request request{};
    request.ifindex = ifindex;
    request.program = static_cast<uint32_t>(program);
    request.type = type_of(direction);
    request.flags = present.ours ? FLAG_REPLACE : FLAG_BEFORE;
    request.replaced_program = present.ours ? static_cast<uint32_t>(present.ours.get()) : 0;
    const int error = call(BPF_PROG_ATTACH, &request);
    return error == 0 ||
           why->say(error, "cannot put the program %s on interface %u", kolt_program_name(direction), ifindex);
}

bool tcx_detach(uint32_t ifindex, kolt_direction direction, kolt_reason *why) {
    const survey present = look(ifindex, direction);
    if (!present.ours)
        return true;
    attach_request request{};
    request.ifindex = ifindex;
    request.program = static_cast<uint32_t>(present.ours.get());
    request.type = type_of(direction);
    const int error = call(BPF_PROG_DETACH, &request);
    return error == 0 || error == ENOENT ||
           why->say(error, "cannot take the program %s off interface %u", kolt_program_name(direction), ifindex);
}

bool tcx_attached(uint32_t ifindex, kolt_direction direction) {
    return look(ifindex, direction).our_id != 0;
}

size_t tcx_others(uint32_t ifindex, kolt_direction direction, kolt_other_program *first) {
    const survey present = look(ifindex, direction);
    if (present.others != 0)
        *first = present.first;
    return present.others;
}
