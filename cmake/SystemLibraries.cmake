# The four libraries that every target system has. json-c is always the system's; libubox, libubus and libuci come
# from compat/ where the system lacks them. Everything else links kolt::jsonc, kolt::ubox, kolt::ubus and kolt::uci
# and does not know which it got.

function(kolt_system_library target header library)
  find_path(KOLT_${library}_INCLUDE ${header})
  find_library(KOLT_${library}_LIBRARY ${library})
  if(KOLT_${library}_INCLUDE AND KOLT_${library}_LIBRARY)
    add_library(${target} UNKNOWN IMPORTED GLOBAL)
    set_target_properties(${target} PROPERTIES
      IMPORTED_LOCATION ${KOLT_${library}_LIBRARY}
      INTERFACE_INCLUDE_DIRECTORIES ${KOLT_${library}_INCLUDE})
  endif()
endfunction()

kolt_system_library(kolt::jsonc json-c/json.h json-c)
if(NOT TARGET kolt::jsonc)
  message(FATAL_ERROR "json-c not found: install libjson-c-dev, or name its prefix in CMAKE_PREFIX_PATH")
endif()

set(KOLT_USE_COMPAT ${KOLT_COMPAT})
if(NOT KOLT_COMPAT STREQUAL "ON")
  find_path(KOLT_ubox_INCLUDE libubox/uloop.h)
  find_path(KOLT_blobmsg_INCLUDE libubox/blobmsg.h)
  find_library(KOLT_ubox_LIBRARY ubox)
  find_path(KOLT_ubus_INCLUDE libubus.h)
  find_library(KOLT_ubus_LIBRARY ubus)
  find_path(KOLT_uci_INCLUDE uci.h)
  find_library(KOLT_uci_LIBRARY uci)
  if(KOLT_ubox_INCLUDE AND KOLT_blobmsg_INCLUDE AND KOLT_ubox_LIBRARY AND KOLT_ubus_INCLUDE AND KOLT_ubus_LIBRARY
     AND KOLT_uci_INCLUDE AND KOLT_uci_LIBRARY)
    set(KOLT_USE_COMPAT OFF)
  elseif(KOLT_COMPAT STREQUAL "AUTO")
    set(KOLT_USE_COMPAT ON)
  else()
    message(FATAL_ERROR "KOLT_COMPAT=OFF, but libubox, libubus or libuci was not found: name their prefix in "
      "CMAKE_PREFIX_PATH, or build with -DKOLT_COMPAT=ON")
  endif()
endif()

if(KOLT_USE_COMPAT)
  add_subdirectory(compat)
else()
  kolt_system_library(kolt::ubox libubox/uloop.h ubox)
  kolt_system_library(kolt::ubus libubus.h ubus)
  kolt_system_library(kolt::uci uci.h uci)
  target_link_libraries(kolt::ubus INTERFACE kolt::ubox)
  target_link_libraries(kolt::uci INTERFACE kolt::ubox)
endif()
message(STATUS "compat/ stands in for libubox, libubus and libuci: ${KOLT_USE_COMPAT}")
