# Installation: the programs, the library with its headers, and what other projects find it by.

include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/brimlet")

install(TARGETS brimletd
  RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)
install(TARGETS brimlet-check
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT daemon)
install(TARGETS brimlet EXPORT brimletTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
foreach(header IN ITEMS
    common/BoundsChecked.h common/ErrorCode.h common/Logger.h common/RandomCode.h
    common/Singleton.h common/UniqueFd.h
    storage/DirOperator.h storage/FileOperator.h storage/IniParser.h
    utils/BrimletdClient.h utils/CommandOutput.h utils/Split.h utils/Validators.h)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/brimlet/${folder}
    COMPONENT development)
endforeach()

install(EXPORT brimletTargets NAMESPACE Brimlet:: DESTINATION ${package_dir}
  COMPONENT development)
configure_package_config_file(cmake/brimletConfig.cmake.in brimletConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(brimletConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  "${CMAKE_CURRENT_BINARY_DIR}/brimletConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/brimletConfigVersion.cmake"
  DESTINATION ${package_dir} COMPONENT development)

# Found from where the file lies, so that the installation can be moved.
set(BRIMLET_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH way_up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  set(BRIMLET_PC_PREFIX "\${pcfiledir}/${way_up}")
endif()
cmake_path(APPEND BRIMLET_PC_LIBDIR "\${prefix}" "${CMAKE_INSTALL_LIBDIR}")
cmake_path(APPEND BRIMLET_PC_INCLUDEDIR "\${prefix}" "${CMAKE_INSTALL_INCLUDEDIR}")
# A program that links the static library links what that needs, too.
set(BRIMLET_PC_REQUIRES "Requires:")
if(BUILD_SHARED_LIBS)
  set(BRIMLET_PC_REQUIRES "Requires.private:")
endif()
configure_file(cmake/brimlet.pc.in brimlet.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/brimlet.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
