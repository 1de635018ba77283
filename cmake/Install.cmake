# What is installed where, in four components: `runtime` is the daemon and its tools, `platform` the open platform, which a
# node with the vendor's own libraries does without, `sim` the simulated and the modelled node, `dev` the platform
# libraries' headers. Without a component's name all of them are installed.
include(GNUInstallDirs)
set(KOLT_SYSTEMD_DIR lib/systemd/system CACHE STRING "Where systemd's units go; below the prefix if not absolute")
set(KOLT_CONFIG_DIR /etc CACHE PATH "Where the default configuration goes: the daemon looks nowhere else by itself")
set(KOLT_SIM_DIR lib/kolt-sim) # programs, stand-ins and Python of the simulated node, for nobody else

# A program of this build, without what lets it run from the build tree.
function(kolt_install_program target component folder)
  install(TARGETS ${target} RUNTIME DESTINATION ${folder} COMPONENT ${component})
  install(CODE "file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}/${target}\")"
    COMPONENT ${component})
endfunction()

# A text that names folders of daemons, documents or data: the prefix is known only when it is installed.
function(kolt_install_text file folder component)
  install(CODE "
    set(file \"${PROJECT_SOURCE_DIR}/${file}\")
    set(folder \"${folder}\")
    set(sbin \"${CMAKE_INSTALL_SBINDIR}\")
    set(doc \"${CMAKE_INSTALL_DOCDIR}\")
    set(data \"${CMAKE_INSTALL_DATADIR}/kolt\")"
    COMPONENT ${component})
  install(CODE [[
    foreach(place folder sbin doc data)
      cmake_path(ABSOLUTE_PATH ${place} BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
    endforeach()
    cmake_path(GET file FILENAME name)
    file(READ "${file}" text)
    string(REPLACE "/usr/sbin/" "${sbin}/" text "${text}")
    string(REPLACE "/usr/share/doc/kolt" "${doc}" text "${text}")
    string(REPLACE "/usr/share/kolt" "${data}" text "${text}")
    message(STATUS "Installing: $ENV{DESTDIR}${folder}/${name}")
    file(WRITE "$ENV{DESTDIR}${folder}/${name}" "${text}")]]
    COMPONENT ${component})
endfunction()

# The complete example, switched off: whoever installs a package has not said yet which bridges are to be taken over. A
# configuration that is there stays as it is.
function(kolt_install_configuration)
  install(CODE "
    set(example \"${PROJECT_SOURCE_DIR}/packaging/kolt.json\")
    set(file \"\$ENV{DESTDIR}${KOLT_CONFIG_DIR}/kolt.json\")"
    COMPONENT runtime)
  install(CODE [[
    if(EXISTS "${file}")
      message(STATUS "Keeping: ${file}")
    else()
      message(STATUS "Installing: ${file}")
      file(READ "${example}" text)
      string(REPLACE "\"enable\": true" "\"enable\": false" text "${text}")
      file(WRITE "${file}" "${text}")
    endif()]]
    COMPONENT runtime)
endfunction()

# A file of documentation or completion belongs to the component of the program that it is called after.
function(kolt_component_of file variable)
  cmake_path(GET file FILENAME name)
  set(component runtime)
  if(name MATCHES "^kolt-bridged(\\.|$)")
    set(component platform)
  elseif(name MATCHES "^kolt-(sim|node|demo)(\\.|$)")
    set(component sim)
  endif()
  string(REGEX MATCH "^[^.]+" program ${name})
  if((component STREQUAL "platform" AND NOT KOLT_USE_LINUX) OR (component STREQUAL "sim" AND NOT KOLT_USE_COMPAT)
     OR (program MATCHES "^kolt-(check|top)$" AND NOT TARGET ${program}))
    set(component)
  endif()
  set(${variable} ${component} PARENT_SCOPE)
endfunction()

function(kolt_install_pages)
  file(GLOB pages RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.[1-8])
  foreach(page ${pages})
    kolt_component_of(${page} component)
    string(REGEX MATCH "[1-8]$" section ${page})
    if(component)
      kolt_install_text(${page} ${CMAKE_INSTALL_MANDIR}/man${section} ${component})
    endif()
  endforeach()
endfunction()

function(kolt_install_completions)
  file(GLOB completions CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/completion/*.bash)
  foreach(completion ${completions})
    kolt_component_of(${completion} component)
    if(component)
      cmake_path(GET completion STEM program)
      install(FILES ${completion} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${program}
        COMPONENT ${component})
    endif()
  endforeach()
endfunction()

# The guides together, since they link to one another, the examples, and what an editor checks a configuration with.
function(kolt_install_documents)
  file(GLOB guides CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
  install(FILES ${guides} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
  install(FILES packaging/kolt.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/kolt COMPONENT runtime)
  file(GLOB examples CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/kolt.json
    ${PROJECT_SOURCE_DIR}/packaging/examples/*.json)
  install(FILES ${examples} DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT runtime)
endfunction()

function(kolt_install_link text link component)
  cmake_path(GET link PARENT_PATH folder)
  install(CODE "
    file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${folder}\")
    file(CREATE_LINK ${text} \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${link}\" SYMBOLIC)"
    COMPONENT ${component})
endfunction()

# The tree's own layout: its Python finds what it needs by where it stands. The daemon is the one that is installed.
function(kolt_install_simulation)
  set(python PATTERN __pycache__ EXCLUDE PATTERN "*.cpp" EXCLUDE PATTERN "*.h" EXCLUDE PATTERN CMakeLists.txt EXCLUDE
    PATTERN selftest EXCLUDE)
  install(DIRECTORY sim DESTINATION ${KOLT_SIM_DIR} COMPONENT sim USE_SOURCE_PERMISSIONS ${python})
  install(DIRECTORY platform/sim DESTINATION ${KOLT_SIM_DIR}/platform COMPONENT sim USE_SOURCE_PERMISSIONS ${python})
  install(FILES packaging/kolt.json DESTINATION ${KOLT_SIM_DIR}/packaging COMPONENT sim)
  install(TARGETS duon-bridge eth_encap LIBRARY DESTINATION ${KOLT_SIM_DIR}/programs/lib COMPONENT sim)
  foreach(program ${CMAKE_INSTALL_SBINDIR}/kolt ${CMAKE_INSTALL_SBINDIR}/kolt-ubusd ${CMAKE_INSTALL_BINDIR}/kolt-event)
    cmake_path(GET program FILENAME name)
    kolt_install_link(../../../../${program} ${KOLT_SIM_DIR}/programs/bin/${name} sim)
  endforeach()
  foreach(command sim/kolt-sim platform/sim/kolt-node platform/sim/kolt-demo)
    cmake_path(GET command FILENAME name)
    string(REPLACE kolt-demo demo.py script ${command})
    kolt_install_link(../${KOLT_SIM_DIR}/${script} ${CMAKE_INSTALL_BINDIR}/${name} sim)
  endforeach()
endfunction()

kolt_install_program(kolt runtime ${CMAKE_INSTALL_SBINDIR})
kolt_install_text(packaging/systemd/kolt.service ${KOLT_SYSTEMD_DIR} runtime)
kolt_install_configuration()
kolt_install_documents()
kolt_install_pages()
kolt_install_completions()
install(FILES platform/include/duon_bridge.h platform/include/eth_encap.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kolt COMPONENT dev)

# Tools for those who run a node, each from its own folder of tools/.
foreach(tool kolt-check kolt-top)
  if(TARGET ${tool})
    kolt_install_program(${tool} runtime ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

# Where the system has no message bus, ours comes along, and the simulated node is run on it.
if(KOLT_USE_COMPAT)
  kolt_install_program(kolt-ubusd runtime ${CMAKE_INSTALL_SBINDIR})
  kolt_install_program(kolt-event runtime ${CMAKE_INSTALL_BINDIR})
  kolt_install_text(packaging/systemd/kolt-ubusd.service ${KOLT_SYSTEMD_DIR} runtime)
  kolt_install_simulation()
endif()

if(KOLT_USE_LINUX)
  kolt_install_program(kolt-bridged platform ${CMAKE_INSTALL_SBINDIR})
  kolt_install_text(packaging/systemd/kolt-bridged.service ${KOLT_SYSTEMD_DIR} platform)
  install(TARGETS linux-duon-bridge linux-eth_encap LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT platform)
endif()
