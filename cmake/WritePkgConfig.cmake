# Writes korvaneapi.pc at install time (see the top CMakeLists.txt): the prefix is the one this
# install goes to, so a staged install (cmake --install --prefix DIR) gets a file that names DIR.
# Relative directories hang below ${prefix}; absolute ones are kept as they are.
foreach(kind IN ITEMS LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${KORVANE_PC_${kind}}")
    set(KORVANE_PC_${kind}_VALUE "${KORVANE_PC_${kind}}")
  else()
    set(KORVANE_PC_${kind}_VALUE "\${prefix}/${KORVANE_PC_${kind}}")
  endif()
endforeach()
set(KORVANE_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
configure_file("${KORVANE_PC_TEMPLATE}" "${KORVANE_PC_OUTPUT}" @ONLY)
