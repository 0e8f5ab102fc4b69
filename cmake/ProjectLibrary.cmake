# The product libraries: shared, versioned, installed with their headers and exported
# as imported targets (find_package(projector) gives projector::utility and the others).
#
# Layout, relative to the install prefix (the runtime root, "/" for a package):
#   usr/lib/<multiarch>/libprojector_<name>.so.<major>   component "runtime"
#   usr/include/projector/<name>/...                     component "development": each
#                                                         library's headers keep the paths
#                                                         the code writes ("log/ILog.h")
#   usr/lib/<multiarch>/cmake/projector/                 component "development"

set(PROJ_INSTALL_LIBDIR usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
set(PROJ_INSTALL_INCLUDEDIR usr/include/projector)
set(PROJ_INSTALL_CMAKEDIR ${PROJ_INSTALL_LIBDIR}/cmake/projector)

# proj_add_library(<name> <sources...>)
function(proj_add_library name)
    add_library(${name} SHARED ${ARGN})
    set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                             OUTPUT_NAME projector_${name})
    # Nothing replaces a library's functions from outside, so a call within the library
    # goes straight to its function (no PLT stub) and the compiler may inline it.
    target_compile_options(${name} PRIVATE -fno-semantic-interposition)
    target_link_options(${name} PRIVATE -Wl,-Bsymbolic-functions)
    target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
                                              $<INSTALL_INTERFACE:${PROJ_INSTALL_INCLUDEDIR}/${name}>)
    install(TARGETS ${name} EXPORT projectorTargets
            LIBRARY DESTINATION ${PROJ_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
    install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/ DESTINATION ${PROJ_INSTALL_INCLUDEDIR}/${name}
            COMPONENT development FILES_MATCHING PATTERN "*.h" PATTERN "translations" EXCLUDE)
endfunction()

# proj_add_module(<name> <library> <sources...>): a module the library <library> opens with
# dlopen from its own folder (module/NModule.h), built beside it, installed with it and
# exporting nothing but what its entry point marks.
function(proj_add_module name library)
    add_library(${name} MODULE ${ARGN})
    set_target_properties(${name} PROPERTIES OUTPUT_NAME projector_${name} CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
    install(TARGETS ${name} LIBRARY DESTINATION ${PROJ_INSTALL_LIBDIR} COMPONENT runtime)
    add_dependencies(${library} ${name})
endfunction()

# After every library: the export set and the package configuration.
function(proj_install_package_config)
    install(EXPORT projectorTargets NAMESPACE projector:: DESTINATION ${PROJ_INSTALL_CMAKEDIR}
            COMPONENT development)
    include(CMakePackageConfigHelpers)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/projectorConfig.cmake.in
                                  ${CMAKE_BINARY_DIR}/projectorConfig.cmake INSTALL_DESTINATION ${PROJ_INSTALL_CMAKEDIR})
    write_basic_package_version_file(${CMAKE_BINARY_DIR}/projectorConfigVersion.cmake
                                     COMPATIBILITY SameMajorVersion)
    install(FILES ${CMAKE_BINARY_DIR}/projectorConfig.cmake ${CMAKE_BINARY_DIR}/projectorConfigVersion.cmake
            DESTINATION ${PROJ_INSTALL_CMAKEDIR} COMPONENT development)
endfunction()
