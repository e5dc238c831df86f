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
if(TARGET ov_asn1_tests)
  target_link_libraries(ov_asn1_tests PRIVATE pugixml::pugixml)
endif()
ov_if_sources(ov_time support/time DEPS ov_base)
ov_if_sources(ov_xml support/xml DEPS ov_base pugixml::pugixml)
ov_if_sources(ov_json support/json DEPS ov_base nlohmann_json::nlohmann_json)
ov_if_sources(ov_crypto support/crypto DEPS ov_base ov_asn1 OpenSSL::Crypto)
ov_if_sources(ov_x509 support/x509 DEPS ov_base ov_asn1 ov_time ov_crypto ov_xml)
ov_if_sources(ov_net support/net DEPS ov_base ov_asn1 ov_json CURL::libcurl)
ov_if_sources(ov_pkcs11 support/pkcs11 DEPS ov_base ov_asn1 ov_crypto ${CMAKE_DL_LIBS})

add_executable(litscram tools/litscram/litscram.cpp)
target_link_libraries(litscram PRIVATE ov_base)

# The certificate component proper, with the PEM container and the store it
# drives (they call back into the certificate object, so they build together).
set(OV_CERT_DIRS cert cert/query cert/keys revocation support/pem support/store)
set(_cert_srcs)
set(_cert_tests)
foreach(d ${OV_CERT_DIRS})
  file(GLOB _s CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${d}/*.cpp)
  file(GLOB _t CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/${d}/*.cpp)
  list(APPEND _cert_srcs ${_s})
  list(APPEND _cert_tests ${_t})
endforeach()
add_library(ov_cert STATIC ${_cert_srcs})
target_include_directories(ov_cert PUBLIC ${CMAKE_SOURCE_DIR})
foreach(dep ov_base ov_asn1 ov_time ov_xml ov_json ov_crypto ov_x509 ov_file ov_pkcs11 ov_net)
  if(TARGET ${dep})
    target_link_libraries(ov_cert PUBLIC ${dep})
  endif()
endforeach()
if(OV_TESTS AND _cert_tests)
  add_executable(ov_cert_tests ${_cert_tests})
  target_include_directories(ov_cert_tests PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  target_link_libraries(ov_cert_tests PRIVATE ov_cert ov_testsupport GTest::gtest_main)
  target_compile_definitions(ov_cert_tests PRIVATE
    OV_TEST_DATA_DIR="${CMAKE_SOURCE_DIR}/tests/data" OV_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
  gtest_discover_tests(ov_cert_tests DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "OV_TEST_DATA_DIR=${CMAKE_SOURCE_DIR}/tests/data")
endif()

# The command-line tool.
file(GLOB _ovcert_srcs CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tools/ovcert/*.cpp)
add_executable(ovcert ${_ovcert_srcs})
target_link_libraries(ovcert PRIVATE ov_cert nlohmann_json::nlohmann_json pugixml::pugixml)
set_target_properties(ovcert PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
target_compile_definitions(ovcert PRIVATE OVCERT_VERSION="${PROJECT_VERSION}")

# The programmer's example of the README; built and run as a test.
add_executable(load_ask_export examples/load_ask_export.cpp)
target_link_libraries(load_ask_export PRIVATE ov_cert)
if(OV_TESTS)
  add_test(NAME example.load_ask_export
           COMMAND load_ask_export ${CMAKE_SOURCE_DIR}/tests/data/cert/chain.p7b)
  set_tests_properties(example.load_ask_export PROPERTIES
    PASS_REGULAR_EXPRESSION "CN: ec.example.test.*-----BEGIN CERTIFICATE-----")
  file(GLOB _tool_tests CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/tools/ovcert/*.cpp)
  if(_tool_tests)
    add_executable(ovcert_tests ${_tool_tests})
    target_include_directories(ovcert_tests PRIVATE ${CMAKE_SOURCE_DIR}/tests)
    target_link_libraries(ovcert_tests PRIVATE ov_testsupport nlohmann_json::nlohmann_json
                          GTest::gtest_main)
    target_compile_definitions(ovcert_tests PRIVATE OVCERT_BIN="$<TARGET_FILE:ovcert>"
      OV_TEST_DATA_DIR="${CMAKE_SOURCE_DIR}/tests/data")
    add_dependencies(ovcert_tests ovcert)
    gtest_discover_tests(ovcert_tests DISCOVERY_TIMEOUT 60)
  endif()
endif()
