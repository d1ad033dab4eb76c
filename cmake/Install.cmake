# cmake --install: the public headers, the libraries, the CMake package and the pkg-config file.
# Nothing internal: the layers' private headers stay in the source tree.
include(CMakePackageConfigHelpers)

set(HALVORA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Halvora)
set(HALVORA_INSTALL_QMLDIR ${CMAKE_INSTALL_LIBDIR}/qml)

foreach(dir IN LISTS HALVORA_PUBLIC_INCLUDE_DIRS)
  install(DIRECTORY ${dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Halvora)
endforeach()
install(TARGETS halvora EXPORT HalvoraTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Halvora)
install(EXPORT HalvoraTargets NAMESPACE Halvora:: DESTINATION ${HALVORA_CMAKE_DIR} COMPONENT Halvora)

if(TARGET HalvoraQuick)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/qt/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Quick)
  # A static QML module comes with object libraries of its own (the embedded qmldir and type
  # registrations); they travel with it.
  get_target_property(_quick_links HalvoraQuick INTERFACE_LINK_LIBRARIES)
  set(_quick_objects)
  foreach(_lib IN LISTS _quick_links)
    string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" _lib "${_lib}")
    if(TARGET ${_lib} AND _lib MATCHES "^HalvoraQuick_")
      list(APPEND _quick_objects ${_lib})
    endif()
  endforeach()
  install(TARGETS HalvoraQuick ${_quick_objects} EXPORT HalvoraQuickTargets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          OBJECTS DESTINATION ${CMAKE_INSTALL_LIBDIR}/halvora-objects
          COMPONENT Quick)
  install(EXPORT HalvoraQuickTargets NAMESPACE Halvora:: DESTINATION ${HALVORA_CMAKE_DIR} COMPONENT Quick)
  # For applications' QML tooling: the module's qmldir and type description.
  install(DIRECTORY ${HALVORA_QML_IMPORT_PATH}/Halvora DESTINATION ${HALVORA_INSTALL_QMLDIR} COMPONENT Quick)
endif()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/HalvoraConfig.cmake.in
  ${PROJECT_BINARY_DIR}/HalvoraConfig.cmake
  INSTALL_DESTINATION ${HALVORA_CMAKE_DIR}
  PATH_VARS HALVORA_INSTALL_QMLDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/HalvoraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/HalvoraConfig.cmake ${PROJECT_BINARY_DIR}/HalvoraConfigVersion.cmake
        DESTINATION ${HALVORA_CMAKE_DIR} COMPONENT Halvora)

configure_file(${PROJECT_SOURCE_DIR}/cmake/halvora.pc.in ${PROJECT_BINARY_DIR}/halvora.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/halvora.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Halvora)
