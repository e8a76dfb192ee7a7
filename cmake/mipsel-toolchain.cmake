# MIPS32 little-endian by a toolchain with a sysroot of its own. The file that includes this one
# sets `libc`. The toolchain is the folder in the environment's MAVKIT_UCLIBC or MAVKIT_MUSL, which
# any vendor or Buildroot may have made; without it the one that machine/<libc>-toolchain.sh builds.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)

string(TOUPPER ${libc} variable)
if(DEFINED ENV{MAVKIT_${variable}})
  set(folder $ENV{MAVKIT_${variable}})
elseif(DEFINED ENV{MAVKIT_CACHE})
  set(folder $ENV{MAVKIT_CACHE}/${libc})
else()
  set(folder ${CMAKE_CURRENT_LIST_DIR}/../build/toolchains/${libc})
endif()

# CMake keeps the compiler that a build folder was made with, and silently ignores another.
get_filename_component(folder ${folder} REALPATH)
if(DEFINED CACHE{MAVKIT_TOOLCHAIN} AND NOT "$CACHE{MAVKIT_TOOLCHAIN}" STREQUAL folder)
  message(FATAL_ERROR "${CMAKE_BINARY_DIR} was built with $CACHE{MAVKIT_TOOLCHAIN}. "
                      "Remove it to build with ${folder}.")
endif()
set(MAVKIT_TOOLCHAIN ${folder} CACHE INTERNAL "")

file(GLOB compilers ${folder}/bin/mipsel*-g++)
if(NOT compilers)
  message(FATAL_ERROR "No compiler for ${libc}: there is no ${folder}/bin/mipsel*-g++. "
                      "machine/${libc}-toolchain.sh builds one.")
endif()
list(GET compilers 0 CMAKE_CXX_COMPILER)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-sysroot
                OUTPUT_VARIABLE sysroot OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_FIND_ROOT_PATH ${sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()

# -L: where the emulated program finds the target's dynamic loader and libraries.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel -L ${sysroot})
