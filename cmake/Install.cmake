# A complete development installation. Nothing in it names its own place, so that
# it can be moved as a whole.
include(CMakePackageConfigHelpers)

set(FSCANNER_INSTALL_PLUGINS ${CMAKE_INSTALL_LIBDIR}/fscanner)
set(FSCANNER_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/fscanner)

# A plug-in is not loaded from a directory that others may write.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

install(TARGETS fscanner EXPORT fscannerTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime NAMELINK_COMPONENT development
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

get_property(plugins GLOBAL PROPERTY FSCANNER_PLUGINS)
install(TARGETS ${plugins}
  LIBRARY DESTINATION ${FSCANNER_INSTALL_PLUGINS} COMPONENT runtime)
install(FILES src/plugins/fscanner.conf
  DESTINATION ${FSCANNER_INSTALL_PLUGINS} COMPONENT runtime)

if(TARGET fscan)
  # It answers nothing without them, in the build tree either.
  add_dependencies(fscan ${plugins})
  file(RELATIVE_PATH to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(directories "$ORIGIN/../lib" "$ORIGIN/${to_libraries}")
  list(REMOVE_DUPLICATES directories)
  set_target_properties(fscan PROPERTIES INSTALL_RPATH "${directories}")
  install(TARGETS fscan RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
endif()

install(EXPORT fscannerTargets NAMESPACE fscanner::
  DESTINATION ${FSCANNER_INSTALL_CMAKE} COMPONENT development)
configure_package_config_file(cmake/fscannerConfig.cmake.in ${PROJECT_BINARY_DIR}/fscannerConfig.cmake
  INSTALL_DESTINATION ${FSCANNER_INSTALL_CMAKE} PATH_VARS FSCANNER_INSTALL_PLUGINS)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/fscannerConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/fscannerConfig.cmake ${PROJECT_BINARY_DIR}/fscannerConfigVersion.cmake
  DESTINATION ${FSCANNER_INSTALL_CMAKE} COMPONENT development)

set(pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH FSCANNER_PC_PREFIX ${CMAKE_INSTALL_PREFIX}/${pkgconfig} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" FSCANNER_PC_PREFIX "${FSCANNER_PC_PREFIX}")
configure_file(cmake/fscanner.pc.in ${PROJECT_BINARY_DIR}/fscanner.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/fscanner.pc DESTINATION ${pkgconfig} COMPONENT development)
