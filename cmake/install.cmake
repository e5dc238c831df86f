# The installable library, its headers, the tool, and the two ways a user's
# project finds them (a CMake package and a pkg-config file).
#
# The folders keep building as their own static libraries for the tests; the
# library users link is one archive (or, with -DBUILD_SHARED_LIBS=ON, one
# shared library with a version and soname) made from the objects of all of
# them, so users link one thing: OrvaneCert::cert, liborvane-cert.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

add_library(orvane_cert)
foreach(part ov_base ov_file ov_asn1 ov_time ov_xml ov_json ov_crypto ov_x509 ov_net ov_pkcs11
             ov_cert)
  if(TARGET ${part})
    target_sources(orvane_cert PRIVATE $<TARGET_OBJECTS:${part}>)
  endif()
endforeach()
add_library(OrvaneCert::cert ALIAS orvane_cert)
set_target_properties(orvane_cert PROPERTIES
  OUTPUT_NAME orvane-cert
  EXPORT_NAME cert
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})
# Headers install under include/orvane-cert/ with their folders, and that
# directory is the include root, so users write what the project writes:
# #include "cert/CertCore.h".
target_include_directories(orvane_cert PUBLIC
  $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/orvane-cert>)
# Public because the headers include OpenSSL, libcurl and p11-kit headers.
target_link_libraries(orvane_cert PUBLIC OpenSSL::Crypto CURL::libcurl pugixml::pugixml
                      Threads::Threads ${CMAKE_DL_LIBS})

install(TARGETS orvane_cert EXPORT OrvaneCertTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS ovcert RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
foreach(dir cert revocation support)
  install(DIRECTORY ${CMAKE_SOURCE_DIR}/${dir}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvane-cert FILES_MATCHING PATTERN "*.h")
endforeach()

set(_pkgdir ${CMAKE_INSTALL_LIBDIR}/cmake/OrvaneCert)
install(EXPORT OrvaneCertTargets NAMESPACE OrvaneCert:: DESTINATION ${_pkgdir})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/OrvaneCertConfig.cmake.in
  ${CMAKE_BINARY_DIR}/OrvaneCertConfig.cmake INSTALL_DESTINATION ${_pkgdir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/OrvaneCertConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/OrvaneCertConfig.cmake
  ${CMAKE_BINARY_DIR}/OrvaneCertConfigVersion.cmake DESTINATION ${_pkgdir})

# pkg-config: the prefix is found from the .pc file's own place, so
# `cmake --install --prefix DIR` to any DIR gives a working file. A static
# library needs its dependencies on every link; a shared one carries them.
file(RELATIVE_PATH OV_PC_PREFIX_FROM_PCDIR "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" OV_PC_PREFIX_FROM_PCDIR "${OV_PC_PREFIX_FROM_PCDIR}")
if(BUILD_SHARED_LIBS)
  set(OV_PC_REQUIRES "Requires.private")
  set(OV_PC_LIBS "")
  set(OV_PC_LIBS_PRIVATE "-pthread -l${CMAKE_DL_LIBS}")
else()
  set(OV_PC_REQUIRES "Requires")
  set(OV_PC_LIBS "-pthread -l${CMAKE_DL_LIBS}")
  set(OV_PC_LIBS_PRIVATE "")
endif()
configure_file(${CMAKE_SOURCE_DIR}/cmake/orvane-cert.pc.in ${CMAKE_BINARY_DIR}/orvane-cert.pc
  @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/orvane-cert.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
