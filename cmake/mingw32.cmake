# Cross build for 32-bit Windows with mingw-w64: checks that the host's
# records keep their offsets. wine64 cannot run its programs.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(ORBELLE_MINGW_TRIPLE i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
