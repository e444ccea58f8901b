# Install rules: headers, libraries, the CMake package VelquistStoreKit (imported targets
# Velquist::<module>) and the pkg-config file velquist-storekit.pc. The localisation data is
# built into the libraries, so there is no data to install.

include(CMakePackageConfigHelpers)

get_property(velquist_modules GLOBAL PROPERTY VELQUIST_MODULES)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/VelquistStoreKit)

install(TARGETS ${velquist_modules} EXPORT VelquistStoreKitTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/velquist DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT VelquistStoreKitTargets NAMESPACE Velquist:: DESTINATION ${package_dir})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VelquistStoreKitConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VelquistStoreKitConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelquistStoreKitConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VelquistStoreKitConfig.cmake
  ${PROJECT_BINARY_DIR}/VelquistStoreKitConfigVersion.cmake DESTINATION ${package_dir})

# pkg-config: one package for the whole library, the C interface first and each library
# before the ones it uses, so that static archives link in one pass. The prefix is found
# from where the file lies, so an installed tree can be moved.
set(pc_libs "")
foreach(module capi sandbox storekit adapty platform logging coreui usersettings support foundation)
  if(TARGET velquist_${module})
    string(APPEND pc_libs " -lvelquist_${module}")
  endif()
endforeach()
if(BUILD_SHARED_LIBS)
  # Each shared library names what it needs itself.
  set(pc_requires "Requires.private: icu-uc icu-i18n")
else()
  # A static library leaves its own dependencies to the host's link: ICU and, for a host
  # written in C, the C++ runtime.
  set(pc_requires "Requires: icu-uc icu-i18n")
  string(APPEND pc_libs " -lstdc++ -lm -pthread")
endif()
file(RELATIVE_PATH pc_prefix_from_libdir
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/velquist-storekit.pc.in
  ${PROJECT_BINARY_DIR}/velquist-storekit.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velquist-storekit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
