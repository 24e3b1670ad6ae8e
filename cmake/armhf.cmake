# 32-bit ARM with Debian's cross compiler (g++-arm-linux-gnueabihf). The compiler brings its own C and C++ libraries;
# everything else comes from build/armhf-sysroot, which scripts/board-fetch fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

get_filename_component(armhf_sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${armhf_sysroot}/usr ${armhf_sysroot} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${armhf_sysroot})
set(ENV{PKG_CONFIG_LIBDIR} ${armhf_sysroot}/usr/lib/arm-linux-gnueabihf/pkgconfig:${armhf_sysroot}/usr/share/pkgconfig)

# The tests run here too, in user-mode emulation.
find_program(armhf_emulator NAMES qemu-arm-static qemu-arm)
if(armhf_emulator)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${armhf_emulator};-L;/usr/arm-linux-gnueabihf)
endif()

# Not worth a word for each use of a container: GCC 7 changed how some arguments are passed on ARM.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

# What nothing refers to is left out.
set(CMAKE_C_FLAGS_MINSIZEREL_INIT "-ffunction-sections -fdata-sections")
set(CMAKE_CXX_FLAGS_MINSIZEREL_INIT "-ffunction-sections -fdata-sections")
set(CMAKE_SHARED_LINKER_FLAGS_MINSIZEREL_INIT "-Wl,--gc-sections")
set(CMAKE_EXE_LINKER_FLAGS_MINSIZEREL_INIT "-Wl,--gc-sections")
