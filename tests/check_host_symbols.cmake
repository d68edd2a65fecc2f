# Fails when one of LIBRARIES (comma-separated) exports a name of the standard library, Boost,
# spdlog or fmt (an instance of their templates), or a fault point: the host libraries export
# the suite's interface and nothing else. The suite's functions may take Boost or std types.
#   cmake -DLIBRARIES=a.so,b.so -P check_host_symbols.cmake
string(REPLACE "," ";" libraries "${LIBRARIES}")
set(foreign "^([A-Za-z ]+ for )?(std|boost|spdlog|fmt)::|spdlog|fmt::|KrvFault")
include(${CMAKE_CURRENT_LIST_DIR}/DynamicSymbols.cmake)
set(found "")
foreach(library IN LISTS libraries)
  dynamic_symbols(${library} symbols)
  foreach(symbol IN LISTS symbols)
    if(symbol MATCHES "${foreign}")
      string(APPEND found "\n  ${library}: ${symbol}")
    endif()
  endforeach()
endforeach()
if(found)
  message(FATAL_ERROR "Symbols that belong to no host library's interface:${found}")
endif()
message(STATUS "Checked ${LIBRARIES}")
