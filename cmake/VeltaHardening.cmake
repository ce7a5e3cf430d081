# What makes a mistake in memory end the program instead of obeying whoever made use of it, at the
# cost of a few instructions a function. tests/cli/HardeningTest.cpp reads it off the program.

include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# The checked calls of the C library need an optimizer, and the sanitizers' own checks are stricter.
set(VELTA_OPTIMIZED "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
if(NOT VELTA_SANITIZE)
  if(APPLE)
    set(fortified 2)  # the highest that its headers know
  else()
    set(fortified 3)
  endif()
  target_compile_options(velta_flags INTERFACE
    -fstack-protector-strong
    "$<${VELTA_OPTIMIZED}:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${fortified}>")
endif()

if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  target_compile_options(velta_flags INTERFACE -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    target_compile_options(velta_flags INTERFACE -fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    target_compile_options(velta_flags INTERFACE -mbranch-protection=standard)
  endif()
  target_link_options(velta_flags INTERFACE LINKER:-z,relro,-z,now,-z,noexecstack)
endif()
