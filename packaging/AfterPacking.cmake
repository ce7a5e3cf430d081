# Run by CPack when a package is made. CPack puts files into a .tar.gz in the order in which the disk
# lists them, so two builds of one commit would differ; here it is packed again in order of names.

if(NOT CPACK_GENERATOR STREQUAL "TGZ")
  return()
endif()
execute_process(COMMAND tar --version OUTPUT_VARIABLE version ERROR_QUIET)
if(NOT version MATCHES "GNU tar")
  message(WARNING "no GNU tar: the order of files in the .tar.gz is the disk's")
  return()
endif()
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(time "--mtime=@$ENV{SOURCE_DATE_EPOCH}")
endif()
execute_process(
  COMMAND tar -C "${CPACK_TEMPORARY_DIRECTORY}/.." --sort=name --format=gnu
    --owner=root:0 --group=root:0 --mode=u=rwX,go=rX ${time} -c "${CPACK_PACKAGE_FILE_NAME}"
  COMMAND gzip -9n
  OUTPUT_FILE "${CPACK_PACKAGE_FILES}"
  COMMAND_ERROR_IS_FATAL ANY)
