# dynamic_symbols(LIBRARY OUT): the library's defined dynamic symbols, demangled, in a list.
function(dynamic_symbols library out)
  execute_process(COMMAND nm -D --defined-only -C ${library}
    OUTPUT_VARIABLE nm_output RESULT_VARIABLE nm_result)
  if(NOT nm_result EQUAL 0)
    message(FATAL_ERROR "nm failed on ${library}")
  endif()
  string(REPLACE "\n" ";" nm_lines "${nm_output}")
  set(symbols "")
  foreach(line IN LISTS nm_lines)
    # "<address> <type> <symbol>": keep the symbol.
    if(line MATCHES "^[0-9a-f]+ [A-Za-z] (.+)$")
      list(APPEND symbols "${CMAKE_MATCH_1}")
    endif()
  endforeach()
  set(${out} "${symbols}" PARENT_SCOPE)
endfunction()
