# Cross build for the projector's computer (32-bit ARM, hard-float) with Debian's cross
# compiler (g++-arm-linux-gnueabihf) and the armhf libraries that
# scripts/install-deps.sh --armhf unpacks into a private prefix:
#
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake
#
# The C and C++ runtime is the cross toolchain's own (/usr/arm-linux-gnueabihf); every
# other library, with its headers, CMake and pkg-config files, comes from the prefix,
# which is searched before the build machine. Programs run on the build machine (Qt's
# lrelease and moc) are the host's. Test programs run under user-mode emulation through
# scripts/qemu-armhf, which gives them the same runtime and the prefix's libraries.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(PROJ_ARMHF_PREFIX /opt/projector-armhf)
set(CMAKE_FIND_ROOT_PATH ${PROJ_ARMHF_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# The compiler knows nothing of the prefix: its include folders come before the build
# machine's /usr/include (which the cross compiler would otherwise search), and the
# linker finds there the libraries the prefix's libraries need in turn.
set(_proj_armhf_include ${PROJ_ARMHF_PREFIX}/usr/include/arm-linux-gnueabihf ${PROJ_ARMHF_PREFIX}/usr/include)
set(CMAKE_C_STANDARD_INCLUDE_DIRECTORIES ${_proj_armhf_include})
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${_proj_armhf_include})
set(_proj_armhf_link "-Wl,-rpath-link,${PROJ_ARMHF_PREFIX}/usr/lib/arm-linux-gnueabihf:${PROJ_ARMHF_PREFIX}/lib/arm-linux-gnueabihf")
set(CMAKE_EXE_LINKER_FLAGS_INIT ${_proj_armhf_link})
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${_proj_armhf_link})
set(CMAKE_MODULE_LINKER_FLAGS_INIT ${_proj_armhf_link})

set(ENV{PKG_CONFIG_LIBDIR} "${PROJ_ARMHF_PREFIX}/usr/lib/arm-linux-gnueabihf/pkgconfig:${PROJ_ARMHF_PREFIX}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${PROJ_ARMHF_PREFIX})
set(ENV{PKG_CONFIG_PATH} "")

get_filename_component(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/qemu-armhf ABSOLUTE)
