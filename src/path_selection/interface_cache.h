// Kernel interface names and indexes, asked for once between two waits instead of once a client or stream.
#pragma once

#include "core/names.h"

#include <cstddef>
#include <cstdint>

// The kernel's answers to one of the two questions; it knows some interfaces by more than one name, so an answer to one
// is none to the other.
struct known_interfaces {
    struct entry {
        uint32_t ifindex;
        char name[KOLT_NAME_SIZE + 1];
    };
    // Room for all ports of a bridge. Where it does not suffice, the last slot serves for the answers of the moment.
    static constexpr size_t SLOTS = 160;

    entry slots[SLOTS];
    size_t count = 0;
};

// What the kernel does not know is not remembered, and no answer is used after a wait unless the kernel has told of no
// change to any interface since: whoever waits calls after_wait().
class interface_cache {
public:
    // `link_fd` is a socket to which the kernel's link notifications come, borrowed and only looked at; with -1, or
    // what is no socket, every wait ends what was remembered.
    explicit interface_cache(int link_fd = -1) : link_fd_(link_fd) {}

    // The name of a kernel interface, valid until the next question; null when the kernel does not know the index.
    const char *name_of(uint32_t ifindex);

    // The index of a kernel interface, 0 when there is none of this name (at most 16 characters).
    uint32_t index_of(const char *name);

    // To be called after everything that waits: an interface may have got another name meanwhile, or have gone.
    void after_wait();

private:
    int link_fd_;
    known_interfaces names_;
    known_interfaces indexes_;
};
