# Shared part of the mingw-w64 toolchain files; ORBELLE_MINGW_TRIPLE is set.
set(CMAKE_C_COMPILER ${ORBELLE_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${ORBELLE_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${ORBELLE_MINGW_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${ORBELLE_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# No mingw runtime DLLs to ship beside the programs.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -static")
# The runtime linked in statically stays private to each DLL.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -static -Wl,--exclude-libs,ALL")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${CMAKE_SHARED_LINKER_FLAGS_INIT}")
# The C99 printf family (%zu, %lld) rather than the system's older one.
set(CMAKE_C_FLAGS_INIT "-D__USE_MINGW_ANSI_STDIO=1")
set(CMAKE_CXX_FLAGS_INIT "-D__USE_MINGW_ANSI_STDIO=1")
