# The three kinds of target that the project is made of, and the flags they all share.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE}")
endif()

add_library(velta_flags INTERFACE)
target_compile_options(velta_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees overlapping copies in plain string concatenation (GCC bug 105651).
  target_compile_options(velta_flags INTERFACE -Wno-restrict)
endif()
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A type with a member of an anonymous namespace is only wrong in a header.
  target_compile_options(velta_flags INTERFACE -Wno-subobject-linkage)
endif()
include(VeltaHardening)
if(VELTA_SANITIZE)
  target_compile_options(velta_flags INTERFACE
    -fsanitize=${VELTA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velta_flags INTERFACE -fsanitize=${VELTA_SANITIZE})
endif()

# velta_library(NAME DEPENDS...): the static library of src/NAME. It sees the headers of the
# libraries that it names and of those below them, so an include in the wrong direction fails to
# compile.
function(velta_library name)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/src/${name}/*.cpp")
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  add_library(velta_${name} STATIC ${sources})
  # Each folder is reached through a forwarding directory of its own: build/include/NAME/NAME.
  set(view "${CMAKE_BINARY_DIR}/include/${name}")
  file(MAKE_DIRECTORY "${view}")
  if(NOT EXISTS "${view}/${name}")
    file(CREATE_LINK "${CMAKE_SOURCE_DIR}/src/${name}" "${view}/${name}" SYMBOLIC)
  endif()
  target_include_directories(velta_${name} PUBLIC "${view}")
  target_link_libraries(velta_${name} PRIVATE velta_flags)
  foreach(dependency IN LISTS ARGN)
    target_link_libraries(velta_${name} PUBLIC velta_${dependency})
  endforeach()
endfunction()

# Where the tests are only compiled and linked (scripts/check-macos), they need not be fast, and
# GoogleTest's headers are read once for all.
set(VELTA_TEST_OPTIONS "" CACHE STRING "Compiler options of the tests, after those of the build type")
option(VELTA_TEST_HEADER "Compile GoogleTest's headers once for all tests" OFF)

# velta_tests(NAME LIBRARIES...): one test program of every tests/NAME/*Test.cpp.
function(velta_tests name)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/tests/${name}/*Test.cpp")
  if(NOT sources)
    return()
  endif()
  add_executable(${name}_tests ${sources})
  target_link_libraries(${name}_tests PRIVATE
    velta_flags velta_test_support GTest::gmock GTest::gtest_main)
  target_compile_options(${name}_tests PRIVATE ${VELTA_TEST_OPTIONS})
  if(VELTA_TEST_HEADER)
    target_precompile_headers(${name}_tests REUSE_FROM velta_test_header)
  endif()
  foreach(library IN LISTS ARGN)
    target_link_libraries(${name}_tests PRIVATE velta_${library})
  endforeach()
  gtest_discover_tests(${name}_tests TEST_PREFIX "${name}/" DISCOVERY_TIMEOUT 60)
endfunction()
