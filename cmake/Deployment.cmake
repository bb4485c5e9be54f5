# Reads the file of a deployment: lines NAME=VALUE, each of which sets VANTRELL_NAME. The file must
# give every value, so that no example host and no development key gets into the build.

if(NOT EXISTS ${VANTRELL_DEPLOYMENT} OR IS_DIRECTORY ${VANTRELL_DEPLOYMENT})
  message(FATAL_ERROR "The deployment file ${VANTRELL_DEPLOYMENT} does not exist. "
    "Give the path of one with -DVANTRELL_DEPLOYMENT.")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VANTRELL_DEPLOYMENT})
set(names UPDATE_HOST WITNESS_1 WITNESS_2 WITNESS_3 RELEASE_KEY_1 RELEASE_KEY_2 DOWNLOADS)
file(STRINGS ${VANTRELL_DEPLOYMENT} lines REGEX "^[^#]")
foreach(line IN LISTS lines)
  if(NOT line MATCHES "^([A-Z0-9_]+)=([A-Za-z0-9.:/@_~%+-]+)$" OR NOT CMAKE_MATCH_1 IN_LIST names)
    message(FATAL_ERROR "${VANTRELL_DEPLOYMENT} has the line \"${line}\", which does not give a "
      "value of a deployment. See packaging/deployment.conf.sample.")
  endif()
  set(VANTRELL_${CMAKE_MATCH_1} ${CMAKE_MATCH_2})
  list(APPEND given ${CMAKE_MATCH_1})
endforeach()
foreach(name IN LISTS names)
  if(NOT name IN_LIST given)
    message(FATAL_ERROR "${VANTRELL_DEPLOYMENT} does not give ${name}. "
      "See packaging/deployment.conf.sample.")
  endif()
endforeach()
cmake_path(GET VANTRELL_DEPLOYMENT PARENT_PATH folder)
foreach(key 1 2)
  cmake_path(ABSOLUTE_PATH VANTRELL_RELEASE_KEY_${key} BASE_DIRECTORY ${folder})
endforeach()
