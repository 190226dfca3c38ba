# Makes a fault in this code harder to use against the machine that runs it.
#
# brimlet_harden(target): compiles and links a target with it; its dependants inherit nothing. A flag
# that the compiler does not have for the machine is left out. tests/install_test.sh looks for each
# in the daemon.

include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

option(BRIMLET_HARDEN "Build with the hardening that compiler and linker offer" ON)

# Makes POSITION_INDEPENDENT_CODE give executables -pie, too.
check_pie_supported(LANGUAGES CXX)

# The control-flow protection of x86-64 and that of AArch64 are flags of these machines only; Clang 14
# has no stack clash protection for AArch64.
set(hardening_flags)
# Clang only warns of a flag that is not for its machine; and of flags for the compiler when it links.
set(CMAKE_REQUIRED_FLAGS -Werror)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
foreach(flag IN ITEMS
    -fstack-protector-strong -fstack-clash-protection
    -fcf-protection=full -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER "BRIMLET_HAS${flag}" known)
  check_cxx_compiler_flag(${flag} ${known})
  if(${known})
    list(APPEND hardening_flags ${flag})
  endif()
endforeach()

# Level 3 also guards buffers whose size is known at run time only, such as the heap's. A C library
# from before it warns.
set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("#include <cstring>\nint main() {}" BRIMLET_HAS_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
unset(CMAKE_TRY_COMPILE_TARGET_TYPE)
set(fortify_level $<IF:$<BOOL:${BRIMLET_HAS_FORTIFY_3}>,3,2>)

# It needs an optimiser, and it hides from the sanitizers the calls that these watch. In builds
# without a type, what CMAKE_CXX_FLAGS says stands.
set(fortify_if $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
if(BRIMLET_SANITIZE)
  set(fortify_if 0)
endif()

function(brimlet_harden target)
  if(NOT BRIMLET_HARDEN)
    return()
  endif()
  # Without the level that a distribution's compiler sets: to define another one is a warning.
  target_compile_options(${target} PRIVATE ${hardening_flags}
    $<${fortify_if}:-U_FORTIFY_SOURCE> $<${fortify_if}:-D_FORTIFY_SOURCE=${fortify_level}>)
  target_compile_definitions(${target} PRIVATE _GLIBCXX_ASSERTIONS)
  target_link_options(${target} PRIVATE LINKER:-z,relro,-z,now,-z,noexecstack)
endfunction()
