// Programs on an interface's hooks by TCX (Linux 6.6): by bare system calls, since a library may be older than the
// kernel.
#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <linux/bpf.h>
#include <sys/syscall.h>

#include <bpf/bpf.h>

#include "core/handle.h"
#include "kernel/hooks.h"
#include "kernel/own_programs.h"

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

enum class owner : uint8_t { THIS_DAEMON, OTHERS, NOBODY };

// Whose program that is, of which the hook told the number.
owner owner_of(const kolt_own_programs &own, kolt_direction direction, uint32_t id, kolt_other_program *told) {
    if (own.of_number(direction, id) >= 0)
        return owner::THIS_DAEMON;
    bpf_prog_info info{};
    uint32_t size = sizeof info;
    const unique_fd program(bpf_prog_get_fd_by_id(id));
    if (!program && errno == ENOENT)
        return owner::NOBODY; // gone meanwhile
    if (!program || bpf_obj_get_info_by_fd(program.get(), &info, &size) != 0 || info.name[0] == '\0')
        (void)snprintf(told->name, sizeof told->name, "number %u", id);
    else
        (void)snprintf(told->name, sizeof told->name, "%s", info.name);
    return strcmp(info.name, kolt_program_name(direction)) == 0 ? owner::THIS_DAEMON : owner::OTHERS;
}

struct survey {
    hook_programs ours;
    size_t others = 0;
    kolt_other_program first;
    bool first_comes_first = false; // of all, ours included
};

// An interface that is gone meanwhile has none, nor has one of a kernel that does not know the hook.
bool look(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own, survey *result, kolt_reason *why) {
    hook_programs programs;
    const int error = query(ifindex, type_of(direction), &programs);
    if (error != 0 && error != ENODEV && error != EINVAL)
        return why->say(error, "cannot see what programs interface %u has", ifindex);
    for (size_t place = 0; place < programs.count; place++) {
        kolt_other_program told;
        const owner whose = owner_of(own, direction, programs.ids[place], &told);
        if (whose == owner::THIS_DAEMON)
            result->ours.ids[result->ours.count++] = programs.ids[place];
        else if (whose == owner::OTHERS && result->others++ == 0) {
            result->first = told;
            result->first_comes_first = result->ours.count == 0;
        }
    }
    return true;
}

// A program of this daemon: one of `own`, or one without a pin that its name has told.
unique_fd open_ours(const kolt_own_programs &own, kolt_direction direction, uint32_t id) {
    const int held = own.of_number(direction, id);
    return unique_fd(held >= 0 ? fcntl(held, F_DUPFD_CLOEXEC, 0) : bpf_prog_get_fd_by_id(id));
}

// Puts the program before all others, or in the place of `replaced`, of which -1 is none.
int put_on(uint32_t ifindex, kolt_direction direction, int program, int replaced) {
    attach_request request{};
    request.ifindex = ifindex;
    request.program = static_cast<uint32_t>(program);
    request.type = type_of(direction);
    request.flags = replaced >= 0 ? FLAG_REPLACE : FLAG_BEFORE;
    request.replaced_program = replaced >= 0 ? static_cast<uint32_t>(replaced) : 0;
    return call(BPF_PROG_ATTACH, &request);
}

int take_off(uint32_t ifindex, kolt_direction direction, int program) {
    attach_request request{};
    request.ifindex = ifindex;
    request.program = static_cast<uint32_t>(program);
    request.type = type_of(direction);
    const int error = call(BPF_PROG_DETACH, &request);
    return error == ENOENT ? 0 : error;
}

// Takes off those of this daemon's programs whose number is not `kept`.
bool take_off_all(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own, uint32_t kept,
                  kolt_reason *why) {
    survey present;
    if (!look(ifindex, direction, own, &present, why))
        return false;
    for (size_t place = 0; place < present.ours.count; place++) {
        const uint32_t id = present.ours.ids[place];
        if (id == kept)
            continue;
        const unique_fd program = open_ours(own, direction, id);
        const int error = program ? take_off(ifindex, direction, program.get()) : errno;
        if (error != 0)
            return why->say(error, "cannot take the program %s off interface %u", kolt_program_name(direction),
                            ifindex);
    }
    return true;
}

bool has(const hook_programs &programs, uint32_t id) {
    const auto *end = programs.ids.begin() + programs.count;
    return std::find(programs.ids.begin(), end, id) != end;
}

} // namespace

// A kernel that knows the hook looks for the interface next; one that does not refuses the hook.
bool tcx_available() {
    hook_programs programs;
    return query(INT_MAX, TCX_INGRESS, &programs) == ENODEV;
}

bool tcx_attach(uint32_t ifindex, kolt_direction direction, int program, const kolt_own_programs &own,
                kolt_reason *why) {
    survey present;
    bpf_prog_info info{};
    uint32_t size = sizeof info;
    if (!look(ifindex, direction, own, &present, why))
        return false;
    if (bpf_obj_get_info_by_fd(program, &info, &size) != 0)
        return why->say(errno, "cannot look at the program %s", kolt_program_name(direction));
    if (!has(present.ours, info.id)) {
        const unique_fd replaced =
            present.ours.count != 0 ? open_ours(own, direction, present.ours.ids[0]) : unique_fd();
        const int error = put_on(ifindex, direction, program, replaced.get());
        if (error != 0)
            return why->say(error, "cannot put the program %s on interface %u", kolt_program_name(direction), ifindex);
    }
    if (!take_off_all(ifindex, direction, own, info.id, why))
        return false;
    // It decides what ours gets to see.
    survey now;
    if (!look(ifindex, direction, own, &now, why))
        return false;
    return !now.first_comes_first || why->say(EBUSY, "the program %s runs before %s on interface %u", now.first.name,
                                              kolt_program_name(direction), ifindex);
}

bool tcx_detach(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own, kolt_reason *why) {
    return take_off_all(ifindex, direction, own, 0, why);
}

bool tcx_find(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own, bool *there, kolt_reason *why) {
    survey present;
    const bool seen = look(ifindex, direction, own, &present, why);
    *there = present.ours.count != 0;
    return seen;
}

bool tcx_attached(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own) {
    bool there = false;
    kolt_reason ignored;
    return tcx_find(ifindex, direction, own, &there, &ignored) && there;
}

size_t tcx_others(uint32_t ifindex, kolt_direction direction, const kolt_own_programs &own, kolt_other_program *first) {
    survey present;
    kolt_reason ignored;
    if (!look(ifindex, direction, own, &present, &ignored) || present.others == 0)
        return 0;
    *first = present.first;
    return present.others;
}
