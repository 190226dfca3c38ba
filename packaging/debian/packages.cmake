# The Debian packages: the daemon with all that the machine has to know of it, and the library's
# development files. scripts/package.sh builds them.

if(BUILD_SHARED_LIBS OR NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  message(FATAL_ERROR "The packages hold the static library, below /usr: see the preset \"package\"")
endif()
set(BRIMLET_PACKAGE_CONTACT "Brimlet maintainers <maintainers@tolvane.com>" CACHE STRING
    "Who answers for the packages")

find_program(GZIP gzip REQUIRED)
set(changelog "${CMAKE_CURRENT_BINARY_DIR}/changelog.gz")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/CHANGELOG.md")
execute_process(
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog.sh ${PROJECT_NAME} ${PROJECT_VERSION} "${BRIMLET_PACKAGE_CONTACT}"
  COMMAND ${GZIP} -9n
  INPUT_FILE "${PROJECT_SOURCE_DIR}/CHANGELOG.md" OUTPUT_FILE "${changelog}"
  COMMAND_ERROR_IS_FATAL ANY)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "${BRIMLET_PACKAGE_CONTACT}")
set(CPACK_VERBATIM_VARIABLES ON)
# The descriptions of the packages begin with a summary of their own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL daemon development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_SOURCE_DIR}/debian/prepare.cmake")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# For a cross build, too.
find_program(DPKG_ARCHITECTURE dpkg-architecture REQUIRED)
execute_process(
  COMMAND ${CMAKE_CXX_COMPILER} -dumpmachine
  OUTPUT_VARIABLE machine OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
execute_process(
  COMMAND ${DPKG_ARCHITECTURE} -f -t ${machine} -q DEB_HOST_ARCH
  OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME brimletd)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS "default-dbus-system-bus | dbus-system-bus, systemd")
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst")
set(CPACK_DEBIAN_DAEMON_DESCRIPTION "privileged command helper of the Brimlet application
A small daemon that runs as root for a wireless screen-casting application.
It takes a command line over the system D-Bus, checks who asks and checks the
line word by word against a fixed grammar, runs it if it is allowed, and sends
back the output.

This package also brings brimlet-check, which tells whether the grammar allows
a line, and the bus policy, which lets root and the members of the group
${BRIMLET_GROUP} reach the daemon and nobody else.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libbrimlet-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libssl-dev (>= 3.0), libsystemd-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS brimletd)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "runtime library of the Brimlet application (development)
What the programs of the application link: the call to the helper daemon
brimletd, the log, status codes, random numbers and passwords, the wiping of
memory and files, the per-user directory tree, and INI files.

This package holds the headers, the static library, and what CMake and
pkg-config find them by.")

foreach(package IN ITEMS DAEMON DEVELOPMENT)
  string(TOLOWER ${package} component)
  install(FILES "${changelog}" debian/copyright
    DESTINATION share/doc/${CPACK_DEBIAN_${package}_PACKAGE_NAME} COMPONENT ${component})
endforeach()

include(CPack)
