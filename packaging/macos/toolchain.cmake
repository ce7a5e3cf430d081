# Compiles for macOS on another system. scripts/check-macos makes what it names: the tools, which
# know the processor and the oldest macOS by themselves, and a folder with libraries and headers.

foreach(needed VELTA_MACOS_TOOLS VELTA_MACOS_PREFIX VELTA_MACOS_PROCESSOR)
  if(NOT ${needed})
    message(FATAL_ERROR "${needed} is not set. Next step: run scripts/check-macos")
  endif()
endforeach()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
  VELTA_MACOS_TOOLS VELTA_MACOS_PREFIX VELTA_MACOS_PROCESSOR)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 22.4.0)  # Darwin's number of macOS 13.3
set(CMAKE_SYSTEM_PROCESSOR "${VELTA_MACOS_PROCESSOR}")

set(CMAKE_C_COMPILER "${VELTA_MACOS_TOOLS}/clang")
set(CMAKE_CXX_COMPILER "${VELTA_MACOS_TOOLS}/clang++")
set(CMAKE_AR "${VELTA_MACOS_TOOLS}/ar")
set(CMAKE_RANLIB "${VELTA_MACOS_TOOLS}/ranlib")
# The tools name processor, system and its version; CMake would look for Apple's to tell them.
set(CMAKE_OSX_ARCHITECTURES "")
set(CMAKE_OSX_DEPLOYMENT_TARGET "")
set(CMAKE_OSX_SYSROOT "")
# What CMake would find out with a linker option that these tools do not know.
foreach(language C CXX)
  set(CMAKE_${language}_COMPILER_WORKS TRUE)
  set(CMAKE_${language}_ABI_COMPILED TRUE)
  set(CMAKE_${language}_SIZEOF_DATA_PTR 8)
  set(CMAKE_${language}_BYTE_ORDER LITTLE_ENDIAN)
endforeach()

# Libraries and headers of this machine are for another system.
set(CMAKE_FIND_ROOT_PATH "${VELTA_MACOS_PREFIX}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${VELTA_MACOS_PREFIX}/lib/pkgconfig")

# No test program can be asked for its tests here.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
