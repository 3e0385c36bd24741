# What an installed StageMgr consists of, for CMake, pkg-config and dpkg.

include(CMakePackageConfigHelpers)

# One folder per incompatible version, so that two can lie beside each other.
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/stagemgr-${PROJECT_VERSION_MAJOR})
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/StageMgr)

install(
    TARGETS StageMgr
    EXPORT StageMgrTargets
    LIBRARY COMPONENT library NAMELINK_COMPONENT development
    FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT development)
install(
    EXPORT StageMgrTargets
    NAMESPACE StageMgr::
    DESTINATION ${package_dir}
    COMPONENT development)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/StageMgrConfig.cmake.in
                              StageMgrConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(StageMgrConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(
    FILES ${CMAKE_CURRENT_BINARY_DIR}/StageMgrConfig.cmake
          ${CMAKE_CURRENT_BINARY_DIR}/StageMgrConfigVersion.cmake
    DESTINATION ${package_dir}
    COMPONENT development)

# Relative to where the file lies: the prefix may be chosen as late as by `cmake --install`.
file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/stagemgr.pc.in stagemgr.pc @ONLY)
install(
    FILES ${CMAKE_CURRENT_BINARY_DIR}/stagemgr.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)

if(TARGET stagemgr)
    install(TARGETS stagemgr RUNTIME COMPONENT program)
    install(
        FILES ${PROJECT_SOURCE_DIR}/host/plan/plan.schema.json
        DESTINATION ${CMAKE_INSTALL_DATADIR}/stagemgr
        COMPONENT program)
endif()
install(
    FILES ${PROJECT_SOURCE_DIR}/LICENSE
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT library)

if(PROJECT_IS_TOP_LEVEL)
    set(CPACK_GENERATOR DEB)
    set(CPACK_PACKAGE_CONTACT "the StageMgr authors")
    set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_STRIP_FILES ON)
    set(CPACK_COMPONENTS_ALL library development)
    if(TARGET stagemgr)
        list(APPEND CPACK_COMPONENTS_ALL program)
    endif()
    set(CPACK_DEB_COMPONENT_INSTALL ON)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libstagemgr${PROJECT_VERSION_MAJOR})
    set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libstagemgr-dev)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME stagemgr)
    set(CPACK_DEBIAN_PROGRAM_PACKAGE_SECTION admin)
    set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
    set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
    set(CPACK_COMPONENT_PROGRAM_DEPENDS library)
    # Named shared objects are turned into package dependencies where dpkg-dev can do it.
    find_program(STAGEMGR_SHLIBDEPS dpkg-shlibdeps)
    mark_as_advanced(STAGEMGR_SHLIBDEPS)
    if(STAGEMGR_SHLIBDEPS)
        set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
        set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
    endif()
    include(CPack)
endif()
