# The daemon's core. What would leave the process, or ask the kernel, is replaced at link time.
kolt_fuzz_target(fuzz_config fuzz_config.cpp 3000 kolt_core kolt::jsonc)
target_link_options(fuzz_config PRIVATE -Wl,--wrap=exit -Wl,--wrap=json_tokener_parse_ex)
kolt_fuzz_target(fuzz_link_message fuzz_link_message.cpp 20000 kolt_hub kolt_probes kolt_core kolt_platform_headers)
target_link_options(fuzz_link_message PRIVATE -Wl,--wrap=if_indextoname)
kolt_fuzz_target(fuzz_request_replies fuzz_request_replies.cpp 8000 kolt_hub kolt_core)
kolt_fuzz_around(fuzz_request_replies sockets)
