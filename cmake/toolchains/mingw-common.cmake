# What both mingw-w64 toolchains share; each sets CMAKE_SYSTEM_PROCESSOR,
# KEL_MINGW_TRIPLE and KEL_MINGW_ARCH_LINK_FLAGS first.
set(CMAKE_C_COMPILER ${KEL_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KEL_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${KEL_MINGW_TRIPLE}-windres)
set(CMAKE_DLLTOOL ${KEL_MINGW_TRIPLE}-dlltool)
set(CMAKE_OBJDUMP ${KEL_MINGW_TRIPLE}-objdump)
set(CMAKE_OBJCOPY ${KEL_MINGW_TRIPLE}-objcopy)
set(CMAKE_FIND_ROOT_PATH /usr/${KEL_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# Every Windows program and DLL of the build: DWARF symbols (split off the
# shipped DLL after linking), a stack protector on each function with arrays
# or address-taken locals (its runtime linked in statically with the rest),
# and the PE flags for address space layout randomisation (with 64-bit
# entropy where the architecture has it: KEL_MINGW_ARCH_LINK_FLAGS)
# and data execution prevention, asked for explicitly rather than left to
# the linker's defaults.
set(CMAKE_C_FLAGS_INIT "-g -fstack-protector-strong")
set(CMAKE_CXX_FLAGS_INIT "-g -fstack-protector-strong")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fstack-protector-strong -Wl,--dynamicbase -Wl,--nxcompat ${KEL_MINGW_ARCH_LINK_FLAGS}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fstack-protector-strong -Wl,--dynamicbase -Wl,--nxcompat ${KEL_MINGW_ARCH_LINK_FLAGS}")
