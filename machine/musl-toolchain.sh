#!/bin/sh
# musl-toolchain.sh: provides a toolchain for MIPS32 little-endian on musl (32-bit long, 64-bit
# time_t) and prints its folder: $MAVKIT_MUSL where that is set; otherwise the one in the cache,
# built there once. musl itself comes from Debian's packages for mipsel.
set -eu
libc=musl
given=${MAVKIT_MUSL-}
recipe=musl-toolchain.sh
# shellcheck source=machine/toolchain.sh
. "$(dirname -- "$0")/toolchain.sh"

install_libc() {
    mkdir "$work/musl"
    packages=$(sh "$here/packages.sh" musl musl-dev)
    cp -a "$packages/musl/." "$packages/musl-dev/." "$work/musl"
    cp -a "$work/musl/usr/include/mipsel-linux-musl/." "$sysroot/usr/include/"
    # musl has some of the kernel's folders of its own, scsi for one; the kernel's files go beside.
    cp -a "$kernel_headers/." "$sysroot/usr/include/"
    cp -L "$work"/musl/usr/lib/mipsel-linux-musl/*.[ao] "$sysroot/usr/lib/"
    cp -L "$work/musl/lib/mipsel-linux-musl/libc.so" "$sysroot/usr/lib/libc.so"
    mkdir -p "$sysroot/lib"
    ln -s ../usr/lib/libc.so "$sysroot/lib/ld-musl-mipsel.so.1"
}

provide_toolchain
