# The version has one source, the project() version. From it:
#   - kelbrook_version.h in the build tree gives the resource scripts their
#     numbers (Kelbrook.dll's and kelcli.exe's VERSIONINFO);
#   - the public header's KELBROOK_VERSION_* macros and kelcli's manifest,
#     which ship as they are and cannot be generated, are checked against it
#     here: a copy that differs stops the configuration, and editing either
#     file configures again.
set(KEL_VERSION_DIR ${PROJECT_BINARY_DIR}/generated)
set(KEL_VERSION_TEXT "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}.${PROJECT_VERSION_PATCH}.${PROJECT_VERSION_TWEAK}")
if(NOT PROJECT_VERSION STREQUAL KEL_VERSION_TEXT)
  message(FATAL_ERROR "the project version must have four parts (major.minor.patch.build), not ${PROJECT_VERSION}")
endif()
# The architecture the resources name: each build tree makes one.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(KEL_ARCHITECTURE x86)
else()
  set(KEL_ARCHITECTURE x64)
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/kelbrook_version.h.in ${KEL_VERSION_DIR}/kelbrook_version.h @ONLY)
# Every target's resource script finds it.
include_directories(${KEL_VERSION_DIR})

set(KEL_PUBLIC_HEADER ${PROJECT_SOURCE_DIR}/include/Kelbrook.h)
set(KEL_KELCLI_MANIFEST ${PROJECT_SOURCE_DIR}/tools/kelcli/kelcli.manifest)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${KEL_PUBLIC_HEADER})

# Stops the configuration unless `text` holds `pattern` with the project's
# version as its first group; `what` names the place for the message.
function(kel_expect_version text pattern what)
  if(NOT text MATCHES "${pattern}")
    message(FATAL_ERROR "${what} is missing")
  endif()
  if(NOT CMAKE_MATCH_1 STREQUAL KEL_VERSION_TEXT)
    message(FATAL_ERROR "${what} says \"${CMAKE_MATCH_1}\", the project is ${KEL_VERSION_TEXT}")
  endif()
endfunction()

file(READ ${KEL_PUBLIC_HEADER} _kel_header)
set(_kel_header_version "")
foreach(part MAJOR MINOR PATCH BUILD)
  if(NOT _kel_header MATCHES "#define[ \t]+KELBROOK_VERSION_${part}[ \t]+([0-9]+)")
    message(FATAL_ERROR "include/Kelbrook.h does not define KELBROOK_VERSION_${part}")
  endif()
  list(APPEND _kel_header_version ${CMAKE_MATCH_1})
endforeach()
list(JOIN _kel_header_version "." _kel_header_version)
if(NOT _kel_header_version STREQUAL KEL_VERSION_TEXT)
  message(FATAL_ERROR "include/Kelbrook.h says version ${_kel_header_version}, the project is ${KEL_VERSION_TEXT}")
endif()
kel_expect_version("${_kel_header}" "#define[ \t]+KELBROOK_VERSION_STRING[ \t]+\"([^\"]*)\""
  "include/Kelbrook.h's KELBROOK_VERSION_STRING")

if(EXISTS ${KEL_KELCLI_MANIFEST})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${KEL_KELCLI_MANIFEST})
  file(READ ${KEL_KELCLI_MANIFEST} _kel_manifest)
  kel_expect_version("${_kel_manifest}" "<assemblyIdentity[^>]*[ \t\r\n]version=\"([^\"]*)\""
    "tools/kelcli/kelcli.manifest's assemblyIdentity version")
endif()
