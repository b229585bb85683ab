# Install rules: the public header, the shared and static libraries, a CMake package
# (find_package(framedsp) -> framedsp::framedsp, framedsp::framedsp_static) and framedsp.pc.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(FRAMEDSP_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/framedsp)

install(FILES include/framedsp/framedsp.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/framedsp)

set_target_properties(framedsp PROPERTIES EXPORT_NAME framedsp)
set_target_properties(framedsp_static PROPERTIES EXPORT_NAME framedsp_static)
install(TARGETS framedsp framedsp_static
        EXPORT framedspTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT framedspTargets NAMESPACE framedsp:: DESTINATION ${FRAMEDSP_CMAKE_DIR})

configure_package_config_file(cmake/framedspConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/framedspConfig.cmake
                              INSTALL_DESTINATION ${FRAMEDSP_CMAKE_DIR})
# 0.x releases may change the interface between minor versions.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/framedspConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/framedspConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/framedspConfigVersion.cmake
        DESTINATION ${FRAMEDSP_CMAKE_DIR})

# framedsp.pc locates the prefix from its own directory, so the installed tree can be moved and
# `cmake --install --prefix` needs no reconfiguration.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(FRAMEDSP_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH _framedsp_up "/root/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/root")
  string(REGEX REPLACE "/$" "" _framedsp_up "${_framedsp_up}")
  set(FRAMEDSP_PC_PREFIX "\${pcfiledir}/${_framedsp_up}")
endif()
set(FRAMEDSP_PC_LIBS_PRIVATE "-lstdc++ -lm -pthread")
if(FRAMEDSP_HAVE_LIBRT)
  string(APPEND FRAMEDSP_PC_LIBS_PRIVATE " -lrt")
endif()
configure_file(cmake/framedsp.pc.in ${CMAKE_CURRENT_BINARY_DIR}/framedsp.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/framedsp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
