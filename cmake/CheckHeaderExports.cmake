# Checks the public header against the module definition: one declaration,
# one "@<ordinal> <name>" note with the ordinal the DLL exports it under, and
# one PFN_ type for every export, and nothing the DLL does not export.
#   -DHEADER=<include/Kelbrook.h> -DDEF=<Kelbrook.def>
include(${CMAKE_CURRENT_LIST_DIR}/ModuleDefinition.cmake)

# Each match of `pattern` in `text`, rewritten by `replacement`.
function(kel_extract text pattern replacement out)
  string(REGEX MATCHALL "${pattern}" matches "${text}")
  set(result "")
  foreach(match IN LISTS matches)
    string(REGEX REPLACE "${pattern}" "${replacement}" match "${match}")
    list(APPEND result ${match})
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

file(READ ${HEADER} header)
kel_module_definition_exports(${DEF} expected)
kel_extract("${header}" "WINAPI (Kel[A-Za-z]+)\\(" "\\1" declared)
kel_extract("${header}" "\\*PFN_(Kel[A-Za-z]+)\\)" "\\1" typed)
kel_extract("${header}" "/\\* @([0-9]+) (Kel[A-Za-z]+)" "\\2@\\1" noted)

set(names "")
foreach(e IN LISTS expected)
  string(REGEX REPLACE "@[0-9]+$" "" n "${e}")
  list(APPEND names ${n})
endforeach()
set(failures "")
if(NOT declared STREQUAL names)
  string(APPEND failures "  declarations: ${declared}\n  exports:      ${names}\n")
endif()
if(NOT typed STREQUAL names)
  string(APPEND failures "  PFN_ types:   ${typed}\n  exports:      ${names}\n")
endif()
if(NOT noted STREQUAL expected)
  string(APPEND failures "  ordinal notes: ${noted}\n  exports:       ${expected}\n")
endif()
if(NOT failures STREQUAL "")
  message(FATAL_ERROR "include/Kelbrook.h differs from the module definition:\n${failures}")
endif()
list(LENGTH names count)
message(STATUS "${count} exports declared, typed and numbered as the module definition exports them")
