# Toolchain file for SECAPP_ARCHITECTURE, an architecture by Debian's name, with Debian's cross compiler. The programs
# are static, so that they run without that architecture's libraries: for i386 directly if the kernel runs 32-bit programs,
# the others in qemu's user emulation.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SECAPP_ARCHITECTURE)

set(i386 i686-linux-gnu qemu-i386)
set(armhf arm-linux-gnueabihf qemu-arm)
set(arm64 aarch64-linux-gnu qemu-aarch64)
set(riscv64 riscv64-linux-gnu qemu-riscv64)
set(s390x s390x-linux-gnu qemu-s390x)
list(POP_FRONT ${SECAPP_ARCHITECTURE} triplet emulator)

set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${triplet}")
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
# The linker warns of static programs that look up users, although only that needs the libraries.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -Wl,--no-warnings")
if(SECAPP_ARCHITECTURE STREQUAL armhf)
  # g++ reports every use of a calling convention that its version 7 changed.
  set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
endif()
set(CMAKE_FIND_ROOT_PATH /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(native_status 1)
if(SECAPP_ARCHITECTURE STREQUAL i386 AND CMAKE_HOST_SYSTEM_PROCESSOR MATCHES "^(x86_64|i.86)$")
  # Not every kernel for x86_64 runs 32-bit programs.
  execute_process(COMMAND /usr/${triplet}/lib/ld-linux.so.2 --version
    RESULT_VARIABLE native_status OUTPUT_QUIET ERROR_QUIET)
endif()
if(NOT native_status EQUAL 0)
  set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/${emulator})
endif()
