#!/bin/sh
# Builds a C and C++17 toolchain for MIPS32 little-endian on another libc than glibc, of Debian's
# packages alone. The compiler and the binutils are Debian's for mipsel-linux-gnu, behind wrappers
# that name other headers, start files and libraries; only libc and libstdc++ are new.
#
# uclibc-toolchain.sh and musl-toolchain.sh read this file. Each sets:
#   libc                   its name, which is also the last part of the triple
#   given                  a toolchain to use instead, or nothing
#   recipe                 its own file name
# defines install_libc, which fills $sysroot, and calls provide_toolchain.
#
# What is printed on standard output is one line: the toolchain's folder. It can be moved.
# shellcheck shell=sh
set -eu
# What the reader of this file has set.
: "${libc:?}" "${recipe:?}"

here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd -P)
# shellcheck source=machine/cache.sh
. "$here/cache.sh"

cross=mipsel-linux-gnu-
gcc=12
jobs=$(nproc)
started=$(date +%s)

step() { echo "$libc toolchain, $(($(date +%s) - started)) s: $*" >&2; }
fail() {
    echo "$libc toolchain: $*" >&2
    exit 1
}
# quietly COMMAND...: its output goes to the log, whose end is shown when it fails.
quietly() {
    "$@" >>"$log" 2>&1 && return 0
    tail -n 30 "$log" >&2
    fail "'$1' failed; all of its output is in $log"
}

# The wrappers. -idirafter and not -isystem, so that libstdc++'s headers come before those of libc:
# its <stdlib.h> and others include libc's by #include_next.
install_wrappers() {
    cat >"$new/lib/$libc.specs" <<SPECS
*cc1:
%{G*} %{EB:-meb} %{EL:-mel} %{EB:%{EL:%emay not use both -EB and -EL}} -nostdinc \
-idirafter include%s -idirafter %R/usr/include

*cc1plus:
-nostdinc++ -isystem %R/usr/include/c++/$gcc -isystem %R/usr/include/c++/$gcc/$triple \
-isystem %R/usr/include/c++/$gcc/backward

*link_libgcc:
-L%R/usr/lib -L%R/lib -L .%s

*libgcc:
-lgcc -lgcc_eh -lfind_object

*lib:
-lc

*startfile:
%{shared:;static|no-pie:%R/usr/lib/crt1.o;:%R/usr/lib/Scrt1.o} %R/usr/lib/crti.o \
%{static:crtbeginT.o%s;shared|!no-pie:crtbeginS.o%s;:crtbegin.o%s}

*endfile:
%{static:crtend.o%s;shared|!no-pie:crtendS.o%s;:crtend.o%s} %R/usr/lib/crtn.o

SPECS
    # Only glibc's loader knows unique symbols; others take such a symbol for missing.
    for tool in gcc g++; do
        cat >"$new/bin/$triple-$tool" <<WRAPPER
#!/bin/sh
top=\$(dirname "\$(dirname "\$(readlink -f "\$0")")")
exec $cross$tool-$gcc --sysroot="\$top/sysroot" -specs="\$top/lib/$libc.specs" -m$libc \\
    -fno-gnu-unique -fno-pie -no-pie "\$@"
WRAPPER
        chmod +x "$new/bin/$triple-$tool"
    done
    for tool in ar as ld nm objcopy objdump ranlib readelf size strip; do
        ln -s "/usr/bin/$cross$tool" "$new/bin/$triple-$tool"
    done
    PATH=$new/bin:$PATH
}

# The kernel's headers, which Debian keeps in one folder with those of glibc.
collect_kernel_headers() {
    headers=/usr/mipsel-linux-gnu/include
    mkdir "$kernel_headers"
    dpkg -L linux-libc-dev-mipsel-cross | sed -n "s,^$headers/\(.*\.h\)\$,\1,p" |
        tar -C "$headers" -cf - -T - | tar -C "$kernel_headers" -xf -
}

install_find_object() {
    "$triple-gcc" -O2 -fPIC -c "$here/find_object.c" -o "$work/find_object.o"
    "$triple-ar" rcs "$sysroot/usr/lib/libfind_object.a" "$work/find_object.o"
}

install_libstdcxx() {
    archive=$(echo /usr/src/gcc-$gcc/gcc-$gcc.*.tar.xz)
    top=$(basename "$archive" | sed 's/-dfsg.*//')
    (
        cd "$work"
        set -- libstdc++-v3 libgcc libiberty config include gcc/DATESTAMP gcc/BASE-VER \
            gcc/DEV-PHASE config.sub config.guess install-sh missing mkinstalldirs ltmain.sh \
            config-ml.in depcomp
        for part; do
            set -- "$@" "$top/$part"
            shift
        done
        tar -xf "$archive" "$@"
    )
    mkdir -p "$work/build/libgcc" "$work/build/libstdc++-v3"
    # A build of all of GCC would have left this there.
    cp "$work/$top/libgcc/gthr-posix.h" "$work/build/libgcc/gthr-default.h"
    cd "$work/build/libstdc++-v3"
    quietly "$work/$top/libstdc++-v3/configure" --build="$(sh "$work/$top/config.guess")" \
        --host="$triple" --target="$triple" --prefix=/usr --disable-multilib --disable-nls \
        --disable-libstdcxx-pch --enable-clocale=generic --with-gcc-major-version-only \
        --with-gxx-include-dir=/usr/include/c++/$gcc CFLAGS=-O2 CXXFLAGS=-O2
    quietly make -j"$jobs"
    quietly make DESTDIR="$sysroot" install
    cd "$here"
    rm -rf "$sysroot"/usr/lib/*.la "$sysroot"/usr/lib/*-gdb.py "${sysroot:?}/usr/share"
    "$triple-strip" -g "$sysroot"/usr/lib/lib*.a "$sysroot"/usr/lib/libstdc++.so.6
}

# Prints the toolchain's folder; builds it first when it is not there, not whole, or by an older
# recipe. It is built beside its place and moved there when it is whole.
provide_toolchain() {
    if [ -n "$given" ]; then
        set -- "$given"/bin/mipsel*-g++
        [ -x "$1" ] || fail "there is no bin/mipsel*-g++ in $given"
        (cd "$given" && pwd -P)
        return
    fi
    use_cache "$libc"
    out=$cache/$libc
    key=$(cat "$here/toolchain.sh" "$here/find_object.c" "$here/$recipe" | cksum)
    if [ "$(cat "$out/stamp" 2>/dev/null)" = "$key" ]; then
        echo "$out"
        return
    fi
    triple=mipsel-linux-$libc
    new=$cache/$libc.new
    work=$cache/$libc.work
    log=$cache/$libc.log
    sysroot=$new/sysroot
    kernel_headers=$work/kernel-headers
    rm -rf "$new" "$work"
    mkdir -p "$new/bin" "$new/lib" "$sysroot/usr/lib" "$sysroot/usr/include" "$work"
    : >"$log"
    step "1 of 3: headers and wrappers, into $out (log: $log)"
    install_wrappers
    collect_kernel_headers
    step "2 of 3: $libc (uClibc: 90 s on two cores)"
    install_libc
    install_find_object
    step "3 of 3: libstdc++ (60 s on two cores)"
    install_libstdcxx
    echo "$key" >"$new/stamp"
    rm -rf "$out" "$work"
    mv "$new" "$out"
    step "done, $(du -sh "$out" | cut -f1)"
    echo "$out"
}
