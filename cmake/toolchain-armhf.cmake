# Cross build for the projector's computer (32-bit ARM, hard-float) with Debian's multiarch
# cross toolchain (crossbuild-essential-armhf) and the ":armhf" development packages that
# scripts/install-deps.sh --armhf installs:
#
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake
#
# Libraries and pkg-config files come from /usr/lib/arm-linux-gnueabihf only; programs
# run on the build machine (Qt's lrelease and moc) are the host's. ClearSilver's
# development package cannot be installed for two architectures at once, so its armhf
# static libraries and headers are unpacked into a private prefix (PROJ_ARMHF_PREFIX).
# Test programs run under user-mode emulation (plain qemu-arm with the armhf loader that
# libc6:armhf installs; never with -L into a cross prefix, which would mix C libraries).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

if(NOT DEFINED PROJ_ARMHF_PREFIX)
    set(PROJ_ARMHF_PREFIX /opt/projector-armhf)
endif()
set(CLEARSILVER_INCLUDE_DIR ${PROJ_ARMHF_PREFIX}/usr/include/ClearSilver CACHE PATH "ClearSilver headers (armhf)")
set(CLEARSILVER_UTIL_LIBRARY ${PROJ_ARMHF_PREFIX}/usr/lib/arm-linux-gnueabihf/libneo_utl.a
    CACHE FILEPATH "ClearSilver's utility library (armhf)")

find_program(PROJ_QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${PROJ_QEMU_ARM})
