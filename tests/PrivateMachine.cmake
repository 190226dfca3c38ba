# brimlet_use_private_machine(target): gives a program PrivateMachine.h, and that machine what it needs.
function(brimlet_use_private_machine target)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/PrivateMachine.cpp)
  set_property(SOURCE ${PROJECT_SOURCE_DIR}/tests/PrivateMachine.cpp
    TARGET_DIRECTORY ${target} APPEND PROPERTY COMPILE_DEFINITIONS
    BRIMLET_DAEMON="$<TARGET_FILE:brimletd>"
    BRIMLET_MAIN_PROGRAM="$<TARGET_FILE:main_program>"
    BRIMLET_INTERFACE_XML="${PROJECT_SOURCE_DIR}/packaging/com.tolvane.brimlet.xml"
    BRIMLET_BUS_CONF="${PROJECT_SOURCE_DIR}/tests/bus.conf"
    BRIMLET_BUS_POLICY="${PROJECT_BINARY_DIR}/packaging/com.tolvane.brimlet.conf"
    BRIMLET_GROUP="${BRIMLET_GROUP}")
  add_dependencies(${target} brimletd main_program)
endfunction()
