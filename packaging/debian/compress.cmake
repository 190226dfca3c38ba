# Run by CPack on what it has installed: Debian's manual pages are compressed.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/*.8")
foreach(page IN LISTS pages)
  execute_process(COMMAND gzip -9n "${page}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
