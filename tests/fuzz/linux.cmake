# Both sides of what the platform libraries and kolt-bridged say to each other.
kolt_fuzz_target(fuzz_bridged_requests fuzz_bridged_requests.cpp 20000 kolt_bridged_requests)
kolt_fuzz_around(fuzz_bridged_requests bridged_handlers)
kolt_fuzz_target(fuzz_bridged_connections fuzz_bridged_connections.cpp 8000 kolt_bridged_requests)
kolt_fuzz_around(fuzz_bridged_connections bridged_handlers)
kolt_fuzz_target(fuzz_bridged_replies fuzz_bridged_replies.cpp 20000)
target_sources(fuzz_bridged_replies PRIVATE ${PROJECT_SOURCE_DIR}/linux/lib/reply.cpp)
target_include_directories(fuzz_bridged_replies PRIVATE ${PROJECT_SOURCE_DIR}/linux ${PROJECT_SOURCE_DIR}/src)
# What kolt-bridged decides.
kolt_fuzz_target(fuzz_neighbour_frames fuzz_neighbour_frames.cpp 300 kolt_bridged_decide)
kolt_fuzz_target(fuzz_saved_tree fuzz_saved_tree.cpp 400 kolt_bridged_decide)
# What the kernel tells it.
kolt_fuzz_target(fuzz_kernel_messages fuzz_kernel_messages.cpp 4000 kolt_linux_kernel_net)
# What the programs in the kernel read, compiled for this machine.
kolt_fuzz_target(fuzz_stream_frames fuzz_stream_frames.cpp 20000)
target_sources(fuzz_stream_frames PRIVATE ${CMAKE_CURRENT_LIST_DIR}/support/frame_reader.c)
target_include_directories(fuzz_stream_frames PRIVATE ${PROJECT_SOURCE_DIR}/linux)
