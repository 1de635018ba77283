# What the node's drivers and daemons tell in text files. The shell pipe and the files' places are replaced at link time.
kolt_fuzz_target(fuzz_driver_files fuzz_driver_files.cpp 2000 kolt_rtk kolt_probes kolt_core)
target_link_options(fuzz_driver_files PRIVATE -Wl,--wrap=popen,--wrap=pclose,--wrap=socket)
kolt_fuzz_target(fuzz_runtime_files fuzz_runtime_files.cpp 500 kolt_probes kolt_core kolt::jsonc)
target_link_options(fuzz_runtime_files PRIVATE -Wl,--wrap=open)
