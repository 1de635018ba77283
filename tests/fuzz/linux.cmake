# Both sides of what the platform libraries and kolt-bridged say to each other.
kolt_fuzz_target(fuzz_bridged_requests fuzz_bridged_requests.cpp 20000 kolt_bridged_requests)
kolt_fuzz_around(fuzz_bridged_requests bridged_handlers)
kolt_fuzz_target(fuzz_bridged_connections fuzz_bridged_connections.cpp 8000 kolt_bridged_requests)
kolt_fuzz_around(fuzz_bridged_connections bridged_handlers)
kolt_fuzz_target(fuzz_bridged_replies fuzz_bridged_replies.cpp 20000)
target_sources(fuzz_bridged_replies PRIVATE ${PROJECT_SOURCE_DIR}/linux/lib/reply.cpp)
target_include_directories(fuzz_bridged_replies PRIVATE ${PROJECT_SOURCE_DIR}/linux ${PROJECT_SOURCE_DIR}/src)
kolt_fuzz_target(fuzz_bridged_answers fuzz_bridged_answers.cpp 3000)
target_sources(fuzz_bridged_answers PRIVATE ${PROJECT_SOURCE_DIR}/linux/lib/connection.cpp
  ${PROJECT_SOURCE_DIR}/linux/lib/reply.cpp)
target_include_directories(fuzz_bridged_answers PRIVATE ${PROJECT_SOURCE_DIR}/linux ${PROJECT_SOURCE_DIR}/src)
target_link_options(fuzz_bridged_answers PRIVATE -Wl,--wrap=socket,--wrap=connect,--wrap=sendmsg)
# What kolt-bridged decides, and what it left behind for itself.
kolt_fuzz_target(fuzz_neighbour_frames fuzz_neighbour_frames.cpp 300 kolt_bridged_decide)
kolt_fuzz_target(fuzz_saved_tree fuzz_saved_tree.cpp 400 kolt_bridged_decide)
kolt_fuzz_target(fuzz_saved_files fuzz_saved_files.cpp 2000 kolt_bridged)
kolt_fuzz_around(fuzz_saved_files files)
# What the kernel tells it.
kolt_fuzz_target(fuzz_kernel_messages fuzz_kernel_messages.cpp 4000 kolt_linux_kernel_net)
kolt_fuzz_target(fuzz_ethtool fuzz_ethtool.cpp 6000 kolt_linux_kernel_net)
target_link_options(fuzz_ethtool PRIVATE -Wl,--wrap=ioctl)
kolt_fuzz_target(fuzz_clsact fuzz_clsact.cpp 6000 kolt_kernel_maps)
foreach(call mnl_socket_open2 mnl_socket_close mnl_socket_bind mnl_socket_get_portid mnl_socket_sendto mnl_socket_recvfrom
    mnl_cb_run)
  target_link_options(fuzz_clsact PRIVATE -Wl,--wrap=${call})
endforeach()
# What the programs in the kernel read, compiled for this machine.
kolt_fuzz_target(fuzz_stream_frames fuzz_stream_frames.cpp 20000)
target_sources(fuzz_stream_frames PRIVATE ${CMAKE_CURRENT_LIST_DIR}/support/frame_reader.c)
target_include_directories(fuzz_stream_frames PRIVATE ${PROJECT_SOURCE_DIR}/linux)
kolt_fuzz_target(fuzz_bridge_programs fuzz_bridge_programs.cpp 20000)
target_sources(fuzz_bridge_programs PRIVATE ${CMAKE_CURRENT_LIST_DIR}/support/bridge_programs.c)
target_include_directories(fuzz_bridge_programs PRIVATE ${PROJECT_SOURCE_DIR}/linux)
