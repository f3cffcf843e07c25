# 64-bit Windows build with MinGW-w64 (g++-mingw-w64-x86-64, libz-mingw-w64-dev):
#   cmake -S . -B build/win64 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-x86_64.cmake
set(KELVOR_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
