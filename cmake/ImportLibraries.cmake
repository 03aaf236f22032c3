# Kelbrook.lib: the import library for hosts linked by Microsoft's linker (or
# lld-link), in that linker's own format, next to libKelbrook.a for mingw
# hosts. Made by llvm-dlltool from the same module definition. On x86 the
# definition carries the decorated stdcall names (KelInitialize@0) that a
# host's compiler references; -k makes each entry import the undecorated
# name, the only one the DLL exports. Without -k a host would import
# KelInitialize@0 and fail to start.
find_program(KEL_LLVM_DLLTOOL llvm-dlltool)
if(NOT KEL_LLVM_DLLTOOL)
  message(FATAL_ERROR "llvm-dlltool not found (Debian package llvm): run scripts/ensure-packages.sh")
endif()

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(KEL_LLVM_DLLTOOL_MACHINE i386)
  set(KEL_LLVM_DLLTOOL_FLAGS -k)
else()
  set(KEL_LLVM_DLLTOOL_MACHINE i386:x86-64)
  set(KEL_LLVM_DLLTOOL_FLAGS)
endif()

set(KEL_MSVC_IMPORT_LIBRARY ${CMAKE_BINARY_DIR}/Kelbrook.lib)
add_custom_command(OUTPUT ${KEL_MSVC_IMPORT_LIBRARY}
  COMMAND ${KEL_LLVM_DLLTOOL} -m ${KEL_LLVM_DLLTOOL_MACHINE} ${KEL_LLVM_DLLTOOL_FLAGS}
          -d ${KEL_IMPLIB_DEF} -l ${KEL_MSVC_IMPORT_LIBRARY}
  DEPENDS ${KEL_IMPLIB_DEF}
  COMMENT "Import library Kelbrook.lib for hosts linked by link.exe or lld-link"
  VERBATIM)
add_custom_target(kel_msvc_import_library ALL DEPENDS ${KEL_MSVC_IMPORT_LIBRARY})

# Hosts linked against each import library, run under Wine.
add_subdirectory(tests/import_libraries)
