# Cross build for 32-bit ARM (hard float) with Debian's cross compiler; tests run under qemu-user.
# The armhf libraries come from a sysroot of unpacked Debian packages (QAV_ARM_SYSROOT, made by
# tools/arm-build.sh); the C and C++ runtimes from the cross compiler's own /usr/arm-linux-gnueabihf.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# try_compile projects read this file again; they need the sysroot too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QAV_ARM_SYSROOT)
if(NOT QAV_ARM_SYSROOT)
  message(FATAL_ERROR "QAV_ARM_SYSROOT is not set; tools/arm-build.sh makes the sysroot and sets it")
endif()
set(arm_libs ${QAV_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf:${QAV_ARM_SYSROOT}/lib/arm-linux-gnueabihf)

# Headers and libraries only from the sysroot and the cross runtime, never the host's. The
# compiler itself also searches the host's /usr/include, so the sysroot's headers go first.
set(CMAKE_FIND_ROOT_PATH ${QAV_ARM_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(arm_includes "-isystem ${QAV_ARM_SYSROOT}/usr/include/arm-linux-gnueabihf -isystem ${QAV_ARM_SYSROOT}/usr/include")
set(CMAKE_C_FLAGS_INIT "${arm_includes}")
set(CMAKE_CXX_FLAGS_INIT "${arm_includes}")
# The linker follows the libraries' own dependencies (libxml2 -> ICU, lzma, zlib) in the sysroot.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-Wl,-rpath-link,${arm_libs}")
endforeach()
set(ENV{PKG_CONFIG_LIBDIR} ${QAV_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${QAV_ARM_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${QAV_ARM_SYSROOT})
set(ENV{PKG_CONFIG_PATH} "")

# Test programs (and the programs the tests start) run under qemu-user: the loader and C/C++
# runtimes from the cross compiler's directory, the other libraries from the sysroot.
find_program(QAV_QEMU_ARM NAMES qemu-arm-static qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${QAV_QEMU_ARM} -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=${arm_libs})
