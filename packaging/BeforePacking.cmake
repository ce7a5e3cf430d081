# Run by CPack between installing and packing, once for each kind of package.

set(tree "${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
set(ordinary OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# The compiler's name is of no use to who runs the program.
if(CPACK_VELTA_OBJCOPY)
  file(GLOB programs "${tree}/bin/velta-mcp" "${tree}/usr/bin/velta-mcp")
  execute_process(
    COMMAND "${CPACK_VELTA_OBJCOPY}" --remove-section=.comment ${programs}
    COMMAND_ERROR_IS_FATAL ANY)
endif()

# What Debian wants otherwise than everybody else.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(share "${tree}/usr/share")
  set(doc "${share}/doc/velta-mcp")

  # The copyright file has the terms of all parts.
  file(REMOVE "${doc}/LICENSE" "${doc}/LICENSE-OpenCC" "${doc}/NOTICE")
  file(COPY_FILE "${CPACK_VELTA_DEBIAN}/copyright" "${doc}/copyright")
  file(RENAME "${doc}/CHANGELOG.md" "${doc}/changelog")
  file(COPY_FILE "${CPACK_VELTA_CHANGELOG}" "${doc}/changelog.Debian")
  file(MAKE_DIRECTORY "${share}/lintian/overrides")
  file(COPY_FILE "${CPACK_VELTA_DEBIAN}/lintian-overrides" "${share}/lintian/overrides/velta-mcp")
  file(CHMOD "${doc}/copyright" "${doc}/changelog.Debian" "${share}/lintian/overrides/velta-mcp"
    PERMISSIONS ${ordinary})

  # Debian's zsh looks for packages' completions in a folder of its own.
  file(MAKE_DIRECTORY "${share}/zsh/vendor-completions")
  file(RENAME "${share}/zsh/site-functions/_velta-mcp" "${share}/zsh/vendor-completions/_velta-mcp")
  file(REMOVE_RECURSE "${share}/zsh/site-functions")

  execute_process(
    COMMAND gzip -9n "${share}/man/man1/velta-mcp.1" "${doc}/changelog" "${doc}/changelog.Debian"
    COMMAND_ERROR_IS_FATAL ANY)
endif()

# Whatever the umask of who packs.
file(CHMOD_RECURSE "${tree}"
  DIRECTORY_PERMISSIONS ${ordinary} OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
