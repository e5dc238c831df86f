# The component's folders and what each builds on. A folder becomes a target
# once it has sources, so work can land one folder at a time.
macro(ov_if_sources target dir)
  file(GLOB _probe CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*.cpp)
  if(_probe)
    ov_module(${target} ${dir} ${ARGN})
  endif()
endmacro()

ov_module(ov_base support/base DEPS Threads::Threads)
ov_if_sources(ov_file support/file DEPS ov_base)
ov_if_sources(ov_asn1 support/asn1 DEPS ov_base)
ov_if_sources(ov_time support/time DEPS ov_base)
ov_if_sources(ov_xml support/xml DEPS ov_base pugixml::pugixml)
ov_if_sources(ov_json support/json DEPS ov_base nlohmann_json::nlohmann_json)
ov_if_sources(ov_crypto support/crypto DEPS ov_base ov_asn1 OpenSSL::Crypto)
ov_if_sources(ov_x509 support/x509 DEPS ov_base ov_asn1 ov_time ov_crypto ov_xml)
ov_if_sources(ov_net support/net DEPS ov_base ov_asn1 ov_json CURL::libcurl)
ov_if_sources(ov_pkcs11 support/pkcs11 DEPS ov_base ov_asn1 ov_crypto ${CMAKE_DL_LIBS})

add_executable(litscram tools/litscram/litscram.cpp)
target_link_libraries(litscram PRIVATE ov_base)
