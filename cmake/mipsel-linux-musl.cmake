# musl: 32-bit long, 64-bit time_t.
set(libc musl)
include(${CMAKE_CURRENT_LIST_DIR}/mipsel-toolchain.cmake)
