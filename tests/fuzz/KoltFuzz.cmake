# kolt_fuzz_target(name source libs...): a libFuzzer program from `source` (in this folder) that links `libs`, and a
# test that replays what is committed in corpus/<name>.
function(kolt_fuzz_target name source)
  add_executable(${name} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${source})
  target_link_libraries(${name} PRIVATE ${ARGN} kolt_test_flags)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  add_test(NAME ${name} COMMAND ${name} -runs=0 ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/corpus/${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 120 LABELS fuzz)
endfunction()
