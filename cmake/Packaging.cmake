# Debian packages of the build (cpack -G DEB in the build directory), one per component:
#   libprojector1     the shared libraries (component "runtime")
#   libprojector-dev  headers, the .so links and the CMake package configuration
#   vprojector        the virtual projector, its helpers and tools, translations, the
#                     shipped configuration and demo sequence archive
# for the architecture built: the host's, or armhf for the cross build. Files are laid
# out from "/" as the install rules name them (usr/bin, usr/lib/<multiarch>, ...).

if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    set(PROJ_DEB_ARCHITECTURE armhf)
else()
    execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE PROJ_DEB_ARCHITECTURE
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME projector-control-plane)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Control plane of a digital projector: controls, status, ASCII, JSON-RPC and IPC")
set(CPACK_PACKAGE_CONTACT "Projector control-plane developers <control-plane@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX "/")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development vprojector)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${PROJ_DEB_ARCHITECTURE})
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libprojector1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS
    "libc6, libstdc++6, libjsoncpp25, libqt5core5a, libssl3, libminizip1, zlib1g")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libprojector-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libprojector1 (= ${PROJECT_VERSION}), libjsoncpp-dev, pkg-config")
set(CPACK_DEBIAN_VPROJECTOR_PACKAGE_NAME vprojector)
set(CPACK_DEBIAN_VPROJECTOR_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_VPROJECTOR_PACKAGE_DEPENDS "libprojector1 (= ${PROJECT_VERSION})")

include(CPack)
