# The daemon's hub and modules as a whole, on a node that is replaced around them.
set(KOLT_FUZZ_WRAP_daemon nanosleep ioctl)
set(KOLT_FUZZ_LINK_daemon ${KOLT_DAEMON_LIBRARIES})
foreach(target fuzz_socket_messages fuzz_bus_events fuzz_period)
  kolt_fuzz_target(${target} ${target}.cpp ${KOLT_DAEMON_LIBRARIES})
  kolt_fuzz_around(${target} daemon files platform sockets)
endforeach()
