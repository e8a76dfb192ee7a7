# The terminal's own libc: 32-bit long and time_t.
set(libc uclibc)
include(${CMAKE_CURRENT_LIST_DIR}/mipsel-toolchain.cmake)
