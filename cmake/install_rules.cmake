# What `cmake --install` puts where. Three components, which are the three packages too:
#   runtime       the shared library
#   development   headers, the link for the linker, CMake package, pkg-config file
#   tool          the zel command with its manual pages
include(CMakePackageConfigHelpers)

set(package_name ${PROJECT_NAME})
set(cmake_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${package_name})

install(TARGETS zel EXPORT ${package_name}Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime NAMELINK_COMPONENT development)

foreach(header ${ZEL_PUBLIC_HEADERS})
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${PROJECT_SOURCE_DIR}/${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} COMPONENT development)
endforeach()

# Zel::Dependencies_2012 of find_package(ZelDependencies_2012). Paths in it are relative to the file, so
# that an installed copy may be moved.
install(EXPORT ${package_name}Targets NAMESPACE Zel::
  DESTINATION ${cmake_package_dir} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/${package_name}Config.cmake.in
  ${PROJECT_BINARY_DIR}/${package_name}Config.cmake
  INSTALL_DESTINATION ${cmake_package_dir}
  NO_SET_AND_CHECK_MACRO)
# Before 1.0 a minor version may break callers.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/${package_name}ConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/${package_name}Config.cmake
  ${PROJECT_BINARY_DIR}/${package_name}ConfigVersion.cmake
  DESTINATION ${cmake_package_dir} COMPONENT development)

# The pkg-config file finds its prefix from where it lies; in /usr it names it, so that pkg-config
# recognises the system's own folders and leaves them out of the compiler's options.
cmake_path(SET pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(pkgconfig_prefix /usr)
else()
  file(RELATIVE_PATH pkgconfig_prefix /prefix/${pkgconfig_dir} /prefix)
  string(REGEX REPLACE "/$" "" pkgconfig_prefix "\${pcfiledir}/${pkgconfig_prefix}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/packaging/${package_name}.pc.in
  ${PROJECT_BINARY_DIR}/${package_name}.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/${package_name}.pc
  DESTINATION ${pkgconfig_dir} COMPONENT development)

if(ZEL_BUILD_TOOL)
  # In a prefix of its own the tool finds the library beside it; in /usr the loader knows the place.
  if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    file(RELATIVE_PATH bindir_to_libdir /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
    set_target_properties(zel_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${bindir_to_libdir}")
  endif()
  install(TARGETS zel_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
endif()
