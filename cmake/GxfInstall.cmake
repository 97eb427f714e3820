include(CMakePackageConfigHelpers)

set(GXF_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/GxfTypes")

install(
    TARGETS gxftypes gxfstream
    EXPORT GxfTypesTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(library gxftypes gxfstream)
    install(
        DIRECTORY "${PROJECT_SOURCE_DIR}/${library}/"
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${library}
        FILES_MATCHING
        PATTERN "*.h")
endforeach()

# Shared libraries and the tool find each other wherever the installation lies.
set_target_properties(gxfstream PROPERTIES INSTALL_RPATH "$ORIGIN")
if(TARGET gxf)
    file(RELATIVE_PATH libdir_from_bindir "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
    set_target_properties(gxf PROPERTIES INSTALL_RPATH "$ORIGIN/${libdir_from_bindir}")
    install(TARGETS gxf RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(
    EXPORT GxfTypesTargets
    NAMESPACE GxfTypes::
    DESTINATION ${GXF_INSTALL_CMAKEDIR})
configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/GxfTypesConfig.cmake.in" "${PROJECT_BINARY_DIR}/GxfTypesConfig.cmake"
    INSTALL_DESTINATION ${GXF_INSTALL_CMAKEDIR})
# Below 1.0 a new minor version may change the interface.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/GxfTypesConfigVersion.cmake"
                                 COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/GxfTypesConfig.cmake"
              "${PROJECT_BINARY_DIR}/GxfTypesConfigVersion.cmake"
        DESTINATION ${GXF_INSTALL_CMAKEDIR})

# The pkg-config files find the prefix from their own place, so that an installation can be moved.
set(GXF_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
set(GXF_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    set(GXF_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
    set(GXF_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
    set(GXF_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
    file(RELATIVE_PATH prefix_from_pc "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
    set(GXF_PC_PREFIX "\${pcfiledir}/${prefix_from_pc}")
endif()
foreach(library gxftypes gxfstream)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in" "${PROJECT_BINARY_DIR}/${library}.pc"
                   @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${library}.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" "${PROJECT_SOURCE_DIR}/README.md"
              "${PROJECT_SOURCE_DIR}/CHANGELOG.md" DESTINATION ${CMAKE_INSTALL_DOCDIR})
