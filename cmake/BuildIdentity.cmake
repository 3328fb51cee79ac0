# Defines what the source files that show a version need: the library secapp_identity, which provides build_number.h, and
# SECAPP_IDENTITY_DEFINITIONS. Each build counts the commits again. SOURCE_DATE_EPOCH, when set, replaces the compiler's
# date and time.

set(identity_directory "${PROJECT_BINARY_DIR}/identity")
add_custom_target(build_number
  COMMAND "${CMAKE_COMMAND}" "-DSOURCE_DIRECTORY=${PROJECT_SOURCE_DIR}" "-DHEADER=${identity_directory}/build_number.h"
    -P "${CMAKE_CURRENT_LIST_DIR}/WriteBuildNumber.cmake"
  BYPRODUCTS "${identity_directory}/build_number.h"
  COMMENT "Counting the commits" VERBATIM)
add_library(secapp_identity INTERFACE)
target_include_directories(secapp_identity INTERFACE "${identity_directory}")
add_dependencies(secapp_identity build_number)

set(SECAPP_IDENTITY_DEFINITIONS "SECAPP_VERSION=\"${PROJECT_VERSION}\"")
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  string(TIMESTAMP build_date "%b %d %Y" UTC)
  string(REGEX REPLACE " 0" "  " build_date "${build_date}")
  string(TIMESTAMP build_time "%H:%M:%S" UTC)
  list(APPEND SECAPP_IDENTITY_DEFINITIONS
       "SECAPP_BUILD_DATE=\"${build_date}\"" "SECAPP_BUILD_TIME=\"${build_time}\"")
endif()
