# Cross build for 32-bit ARM (hard float) with Debian's cross compiler and the multiarch armhf
# -dev packages; tests run under qemu-user. See docs/conformance.md and tools/arm-build.sh.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# Libraries and package configurations come from the armhf multiarch directories only; headers
# from /usr/include (shared) and /usr/include/arm-linux-gnueabihf; programs from the host.
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /lib/x86_64-linux-gnu /usr/include/x86_64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# Test programs (and the programs the tests start) run under qemu-user with the armhf loader
# and libraries.
find_program(QAV_QEMU_ARM NAMES qemu-arm-static qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${QAV_QEMU_ARM} -L /usr/arm-linux-gnueabihf)
