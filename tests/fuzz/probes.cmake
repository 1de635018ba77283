# What the kernel and the bridges tell the daemon's questions.
kolt_fuzz_target(fuzz_port_replies fuzz_port_replies.cpp 6000 kolt_probes)
kolt_fuzz_around(fuzz_port_replies platform)
kolt_fuzz_target(fuzz_bridge_tables fuzz_bridge_tables.cpp 3000 kolt_probes kolt_adaptors)
kolt_fuzz_around(fuzz_bridge_tables platform)
kolt_fuzz_target(fuzz_net_dev fuzz_net_dev.cpp 6000 kolt_probes)
kolt_fuzz_around(fuzz_net_dev files)
kolt_fuzz_target(fuzz_proc_stat fuzz_proc_stat.cpp 3000 kolt_probes)
kolt_fuzz_around(fuzz_proc_stat files)
