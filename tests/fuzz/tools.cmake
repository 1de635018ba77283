# The programs for those who run the daemon. What would end the process is replaced at link time.
kolt_fuzz_target(fuzz_check fuzz_check.cpp 3000 kolt_check kolt_core kolt::jsonc)
target_link_options(fuzz_check PRIVATE -Wl,--wrap=exit)
