# A script for cmake -P: writes HEADER, which defines SECAPP_BUILD_NUMBER, the number of commits in SOURCE_DIRECTORY. In a
# source archive it is in the file .build-number; without that file and without git it is 0. A header with the same number
# is not written again.
set(number 0)
find_package(Git QUIET)
if(Git_FOUND AND EXISTS "${SOURCE_DIRECTORY}/.git")
  execute_process(
    COMMAND "${GIT_EXECUTABLE}" rev-list --count HEAD
    WORKING_DIRECTORY "${SOURCE_DIRECTORY}"
    OUTPUT_VARIABLE commits OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(commits MATCHES "^[0-9]+$")
    set(number ${commits})
  endif()
elseif(EXISTS "${SOURCE_DIRECTORY}/.build-number")
  file(STRINGS "${SOURCE_DIRECTORY}/.build-number" number LIMIT_COUNT 1 REGEX "^[0-9]+$")
endif()
file(CONFIGURE OUTPUT "${HEADER}" CONTENT "#define SECAPP_BUILD_NUMBER \"${number}\"\n")
