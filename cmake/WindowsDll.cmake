# Windows build: Kelbrook.dll with its 21 exports, its import libraries and
# the programs that drive it under Wine.
enable_language(RC)

set(KEL_DEF_FILE ${PROJECT_SOURCE_DIR}/src/frame/Kelbrook.def)
math(EXPR KEL_POINTER_BITS "${CMAKE_SIZEOF_VOID_P} * 8")

add_library(Kelbrook SHARED
  $<TARGET_OBJECTS:kelbrook_core>
  src/platform/win32/win32_platform.cpp
  src/platform/win32/winrt_packages.cpp
  src/platform/win32/dll_main.cpp
  src/frame/Kelbrook.rc
  ${KEL_DEF_FILE})
target_include_directories(Kelbrook PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
set_target_properties(Kelbrook PROPERTIES PREFIX "" OUTPUT_NAME Kelbrook
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}
  ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/linker-implib)
# Only system DLLs at run time: the compiler's own runtime is linked in.
target_link_options(Kelbrook PRIVATE -static -static-libgcc -static-libstdc++)
target_link_libraries(Kelbrook PRIVATE shlwapi shell32 user32 advapi32 ole32 runtimeobject)

# stdcall on x86: the C names carry @<argument bytes>; the module definition
# exports them undecorated.
set(KEL_STDCALL_ARGUMENT_BYTES
  KelFinalize=0 KelGetAppDisplayNameByPFNW=8 KelGetMonitorMode=4 KelInitialize=0
  KelIsInstalledA=8 KelIsInstalledW=8 KelLaunchBrowserByProtocolA=8 KelLaunchBrowserByProtocolW=8
  KelLaunchByAppUserModelIdA=4 KelLaunchByAppUserModelIdW=8 KelLaunchByPFNA=12 KelLaunchByPFNW=12
  KelLaunchByProtocolA=4 KelLaunchByProtocolW=4 KelLaunchBySearchA=12 KelLaunchBySearchW=12
  KelLaunchIEBySearch=12 KelLaunchStoreA=4 KelLaunchStoreW=4 KelReleaseStringA=4 KelReleaseStringW=4)

# The import-library definition: decorated names on x86 (what stdcall callers
# reference), plain names on x64. Kelbrook.lib is made from it by llvm-dlltool
# (cmake/ImportLibraries.cmake), libKelbrook.a by dlltool below.
set(KEL_IMPLIB_DEF ${CMAKE_BINARY_DIR}/Kelbrook.def)
file(STRINGS ${KEL_DEF_FILE} KEL_DEF_LINES)
set(KEL_IMPLIB_DEF_TEXT "LIBRARY Kelbrook.dll\nEXPORTS\n")
foreach(line IN LISTS KEL_DEF_LINES)
  if(line MATCHES "^[ \t]+(Kel[A-Za-z]+)[ \t]+@([0-9]+)")
    set(name ${CMAKE_MATCH_1})
    set(ordinal ${CMAKE_MATCH_2})
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
      foreach(entry IN LISTS KEL_STDCALL_ARGUMENT_BYTES)
        if(entry MATCHES "^${name}=([0-9]+)$")
          set(name "${name}@${CMAKE_MATCH_1}")
        endif()
      endforeach()
    endif()
    string(APPEND KEL_IMPLIB_DEF_TEXT "    ${name} @${ordinal}\n")
  endif()
endforeach()
file(WRITE ${KEL_IMPLIB_DEF} "${KEL_IMPLIB_DEF_TEXT}")

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_link_options(Kelbrook PRIVATE -Wl,--enable-stdcall-fixup)
  set(KEL_DLLTOOL_FLAGS -k)
endif()
add_custom_command(TARGET Kelbrook POST_BUILD
  COMMAND ${CMAKE_DLLTOOL} -d ${KEL_IMPLIB_DEF} -l ${CMAKE_BINARY_DIR}/libKelbrook.a -D Kelbrook.dll ${KEL_DLLTOOL_FLAGS}
  BYPRODUCTS ${CMAKE_BINARY_DIR}/libKelbrook.a
  COMMENT "Import library libKelbrook.a for mingw hosts")

# The DLL that is tested and shipped carries no symbols: they go to
# Kelbrook.dll.debug beside it, which the DLL names, with the file's CRC, in
# its .gnu_debuglink section, so a debugger that reads DWARF finds them.
set(KEL_DLL_SYMBOLS ${CMAKE_BINARY_DIR}/Kelbrook.dll.debug)
add_custom_command(TARGET Kelbrook POST_BUILD
  COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:Kelbrook> ${KEL_DLL_SYMBOLS}
  COMMAND ${CMAKE_OBJCOPY} --strip-all --add-gnu-debuglink=${KEL_DLL_SYMBOLS} $<TARGET_FILE:Kelbrook>
  COMMENT "Symbols of Kelbrook.dll split off into Kelbrook.dll.debug")

# The exports and imports of the DLL, checked from its PE headers.
add_test(NAME dll_exports_and_imports
  COMMAND ${CMAKE_COMMAND} -DOBJDUMP=${CMAKE_OBJDUMP} -DDLL=$<TARGET_FILE:Kelbrook> -DDEF=${KEL_DEF_FILE}
          -P ${PROJECT_SOURCE_DIR}/cmake/CheckDllExports.cmake)
set_tests_properties(dll_exports_and_imports PROPERTIES LABELS pe)

# The hardening the DLL is built with, and its symbols split off and matched.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
add_test(NAME dll_hardening_and_symbols
  COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tests/pe/check_dll_hardening.py
          --objdump ${CMAKE_OBJDUMP} --bits ${KEL_POINTER_BITS} $<TARGET_FILE:Kelbrook> ${KEL_DLL_SYMBOLS})
set_tests_properties(dll_hardening_and_symbols PROPERTIES LABELS pe)

# The version resources, against the project version (cmake/KelbrookVersion.cmake).
set(KEL_VERSION_CHECK_ARGS -DWINDRES=${CMAKE_RC_COMPILER} -DVERSION=${KEL_VERSION_TEXT} -DARCH=${KEL_ARCHITECTURE})
add_test(NAME dll_version_resource
  COMMAND ${CMAKE_COMMAND} ${KEL_VERSION_CHECK_ARGS} -DFILE=$<TARGET_FILE:Kelbrook> -DORIGINAL_NAME=Kelbrook.dll
          -P ${PROJECT_SOURCE_DIR}/cmake/CheckVersionInfo.cmake)
set_tests_properties(dll_version_resource PROPERTIES LABELS pe)

include(cmake/PublicHeaderChecks.cmake)

if(EXISTS ${PROJECT_SOURCE_DIR}/tools/kelcli/CMakeLists.txt)
  add_subdirectory(tools/kelcli)
endif()
if(TARGET kelcli)
  add_test(NAME kelcli_version_resource
    COMMAND ${CMAKE_COMMAND} ${KEL_VERSION_CHECK_ARGS} -DFILE=$<TARGET_FILE:kelcli> -DORIGINAL_NAME=kelcli.exe
            -P ${PROJECT_SOURCE_DIR}/cmake/CheckVersionInfo.cmake)
  set_tests_properties(kelcli_version_resource PROPERTIES LABELS pe)
endif()
if(EXISTS ${PROJECT_SOURCE_DIR}/tests/wine/CMakeLists.txt)
  add_subdirectory(tests/wine)
endif()
