# kolt_fuzz_target(name source libs...): a libFuzzer program from `source` (in this folder) that links `libs`, and a
# test that runs it on what is committed in corpus/<name> and on a fixed number of inputs made from that.
function(kolt_fuzz_target name source)
  add_executable(${name} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${source})
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
  target_link_libraries(${name} PRIVATE ${ARGN} kolt_test_flags)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  add_test(NAME ${name} COMMAND ${name} -runs=0 ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/corpus/${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 120 LABELS fuzz)
endfunction()

# kolt_fuzz_around(name what...): puts parts of the node (support/<what>.cpp) in the place of the machine's, by replacing
# the calls that lead there.
set(KOLT_FUZZ_WRAP_files json_object_from_file fopen open popen pclose)
set(KOLT_FUZZ_WRAP_platform if_indextoname if_nametoindex)
set(KOLT_FUZZ_WRAP_sockets socket bind setsockopt sendto)
set(KOLT_FUZZ_LINK_files kolt::jsonc)
set(KOLT_FUZZ_LINK_platform kolt_core kolt_platform_headers kolt_platform_message)
function(kolt_fuzz_around name)
  foreach(what ${ARGN})
    target_sources(${name} PRIVATE ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/support/${what}.cpp)
    target_link_libraries(${name} PRIVATE ${KOLT_FUZZ_LINK_${what}})
    foreach(call ${KOLT_FUZZ_WRAP_${what}})
      target_link_options(${name} PRIVATE -Wl,--wrap=${call})
    endforeach()
  endforeach()
endfunction()
