# The parsers of the library subsets.
set(compat ${CMAKE_CURRENT_LIST_DIR}/../../compat)

kolt_fuzz_target(fuzz_blobmsg fuzz_blobmsg.cpp 20000 kolt::ubox)
target_include_directories(fuzz_blobmsg PRIVATE ${compat})
kolt_fuzz_target(fuzz_ubus_client fuzz_ubus_client.cpp 3000 kolt::ubus)
target_include_directories(fuzz_ubus_client PRIVATE ${compat} ${compat}/libubus)
kolt_fuzz_target(fuzz_uci fuzz_uci.cpp 8000 kolt::uci)
target_include_directories(fuzz_uci PRIVATE ${compat}/libuci)
kolt_fuzz_target(fuzz_ubus_broker fuzz_ubus_broker.cpp 800 kolt::ubus)
target_sources(fuzz_ubus_broker PRIVATE ${compat}/ubusd/bus.cpp ${compat}/ubusd/client.cpp ${compat}/ubusd/protocol.cpp)
target_include_directories(fuzz_ubus_broker PRIVATE ${compat} ${compat}/libubus)
target_link_options(fuzz_ubus_broker PRIVATE -Wl,--wrap=accept4,--wrap=getrandom)

# The daemon's questions for options, with a reader of the files beneath them that can be led elsewhere.
kolt_fuzz_target(fuzz_option_values fuzz_option_values.cpp 2000 kolt_probes)
kolt_fuzz_around(fuzz_option_values files platform)
