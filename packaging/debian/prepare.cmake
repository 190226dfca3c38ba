# Run by CPack on what it has installed, before it packs that.

# The dependencies are those of the packages' architecture, also where another one builds them.
set(ENV{DEB_HOST_ARCH} "${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}")

# Debian's manual pages are compressed.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/*.[18]")
foreach(page IN LISTS pages)
  execute_process(COMMAND gzip -9n "${page}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
