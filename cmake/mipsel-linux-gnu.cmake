# MIPS32 little-endian as Debian cross-compiles it (package g++-mipsel-linux-gnu): the terminal's
# own ABI, with 32-bit long, pointers and time_t. Programs of the build run under qemu-user, so the
# suite and the demonstration run on any machine. docs/porting.md describes other toolchains.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mipsel)

set(triple mipsel-linux-gnu)
set(CMAKE_CXX_COMPILER ${triple}-g++)
set(CMAKE_FIND_ROOT_PATH /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()

# -L: where the emulated program finds the target's dynamic loader and libraries.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel -L /usr/${triple})
