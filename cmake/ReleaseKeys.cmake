# Turns the two public release keys into constants of the program. A deployment gives the paths of
# two RSA-2048 public keys, PEM or DER. A build without them gets a development pair.

find_program(OPENSSL_PROGRAM openssl REQUIRED)

# Sets `result` to the path of a new development key. The private key is kept below the build
# directory: developers sign their releases with it.
function(vantrell_make_development_key number result)
  set(key ${PROJECT_BINARY_DIR}/development-keys/release-key-${number})
  execute_process(COMMAND ${PROJECT_SOURCE_DIR}/scripts/make-development-key ${key}
    COMMAND_ERROR_IS_FATAL ANY)
  set(${result} ${key}.pub PARENT_SCOPE)
endfunction()

# Sets `result` to the DER form of the key as hexadecimal digits. Refuses every other file than an
# RSA-2048 public key.
function(vantrell_read_key path result)
  execute_process(COMMAND test -f ${path} -a -r ${path} RESULT_VARIABLE unreadable)
  if(unreadable)
    message(FATAL_ERROR "The key file ${path} cannot be read. Check the path and its permissions.")
  endif()
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
  string(MD5 tag ${path})
  set(der ${PROJECT_BINARY_DIR}/generated/${tag}.der)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/generated)
  set(failed 1)
  foreach(form PEM DER)
    if(failed)
      execute_process(
        COMMAND ${OPENSSL_PROGRAM} rsa -pubin -inform ${form} -in ${path} -outform DER -out ${der}
        RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
    endif()
  endforeach()
  if(failed)
    message(FATAL_ERROR
      "${path} is not an RSA public key in PEM or DER form. Give the path of one.")
  endif()
  file(READ ${der} hex HEX)
  string(LENGTH "${hex}" digits)
  # The SubjectPublicKeyInfo of an RSA-2048 key with a three-byte exponent has 294 bytes. 65537 is
  # the exponent of release keys, 65539 that of development keys.
  if(NOT digits EQUAL 588 OR NOT hex MATCHES "020301000[13]$")
    message(FATAL_ERROR "${path} is not an RSA-2048 public key with the exponent 65537. "
      "Give the path of one.")
  endif()
  set(${result} ${hex} PARENT_SCOPE)
endfunction()

set(keyPath1 ${VANTRELL_RELEASE_KEY_1})
set(keyPath2 ${VANTRELL_RELEASE_KEY_2})
if(NOT keyPath1 AND NOT keyPath2)
  vantrell_make_development_key(1 keyPath1)
  vantrell_make_development_key(2 keyPath2)
elseif(NOT keyPath1 OR NOT keyPath2)
  message(FATAL_ERROR "Give both VANTRELL_RELEASE_KEY_1 and VANTRELL_RELEASE_KEY_2, or neither.")
endif()
vantrell_read_key(${keyPath1} key1)
vantrell_read_key(${keyPath2} key2)
if(key1 STREQUAL key2)
  message(FATAL_ERROR "${keyPath1} and ${keyPath2} are the same key. Give two different keys: the "
    "second one replaces the first when that must be retired.")
endif()

if(key1 MATCHES "0203010003$" OR key2 MATCHES "0203010003$")
  message(WARNING "This build trusts a DEVELOPMENT key (${keyPath1}, ${keyPath2}), and "
    "packaging/make-client-package refuses it. For a deployment give its file, "
    "VANTRELL_DEPLOYMENT.")
else()
  foreach(value UPDATE_HOST WITNESS_1 WITNESS_2 WITNESS_3)
    string(TOLOWER "${VANTRELL_${value}}" place)
    if(place MATCHES "\\.example\\.?(:[0-9]+)?(/|$)")
      message(FATAL_ERROR "VANTRELL_${value} is an example host (${VANTRELL_${value}}), but the "
        "release keys are real. Give the host of the deployment.")
    endif()
  endforeach()
endif()
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1, " VANTRELL_RELEASE_KEY_1_BYTES ${key1})
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1, " VANTRELL_RELEASE_KEY_2_BYTES ${key2})
