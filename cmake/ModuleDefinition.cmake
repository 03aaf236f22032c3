# Reading the module definition, for the scripts that check the DLL and the
# header against it.

# The exports of the module definition DEF as "Name@ordinal", in file order.
function(kel_module_definition_exports def out)
  file(STRINGS ${def} lines)
  set(exports "")
  foreach(line IN LISTS lines)
    if(line MATCHES "^[ \t]+(Kel[A-Za-z]+)[ \t]+@([0-9]+)")
      list(APPEND exports "${CMAKE_MATCH_1}@${CMAKE_MATCH_2}")
    endif()
  endforeach()
  set(${out} ${exports} PARENT_SCOPE)
endfunction()
