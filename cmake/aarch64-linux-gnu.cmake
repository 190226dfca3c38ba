# Cross-compiles for AArch64 with Debian's compiler and that architecture's packages, which lie beside
# the machine's own; runs what comes out of it under qemu. scripts/lib.sh names them.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(PKG_CONFIG_EXECUTABLE aarch64-linux-gnu-pkg-config)

# No "-L FOLDER": loader and libraries stand where a program of the architecture looks for them.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
