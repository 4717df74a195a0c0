# Cross-builds for 32-bit hard-float ARM with Debian's compiler; tests run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)

set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)

# CLI11 and nlohmann-json are headers only: the build machine's copies serve, searched behind the target's own headers.
# -Wno-psabi: no notes on calls that compilers before GCC 7 made otherwise.
set(CMAKE_CXX_FLAGS_INIT "-idirafter /usr/include -Wno-psabi")
