include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Folders like models/ would get in others' way in /usr/include itself.
set(KORIVA_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/koriva-sdk-${PROJECT_VERSION_MAJOR})
set(packages_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KorivaSDK)

install(
  TARGETS KorivaSDK
  EXPORT KorivaSDKTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE COMPONENT dev
  FILE_SET HEADERS
    DESTINATION ${KORIVA_INSTALL_INCLUDEDIR}
    COMPONENT dev)

install(
  TARGETS KorivaSDKTesting
  EXPORT KorivaSDKTestingTargets
  ARCHIVE COMPONENT dev
  FILE_SET HEADERS
    DESTINATION ${KORIVA_INSTALL_INCLUDEDIR}
    COMPONENT dev)

foreach(export IN ITEMS KorivaSDKTargets KorivaSDKTestingTargets)
  install(
    EXPORT ${export}
    NAMESPACE KorivaSDK::
    DESTINATION ${packages_dir}
    COMPONENT dev)
endforeach()
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/KorivaSDKConfig.cmake.in ${PROJECT_BINARY_DIR}/KorivaSDKConfig.cmake
  INSTALL_DESTINATION ${packages_dir})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/KorivaSDKConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/KorivaSDKConfig.cmake
        ${PROJECT_BINARY_DIR}/KorivaSDKConfigVersion.cmake
  DESTINATION ${packages_dir}
  COMPONENT dev)

set(KORIVA_PC_LIBS -lboost_json)
set(KORIVA_PC_REQUIRES "")
if(NOT BUILD_SHARED_LIBS)
  # As plain libraries, so that pkg-config finds them with and without --static.
  string(APPEND KORIVA_PC_LIBS " -lboost_url -pthread")
  set(KORIVA_PC_REQUIRES "openssl >= 3")
endif()
string(REGEX REPLACE "[^/]+" ".." KORIVA_PC_PREFIX ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
foreach(package IN ITEMS koriva-sdk koriva-sdk-testing)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${package}.pc.in ${package}.pc @ONLY)
  install(
    FILES ${PROJECT_BINARY_DIR}/${package}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT dev)
endforeach()

# Debian packages of the shared library; `cmake --workflow --preset package` makes them. There is no
# archive of it in them: it would make everybody who builds against them install OpenSSL's headers.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The KorivaSDK developers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)

set(runtime_package libkorivasdk${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
if(KORIVA_PACK_RELOCATIONS) # of which dpkg-shlibdeps learns nothing, as no symbol stands for it
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.36)")
endif()
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkorivasdk-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "${runtime_package} (= ${PROJECT_VERSION}), libboost-json${Boost_VERSION_MAJOR}.${Boost_VERSION_MINOR}-dev")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}")
set(CPACK_COMPONENT_DEV_DESCRIPTION "${PROJECT_DESCRIPTION} (headers and build files)")
foreach(component IN ITEMS RUNTIME DEV)
  string(TOLOWER ${component} lower)
  install(
    FILES ${PROJECT_SOURCE_DIR}/LICENSE
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME}
    RENAME copyright
    COMPONENT ${lower})
endforeach()
include(CPack)
