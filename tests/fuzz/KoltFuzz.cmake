# All of them.
add_custom_target(fuzz_targets)

# kolt_fuzz_target(name source runs libs...): a libFuzzer program from `source` (in this folder) that links `libs`, and a
# test that runs it on what is committed in corpus/<name> and, up to `runs` in all, on inputs made from that: always the
# same ones, about a second's worth. Given as a list, the seeds are read and nothing is written beside them.
function(kolt_fuzz_target name source runs)
  set(folder ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
  add_executable(${name} ${folder}/${source})
  add_dependencies(fuzz_targets ${name})
  target_include_directories(${name} PRIVATE ${folder})
  target_link_libraries(${name} PRIVATE ${ARGN} kolt_test_flags)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  file(GLOB seeds CONFIGURE_DEPENDS ${folder}/corpus/${name}/*)
  list(JOIN seeds "," list)
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${name}.seeds CONTENT "${list}")
  add_test(NAME ${name} COMMAND ${name} -runs=${runs} -seed=1 -seed_inputs=@${CMAKE_CURRENT_BINARY_DIR}/${name}.seeds
    -artifact_prefix=${CMAKE_CURRENT_BINARY_DIR}/${name}-)
  set_tests_properties(${name} PROPERTIES TIMEOUT 120 LABELS fuzz)
endfunction()

# kolt_fuzz_around(name what...): puts parts of the node (support/<what>.cpp) in the place of the machine's, by replacing
# the calls that lead there.
set(KOLT_FUZZ_WRAP_files fopen open popen pclose)
set(KOLT_FUZZ_WRAP_platform if_indextoname if_nametoindex)
set(KOLT_FUZZ_WRAP_sockets socket bind setsockopt sendto)
set(KOLT_FUZZ_LINK_platform kolt_core kolt_platform_headers kolt_platform_message)
set(KOLT_FUZZ_LINK_bridged_handlers kolt_bridged_requests)
function(kolt_fuzz_around name)
  foreach(what ${ARGN})
    if(NOT TARGET fuzz_around_${what})
      add_library(fuzz_around_${what} OBJECT ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/support/${what}.cpp)
      target_include_directories(fuzz_around_${what} PRIVATE ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
      target_link_libraries(fuzz_around_${what} PUBLIC ${KOLT_FUZZ_LINK_${what}} PRIVATE kolt_test_flags)
    endif()
    target_link_libraries(${name} PRIVATE fuzz_around_${what})
    foreach(call ${KOLT_FUZZ_WRAP_${what}})
      target_link_options(${name} PRIVATE -Wl,--wrap=${call})
    endforeach()
  endforeach()
endfunction()
