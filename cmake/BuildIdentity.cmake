# Sets SECAPP_BUILD_NUMBER (the number of commits, 0 without git) and SECAPP_IDENTITY_DEFINITIONS, the definitions of
# the source files that show a version. SOURCE_DATE_EPOCH, when set, replaces the compiler's date and time.

set(SECAPP_BUILD_NUMBER 0)
find_package(Git QUIET)
if(Git_FOUND AND EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/.git")
  execute_process(
    COMMAND "${GIT_EXECUTABLE}" rev-list --count HEAD
    WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}"
    OUTPUT_VARIABLE commits OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(commits MATCHES "^[0-9]+$")
    set(SECAPP_BUILD_NUMBER ${commits})
  endif()
endif()

set(SECAPP_IDENTITY_DEFINITIONS
    "SECAPP_VERSION=\"${PROJECT_VERSION}\"" "SECAPP_BUILD_NUMBER=\"${SECAPP_BUILD_NUMBER}\"")
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  string(TIMESTAMP build_date "%b %d %Y" UTC)
  string(REGEX REPLACE " 0" "  " build_date "${build_date}")
  string(TIMESTAMP build_time "%H:%M:%S" UTC)
  list(APPEND SECAPP_IDENTITY_DEFINITIONS
       "SECAPP_BUILD_DATE=\"${build_date}\"" "SECAPP_BUILD_TIME=\"${build_time}\"")
endif()
