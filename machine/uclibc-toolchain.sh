#!/bin/sh
# uclibc-toolchain.sh: provides a toolchain for MIPS32 little-endian on uClibc-ng, the terminal's
# libc, and prints its folder: $MAVKIT_UCLIBC where that is set; otherwise the one in the cache,
# built there once.
set -eu
libc=uclibc
given=${MAVKIT_UCLIBC-}
recipe=uclibc-toolchain.sh
# shellcheck source=machine/toolchain.sh
. "$(dirname -- "$0")/toolchain.sh"

set_option() {
    sed -i "/^$1=/d; /^# $1 is not set\$/d" .config
    if [ "$2" = n ]; then echo "# $1 is not set"; else echo "$1=$2"; fi >>.config
}

install_libc() {
    tar -C "$work" -xf /usr/src/uClibc-ng-1.0.*.tar.xz
    cd "$work"/uClibc-ng-1.0.*/
    # Since Linux 5.1 msgctl() and its relatives have system calls of their own on MIPS. They refuse
    # the flag that uClibc adds for the old one, so no queue could be removed or looked at.
    sed -i 's/^#ifndef __ARCH_HAS_DEPRECATED_SYSCALLS__$/#if defined __NR_msgctl/' \
        libc/misc/sysvipc/ipc.h
    quietly make ARCH=mips defconfig
    # Without LDSO_CACHE_SUPPORT: in user-mode emulation the loader would read the host's cache.
    for option in ARCH_BIG_ENDIAN ARCH_WANTS_BIG_ENDIAN HAS_NO_THREADS HARDWIRED_ABSPATH \
        LDSO_CACHE_SUPPORT; do
        set_option $option n
    done
    for option in ARCH_LITTLE_ENDIAN ARCH_WANTS_LITTLE_ENDIAN UCLIBC_HAS_THREADS_NATIVE \
        LDSO_RUNPATH DO_C99_MATH DO_XSI_MATH UCLIBC_HAS_WCHAR UCLIBC_SUSV2_LEGACY \
        UCLIBC_SUSV3_LEGACY UCLIBC_SUSV3_LEGACY_MACROS UCLIBC_SUSV4_LEGACY \
        UCLIBC_SV4_DEPRECATED UCLIBC_HAS_OBSOLETE_BSD_SIGNAL UCLIBC_HAS_PROGRAM_INVOCATION_NAME \
        UCLIBC_HAS_IPV6 UCLIBC_HAS_RESOLVER_SUPPORT UCLIBC_HAS_LIBUTIL UCLIBC_HAS_GETPT \
        UCLIBC_HAS_FOPEN_LARGEFILE_MODE UCLIBC_HAS_FOPEN_EXCLUSIVE_MODE \
        UCLIBC_HAS_FOPEN_CLOSEEXEC_MODE UCLIBC_HAS_HEXADECIMAL_FLOATS UCLIBC_HAS_PRINTF_M_SPEC \
        UCLIBC_HAS_NFTW UCLIBC_HAS_FTW UCLIBC_HAS_GNU_GLOB UCLIBC_HAS_SYS_ERRLIST \
        UCLIBC_HAS_SYS_SIGLIST UCLIBC_HAS_GLIBC_CUSTOM_STREAMS; do
        set_option $option y
    done
    set_option KERNEL_HEADERS "\"$kernel_headers\""
    set_option RUNTIME_PREFIX '"/"'
    set_option DEVEL_PREFIX '"/usr/"'
    set_option UCLIBC_EXTRA_CFLAGS '"-muclibc"'
    # Every other option gets its default.
    yes '' 2>/dev/null | quietly make ARCH=mips oldconfig
    quietly make ARCH=mips CROSS_COMPILE=$cross -j"$jobs"
    quietly make ARCH=mips CROSS_COMPILE=$cross PREFIX="$sysroot" install
    cd "$here"
    cp -a "$kernel_headers/." "$sysroot/usr/include"
}

provide_toolchain
