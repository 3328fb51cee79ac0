# Defines the interface library secapp_options that every target of the project links: warnings, hardening, sanitizers.

add_library(secapp_options INTERFACE)
target_compile_options(secapp_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
# Files of any size and dates after 2038, even on 32-bit hosts.
target_compile_definitions(secapp_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
if(SECAPP_WERROR)
  target_compile_options(secapp_options INTERFACE -Werror)
endif()

if(SECAPP_SANITIZE)
  target_compile_options(secapp_options INTERFACE
    -fsanitize=${SECAPP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(secapp_options INTERFACE -fsanitize=${SECAPP_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # With sanitizers g++ takes parts of the standard library for uninitialized.
    target_compile_options(secapp_options INTERFACE -Wno-maybe-uninitialized)
  endif()
else()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  target_compile_options(secapp_options INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2;-fstack-protector-strong;-fPIE>)
  target_link_options(secapp_options INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo>:-pie;-Wl,-z,relro,-z,now>)
endif()
