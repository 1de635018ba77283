# Three flag sets: kolt_flags is what code of this project that runs on a node is built with, kolt_test_flags what fuzz
# targets and benchmarks are built with, kolt_unit_flags the unit tests (GoogleTest wants exceptions and RTTI left alone).

include(CheckCXXCompilerFlag)

add_library(kolt_warnings INTERFACE)
target_compile_options(kolt_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wmissing-declarations -Wformat=2 -Werror)

add_library(kolt_sanitizers INTERFACE)
if(KOLT_SANITIZE)
  target_compile_options(kolt_sanitizers INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
    # clang's check of function types needs a C++ runtime, which the daemon does not have.
    $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-fno-sanitize=function>)
  target_link_options(kolt_sanitizers INTERFACE -fsanitize=address,undefined)
endif()
if(KOLT_FUZZ)
  target_compile_options(kolt_sanitizers INTERFACE -fsanitize=fuzzer-no-link)
endif()

add_library(kolt_flags INTERFACE)
target_link_libraries(kolt_flags INTERFACE kolt_warnings kolt_sanitizers)
target_compile_definitions(kolt_flags INTERFACE _GNU_SOURCE)
target_compile_options(kolt_flags INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>
  -fno-asynchronous-unwind-tables -fstack-protector-strong -ffunction-sections -fdata-sections)
# Large frames touch every page of the stack, and, where the processor can see to it, jumps land only where they may.
set(protections -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i.86)$")
  list(APPEND protections -fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  list(APPEND protections -mbranch-protection=standard)
endif()
foreach(protection ${protections})
  string(MAKE_C_IDENTIFIER "KOLT_HAS${protection}" known)
  check_cxx_compiler_flag(${protection} ${known})
  if(${known})
    target_compile_options(kolt_flags INTERFACE ${protection})
  endif()
endforeach()
# A call by way of the table itself is shorter than the detour, on this processor alone.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
  target_compile_options(kolt_flags INTERFACE -fno-plt)
endif()
# Nor does a program tell where it was built.
target_compile_options(kolt_flags INTERFACE
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=build)
target_link_options(kolt_flags INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noseparate-code -Wl,--gc-sections)
if(NOT KOLT_SANITIZE)
  target_compile_options(kolt_flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()

add_library(kolt_test_flags INTERFACE)
target_link_libraries(kolt_test_flags INTERFACE kolt_warnings kolt_sanitizers)
target_compile_definitions(kolt_test_flags INTERFACE _GNU_SOURCE)

# Unit tests are compiled more often than they run: what GoogleTest's templates grow to is neither optimized nor checked
# for undefined behaviour. The code under test is.
add_library(kolt_unit_flags INTERFACE)
target_link_libraries(kolt_unit_flags INTERFACE kolt_warnings)
target_compile_definitions(kolt_unit_flags INTERFACE _GNU_SOURCE)
target_compile_options(kolt_unit_flags INTERFACE -O0 -g1)
if(KOLT_SANITIZE)
  target_compile_options(kolt_unit_flags INTERFACE -fsanitize=address -fno-omit-frame-pointer)
  target_link_options(kolt_unit_flags INTERFACE -fsanitize=address,undefined)
endif()

include(CheckPIESupported)
check_pie_supported()
