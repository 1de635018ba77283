// Trying what the kernel can do where nobody is disturbed: in a child process with a network namespace of its own, both
// of which are gone when the answer is there. The kernel may load modules for it that it would load later.
#pragma once

#include "core/handle.h"

// 0 where it worked, else an errno. What was not tried because an earlier step failed has that step's errno.
struct trial_results {
    int space = 0;  // the namespace itself
    int bridge = 0; // making a bridge
    int clsact = 0; // making the hook for programs
    int attach = 0; // attaching a program to the hook
};

// Loads a program that lets every frame pass; no descriptor, with errno set, when it cannot be loaded.
[[nodiscard]] unique_fd load_trial_program();

// Tries all steps; `program` of -1 counts as EBADF for the last one.
[[nodiscard]] trial_results try_in_namespace(int program);
