# The daemon end to end, on a private machine, next to the least that a helper can be.
# Once without the C++ library, which it does not need and against which the daemon's memory is held,
# and once with it, to show how much of that memory the library takes.
foreach(floor IN ITEMS end_to_end_floor end_to_end_floor_cxx)
  add_executable(${floor} end_to_end_floor.cpp)
  brimlet_configure(${floor})
  target_link_libraries(${floor} PRIVATE PkgConfig::BRIMLET_SYSTEMD)
endforeach()
target_link_options(end_to_end_floor PRIVATE LINKER:--as-needed)
target_link_options(end_to_end_floor_cxx PRIVATE LINKER:--no-as-needed)

include(../tests/PrivateMachine.cmake)
find_package(Threads REQUIRED)
add_executable(end_to_end
  end_to_end.cpp end_to_end_contenders.cpp end_to_end_peers.cpp end_to_end_process.cpp
  end_to_end_report.cpp ../tests/Support.cpp)
brimlet_configure(end_to_end)
brimlet_use_private_machine(end_to_end)
target_link_libraries(end_to_end PRIVATE
  ${BRIMLET_STATIC} PkgConfig::BRIMLET_SYSTEMD Threads::Threads)
target_compile_definitions(end_to_end PRIVATE
  BRIMLET_FLOOR="$<TARGET_FILE:end_to_end_floor>"
  BRIMLET_FLOOR_CXX="$<TARGET_FILE:end_to_end_floor_cxx>")
add_dependencies(end_to_end end_to_end_floor end_to_end_floor_cxx)
