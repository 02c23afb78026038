# Reads the signing certificate and the two 64-byte keys named by the build options into the variables
# that cmake/PasswayConfig.h.in puts into the generated header; names the extension key (extension/ uses it).

set(PASSWAY_SIGNING_CERT "${PROJECT_SOURCE_DIR}/tests/data/test-signing-cert.pem" CACHE FILEPATH
    "PEM certificate whose RSA key verifies client packages (the default is TEST-ONLY)")
set(PASSWAY_PRESHARED_KEY "${PROJECT_SOURCE_DIR}/tests/data/test-preshared.key" CACHE FILEPATH
    "File of 64 raw bytes: the key of the signature class's HMAC (the default is TEST-ONLY)")
set(PASSWAY_PRELOGON_KEY "${PROJECT_SOURCE_DIR}/tests/data/test-prelogon.key" CACHE FILEPATH
    "File of 64 raw bytes: the key that signs client data (the default is TEST-ONLY)")

set(PASSWAY_EXTENSION_KEY "${PROJECT_SOURCE_DIR}/tests/data/test-extension-key.pem" CACHE FILEPATH
    "PEM RSA private key that signs the packed Chromium extension and fixes its ID (the default is TEST-ONLY)")

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             "${PASSWAY_SIGNING_CERT}" "${PASSWAY_PRESHARED_KEY}" "${PASSWAY_PRELOGON_KEY}")

file(READ "${PASSWAY_SIGNING_CERT}" cert_text)
string(REPLACE "\r" "" cert_text "${cert_text}")
if(NOT cert_text MATCHES "-----BEGIN CERTIFICATE-----" OR NOT cert_text MATCHES "-----END CERTIFICATE-----")
  message(FATAL_ERROR "PASSWAY_SIGNING_CERT (${PASSWAY_SIGNING_CERT}) holds no PEM certificate")
endif()
string(REPLACE "\n" "\\n" PASSWAY_SIGNING_CERT_LITERAL "${cert_text}")
set(PASSWAY_SIGNING_CERT_LITERAL "\"${PASSWAY_SIGNING_CERT_LITERAL}\"")

# passway_key_bytes(FILE OUT): the file's 64 bytes as "0x.., 0x.., ..."
function(passway_key_bytes file out)
  file(READ "${file}" hex HEX)
  string(LENGTH "${hex}" length)
  if(NOT length EQUAL 128)
    math(EXPR bytes "${length} / 2")
    message(FATAL_ERROR "${file} holds ${bytes} bytes; a key must be exactly 64")
  endif()
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1, " list "${hex}")
  string(REGEX REPLACE ", $" "" list "${list}")
  set(${out} "${list}" PARENT_SCOPE)
endfunction()

passway_key_bytes("${PASSWAY_PRESHARED_KEY}" PASSWAY_PRESHARED_KEY_BYTES)
passway_key_bytes("${PASSWAY_PRELOGON_KEY}" PASSWAY_PRELOGON_KEY_BYTES)

# PASSWAY_USES_TEST_KEYS: whether any of the four is the published test material of tests/data/ (compared by
# content, wherever the file lies). The Debian package refuses such a build unless it asks for a test package.
set(PASSWAY_USES_TEST_KEYS OFF)
foreach(pair "PASSWAY_SIGNING_CERT;test-signing-cert.pem" "PASSWAY_PRESHARED_KEY;test-preshared.key"
             "PASSWAY_PRELOGON_KEY;test-prelogon.key" "PASSWAY_EXTENSION_KEY;test-extension-key.pem")
  list(GET pair 0 option)
  list(GET pair 1 test_file)
  file(SHA256 "${${option}}" given)
  file(SHA256 "${PROJECT_SOURCE_DIR}/tests/data/${test_file}" published)
  if(given STREQUAL published)
    set(PASSWAY_USES_TEST_KEYS ON)
  endif()
endforeach()
