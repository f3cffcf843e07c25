# Shared part of the MinGW-w64 toolchain files. The "-posix" compilers use
# POSIX threads for the C++ runtime, which std::thread in the tests needs.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${KELVOR_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KELVOR_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${KELVOR_MINGW_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KELVOR_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# No installed GoogleTest for the target: build it from its sources.
if(EXISTS /usr/src/googletest/CMakeLists.txt)
  set(KELVOR_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest source tree to build the tests against")
endif()
