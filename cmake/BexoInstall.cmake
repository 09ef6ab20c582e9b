# Install rules, the CMake package (find_package(bexocommon) with targets
# bexo::platform and bexo::common) and the pkg-config files.
include(CMakePackageConfigHelpers)

set(BEXO_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/bexocommon)
set_target_properties(bexoplatform PROPERTIES EXPORT_NAME platform)
set_target_properties(bexocommon PROPERTIES EXPORT_NAME common)

install(TARGETS bexoplatform bexocommon EXPORT bexocommonTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/bexo)
install(TARGETS bexo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

file(GLOB platform_headers ${PROJECT_SOURCE_DIR}/platform/*.h)
list(FILTER platform_headers EXCLUDE REGEX "(cross_process_lock|ux_LOG_LogFiles)\\.h$")  # internal
install(FILES ${platform_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/bexo)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/bexo)

install(EXPORT bexocommonTargets NAMESPACE bexo:: DESTINATION ${BEXO_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/bexocommonConfig.cmake.in
  ${PROJECT_BINARY_DIR}/bexocommonConfig.cmake INSTALL_DESTINATION ${BEXO_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/bexocommonConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/bexocommonConfig.cmake
              ${PROJECT_BINARY_DIR}/bexocommonConfigVersion.cmake
        DESTINATION ${BEXO_INSTALL_CMAKEDIR})

# Relocatable: the prefix is found relative to the installed .pc file.
file(RELATIVE_PATH BEXO_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" BEXO_PC_TO_PREFIX "${BEXO_PC_TO_PREFIX}")
list(TRANSFORM BEXO_ABI_DEFINITIONS PREPEND -D OUTPUT_VARIABLE BEXO_PC_DEFINITIONS)
list(JOIN BEXO_PC_DEFINITIONS " " BEXO_PC_DEFINITIONS)
foreach(pc bexoplatform bexocommon)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
