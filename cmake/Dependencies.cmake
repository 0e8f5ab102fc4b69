# Third-party libraries, all from Debian 12's packages (scripts/install-deps.sh).
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(Qt5 5.15 REQUIRED COMPONENTS Core)

find_program(LRELEASE_EXECUTABLE lrelease HINTS /usr/lib/qt5/bin REQUIRED)
