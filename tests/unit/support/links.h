// How the unit tests make and remove network interfaces: by asking the kernel, or by a command where an emulator stands
// between the two.
#pragma once

#include <cstdint>
#include <string>

// An interface's name, and its index; the kernel chooses it when it is 0.
struct named_link {
    std::string name;
    uint32_t index;
};

// What is too small for IPv6 sends nothing of its own accord; this is enough for the frames of the tests.
constexpr uint32_t PEER_MTU = 1200;

// Makes two interfaces that are each other's other end; the second one has PEER_MTU. Returns 0, or an error's number.
int link_make_pair(const named_link &link, const named_link &peer);
// Returns 0, or an error's number.
int link_set_up(const std::string &name);
// Sets the interface down first, since the kernel renames only what is. Returns 0, or an error's number.
int link_rename(const std::string &name, const std::string &other);
// An interface that is not there any more is no matter.
void link_remove(const std::string &name);
