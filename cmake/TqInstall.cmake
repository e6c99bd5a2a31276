# Headers, libraries, a CMake package (find_package(tqkit)) and a pkg-config file (pkg-config tqkit).
include(CMakePackageConfigHelpers)
# tq/gtk goes with the gtk component (gtk/CMakeLists.txt).
install(DIRECTORY include/tq DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} PATTERN gtk EXCLUDE)
install(EXPORT tqkitTargets NAMESPACE tqkit:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tqkit)
configure_package_config_file(cmake/tqkitConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/tqkitConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tqkit)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/tqkitConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tqkitConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/tqkitConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tqkit)

set(TQ_PC_LIBS "")
foreach(lib IN LISTS TQ_ALL_LIBRARIES)
  get_target_property(kind ${lib} TYPE)
  if(NOT kind STREQUAL "INTERFACE_LIBRARY")
    # Dependents first, so that static linking resolves.
    set(TQ_PC_LIBS "-l${lib} ${TQ_PC_LIBS}")
  endif()
endforeach()
# The .pc file finds the prefix relative to itself, so an installed tree can be moved.
file(RELATIVE_PATH TQ_PC_PREFIX_FROM_PCDIR "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" TQ_PC_PREFIX_FROM_PCDIR "${TQ_PC_PREFIX_FROM_PCDIR}")
configure_file(cmake/tqkit.pc.in ${CMAKE_CURRENT_BINARY_DIR}/tqkit.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tqkit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
