# Third-party libraries, all from Debian 12's packages (scripts/install-deps.sh).
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(ZLIB REQUIRED)
find_package(OpenSSL REQUIRED)
# Boost.Beast and Boost.Asio (header-only) for the web page's HTTP and WebSocket server.
find_package(Boost 1.74 REQUIRED)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
find_package(Qt5 5.15 REQUIRED COMPONENTS Core)

find_program(LRELEASE_EXECUTABLE lrelease HINTS /usr/lib/qt5/bin REQUIRED)

# ClearSilver's HDF (hierarchical data files): Debian ships static libraries only.
find_path(CLEARSILVER_INCLUDE_DIR ClearSilver.h PATH_SUFFIXES ClearSilver REQUIRED)
find_library(CLEARSILVER_UTIL_LIBRARY neo_utl REQUIRED)
add_library(ClearSilver::hdf INTERFACE IMPORTED)
target_include_directories(ClearSilver::hdf INTERFACE ${CLEARSILVER_INCLUDE_DIR})
target_link_libraries(ClearSilver::hdf INTERFACE ${CLEARSILVER_UTIL_LIBRARY} ZLIB::ZLIB)
pkg_check_modules(MINIZIP REQUIRED IMPORTED_TARGET minizip)
