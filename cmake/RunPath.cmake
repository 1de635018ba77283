# Where a program that is run from the build tree finds the shared libraries of this build: beside itself, wherever the tree
# is put. What is installed is told nothing.
function(kolt_finds_libraries_in target folder)
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${folder}")
endfunction()
