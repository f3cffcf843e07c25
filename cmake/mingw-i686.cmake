# 32-bit Windows build with MinGW-w64 (g++-mingw-w64-i686, libz-mingw-w64-dev):
#   cmake -S . -B build/win32 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake
set(KELVOR_MINGW_TRIPLE i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
