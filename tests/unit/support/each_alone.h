// Every test of a program in a process of its own, without the program being started for each.
#pragma once

// Runs the tests of the program, for which GoogleTest has been initialized. With `--each-alone=JOBS` every test runs in
// a child of this process, JOBS at a time and each for a minute or the seconds of `--at-most=` at most, and what is
// written reads as ctest's does; otherwise GoogleTest runs in this process what its own options choose. `prepare`,
// where there is one, is called first in the process that runs a test. Returns the status to exit with.
int run_tests(int argc, char **argv, void (*prepare)());
