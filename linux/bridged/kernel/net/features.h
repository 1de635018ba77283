// What this kernel and this process can do, found out without changing anything on the node.
#pragma once

#include <array>
#include <cstdint>
#include <span>

enum feature_answer : uint8_t { FEATURE_NO, FEATURE_YES, FEATURE_UNKNOWN };

struct feature {
    feature_answer answer = FEATURE_UNKNOWN;
    std::array<char, 192> sentence{}; // for the user
};

struct kernel_features {
    feature kernel; // is new enough
    feature cap_net_admin;
    feature cap_net_raw; // for the sockets to the neighbours
    feature cap_bpf;     // or CAP_SYS_ADMIN
    feature bridge;      // can be made
    feature clsact;      // the hook for programs at both directions of a port can be made
    feature programs;    // can be loaded
    feature attach;      // and attached to the hook
    feature pin_folder;  // is on a BPF file system, or gets one, and can be written
};

// Tries what can be tried in a network namespace that lives for as long as the call takes.
[[nodiscard]] kernel_features features_find(const char *pin_folder);

// Whether a kernel of this release, such as "5.10.0-28-amd64", is new enough.
[[nodiscard]] feature judge_release(const char *release);

// Whether one of the capabilities is among the effective ones, a bit each; `name` is how the sentence calls them.
[[nodiscard]] feature judge_capability(const char *name, uint64_t effective, std::span<const unsigned> any_of);

// The answer to something that was tried, such as "making a bridge": `code` is 0 or the errno of the trial. `why_not`
// is the errno for which it could not be tried at all, or 0.
[[nodiscard]] feature judge_trial(const char *what, int code, int why_not);

// Whether pins can be made in the folder, which need not exist yet: a start makes it and mounts what is missing.
[[nodiscard]] feature pin_folder_find(const char *pin_folder);
