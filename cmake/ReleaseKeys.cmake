# Turns the two public release keys into constants of the program. A deployment gives the paths of
# two RSA-2048 public keys, PEM or DER. A build without them gets a development pair.

set(VANTRELL_RELEASE_KEY_1 "" CACHE FILEPATH "first public release key, RSA-2048, PEM or DER")
set(VANTRELL_RELEASE_KEY_2 "" CACHE FILEPATH "second public release key, RSA-2048, PEM or DER")
find_program(OPENSSL_PROGRAM openssl REQUIRED)

set(VANTRELL_DEVELOPMENT_KEYS OFF)
if(NOT VANTRELL_RELEASE_KEY_1 AND NOT VANTRELL_RELEASE_KEY_2)
  set(VANTRELL_DEVELOPMENT_KEYS ON)
elseif(NOT VANTRELL_RELEASE_KEY_1 OR NOT VANTRELL_RELEASE_KEY_2)
  message(FATAL_ERROR "Give both VANTRELL_RELEASE_KEY_1 and VANTRELL_RELEASE_KEY_2, or neither.")
endif()

# The private key is kept below the build directory: developers sign their releases with it.
function(vantrell_make_development_key number result)
  set(folder ${PROJECT_BINARY_DIR}/development-keys)
  set(private ${folder}/release-key-${number}.pem)
  set(public ${folder}/release-key-${number}.pub)
  if(NOT EXISTS ${public})
    file(MAKE_DIRECTORY ${folder})
    execute_process(COMMAND ${OPENSSL_PROGRAM} genrsa -out ${private} 2048
      ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${OPENSSL_PROGRAM} rsa -in ${private} -pubout -out ${public}
      ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endif()
  set(${result} ${public} PARENT_SCOPE)
endfunction()

# Sets `result` to the key as a list of bytes for a C++ array. Refuses every other file than an
# RSA-2048 public key.
function(vantrell_key_bytes path result)
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${path})
  get_filename_component(name ${path} NAME_WE)
  string(MD5 tag ${path})
  set(der ${PROJECT_BINARY_DIR}/generated/${name}-${tag}.der)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/generated)
  set(converted 1)
  foreach(form PEM DER)
    if(NOT converted EQUAL 0)
      execute_process(
        COMMAND ${OPENSSL_PROGRAM} rsa -pubin -inform ${form} -in ${path} -outform DER -out ${der}
        RESULT_VARIABLE converted OUTPUT_QUIET ERROR_QUIET)
    endif()
  endforeach()
  if(NOT converted EQUAL 0)
    message(FATAL_ERROR
      "${path} is not an RSA public key in PEM or DER form. Give the path of one.")
  endif()
  file(READ ${der} hex HEX)
  string(LENGTH "${hex}" digits)
  # The SubjectPublicKeyInfo of an RSA-2048 key with a three-byte exponent has 294 bytes.
  if(NOT digits EQUAL 588)
    message(FATAL_ERROR "${path} is not an RSA-2048 public key. Give the path of one.")
  endif()
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1, " bytes "${hex}")
  set(${result} "${bytes}" PARENT_SCOPE)
endfunction()

set(keyPath1 ${VANTRELL_RELEASE_KEY_1})
set(keyPath2 ${VANTRELL_RELEASE_KEY_2})
set(developmentMarker ${PROJECT_BINARY_DIR}/DEVELOPMENT-KEYS)
if(VANTRELL_DEVELOPMENT_KEYS)
  vantrell_make_development_key(1 keyPath1)
  vantrell_make_development_key(2 keyPath2)
  file(WRITE ${developmentMarker}
    "This service trusts the development keys of its build directory.\n"
    "Do not package it: configure with VANTRELL_RELEASE_KEY_1 and _2.\n")
  message(WARNING "No release keys given: this build trusts a DEVELOPMENT pair in "
    "${PROJECT_BINARY_DIR}/development-keys, and packaging/make-client-package refuses it. "
    "For a deployment give VANTRELL_RELEASE_KEY_1 and VANTRELL_RELEASE_KEY_2.")
endif()
vantrell_key_bytes(${keyPath1} VANTRELL_RELEASE_KEY_1_BYTES)
vantrell_key_bytes(${keyPath2} VANTRELL_RELEASE_KEY_2_BYTES)
