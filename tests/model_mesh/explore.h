// Everything that may happen to a mesh, one or two things at a time, with the frames in flight early, late or lost.
#pragma once

#include "model_mesh/mesh.h"

#include <cstdint>
#include <string>
#include <vector>

enum class happening {
    DOWN,
    UP,
    SILENCE,       // both ways
    SILENCE_FIRST, // what the first end sends
    SILENCE_SECOND,
    LATE, // frames of neighbours, while those of hosts pass; both ways
    LATE_FIRST,
    LATE_SECOND,
    NO_ECHO, // echoes are lost while all else passes
    NO_ECHO_FIRST,
    NO_ECHO_SECOND,
    HEAL,  // the last of a link
    KILL,  // a node's kolt-bridged
    START, // and again, or at once if it has not been killed
    SLEEP, // it gets no processor
    WAKE,
    POWER_OFF,
    POWER_ON,
    RANK,    // the node is to be a root, or none any more
    PERMIT,  // kolt permits one port, another one, or none
    REGROUP, // and calls a relay port nonrelay, or the other way round
    CRASH,   // kolt-bridged dies while it carries out what it has decided; see `detail`
};

struct event {
    happening kind;
    int subject;    // link or node
    int detail = 0; // PERMIT, REGROUP: the port; CRASH: 4 * how many changes before it + where, less one
    bool operator==(const event &) const = default;
};

struct timed_event {
    uint64_t after_ms; // the one before it, or the beginning
    event what;
};

struct mesh_case {
    const topology *where;
    bool reversed = false;
    std::vector<timed_event> events;
    schedule frames;
    bool from_start = false; // the events meet nodes that have only just begun, not a mesh that has settled
};

struct verdict {
    std::string violation;
    bool loop = false; // else it has not come to rest as it should
    uint64_t checks = 0;
};

// The settled mesh that cases begin from.
mesh settled(const topology &where, bool reversed, mutation broken);

verdict run_case(const mesh_case &one, const mesh &begin, mutation broken);

// All that can happen first, and what can happen after it in particular.
std::vector<event> first_events(const topology &where);
std::vector<event> later_events(const topology &where, const event &first);

std::string describe(const mesh_case &one);
