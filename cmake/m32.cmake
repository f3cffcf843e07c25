# 32-bit x86 Linux build on an x86-64 Debian host (g++-multilib, lib32z1-dev):
#   cmake -S . -B build/m32 -DCMAKE_TOOLCHAIN_FILE=cmake/m32.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)

# 64-bit time_t and file offsets, as the library itself uses on 32-bit Linux:
# dates before 1902 and after 2038, and files above 2 GiB.
set(CMAKE_C_FLAGS_INIT "-m32 -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-m32 -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-m32")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-m32")

# Look in the 32-bit library directories (/usr/lib32, /usr/lib/i386-linux-gnu)
# before the host's, so find_package(ZLIB) takes /usr/lib32/libz.so.
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set_property(GLOBAL PROPERTY FIND_LIBRARY_USE_LIB32_PATHS TRUE)
set_property(GLOBAL PROPERTY FIND_LIBRARY_USE_LIB64_PATHS FALSE)

# The installed GTest is 64-bit only: build it from its sources instead.
if(EXISTS /usr/src/googletest/CMakeLists.txt)
  set(KELVOR_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest source tree to build the tests against")
endif()
