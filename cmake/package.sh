#!/bin/sh
# package.sh [host|target]: makes the Debian packages and the tarball in build/packages, installs the
# packages into a scratch root and builds and runs a program against what came of it.
#
# CMake says what goes into a package; it is packed here once more, in sorted order and with the time
# of the last commit on every file, so that the same sources always give the same bytes.
set -eu
kind=${1:-host}
root=$(pwd -P)
out=$root/build/packages
build=$root/build/package-$kind
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH

case $kind in
host)
    cxx=g++
    architecture=$(dpkg --print-architecture)
    set -- -DCMAKE_BUILD_TYPE=Release
    ;;
target)
    cxx=mipsel-linux-gnu-g++
    architecture=mipsel
    set -- -DCMAKE_BUILD_TYPE=MinSizeRel --toolchain "$root/cmake/mipsel-linux-gnu.cmake"
    ;;
*)
    echo "usage: package.sh [host|target]" >&2
    exit 2
    ;;
esac
triple=$($cxx -print-multiarch)
mkdir -p "$build" "$out"
scratch=$(mktemp -d)
trap 'rm -rf -- "$scratch"' EXIT

fail() {
    echo "package: $*" >&2
    exit 1
}
# quietly COMMAND...: its output is shown when it fails.
quietly() {
    "$@" >"$build/log" 2>&1 || {
        cat "$build/log" >&2
        fail "failed: $*"
    }
}

rm -f "$out"/*_"$architecture.deb" "$out"/*"$triple.tar.gz"

# The tarball has a plain lib, the Debian packages the directory of their architecture.
quietly cmake -S . -B "$build" -G Ninja "$@" -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib \
    -DMAVKIT_SHARED=ON -DMAVKIT_TOOLS=ON -DMAVKIT_TESTS=OFF -DMAVKIT_EXAMPLES=OFF
quietly cmake --build "$build"
rm -rf "$build/packed"
quietly cpack --config "$build/CPackConfig.cmake" -G TGZ -B "$build/packed"
quietly cmake -S . -B "$build" -DCMAKE_INSTALL_LIBDIR="lib/$triple"
quietly cpack --config "$build/CPackConfig.cmake" -G DEB -B "$build/packed"

tarball=$(cd "$build/packed" && echo *.tar.gz)
mkdir "$scratch/tarball"
tar -xzf "$build/packed/$tarball" -C "$scratch/tarball"
tar -C "$scratch/tarball" --sort=name --owner=0 --group=0 --numeric-owner \
    --mtime="@$SOURCE_DATE_EPOCH" -cf - "${tarball%.tar.gz}" | gzip -9n >"$out/$tarball"
for deb in "$build"/packed/*.deb; do
    tree=$scratch/${deb##*/}
    dpkg-deb -R "$deb" "$tree"
    # The dynamic linker's cache is brought up to date by Debian's trigger instead of by scripts.
    if [ -f "$tree/DEBIAN/shlibs" ]; then
        rm "$tree/DEBIAN/postinst" "$tree/DEBIAN/postrm"
        echo "activate-noawait ldconfig" >"$tree/DEBIAN/triggers"
    fi
    find "$tree" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
    dpkg-deb --root-owner-group -Zxz -b "$tree" "$out" >/dev/null
done
if grep -rlF "$root" "$scratch"; then
    fail "the build machine's path is in these files"
fi

# The scratch system has no libc6, and need not be one of this machine's kind.
system=$scratch/system
admin=$system/var/lib/dpkg
mkdir -p "$admin/info" "$admin/updates"
: >"$admin/status"
quietly dpkg --root="$system" --force-depends,architecture,not-root --log=/dev/null \
    -i "$out"/*_"$architecture.deb"
for package in libmavkit1 libmavkit-dev; do
    # shellcheck disable=SC2016 # dpkg's variables
    dpkg-query --admindir="$admin" -W -f '${db:Status-Status} ${Package} ${Version} ${Architecture} ${Maintainer}\n' \
        $package | grep -q "^installed $package [0-9.]* $architecture .* <.*@.*>\$" ||
        fail "$package is not installed, or its control file is not as it should be"
done
libdir=$system/usr/lib/$triple
for file in libmavkit.a libmavkit.so libmavkit.so.1; do
    [ -f "$libdir/$file" ] || fail "there is no $file"
done

# pkg-config finds it where it stands, wherever that is.
flags=$(PKG_CONFIG_LIBDIR=$libdir/pkgconfig pkg-config --cflags --libs mavkit)
cd "$scratch" # the programs leave files behind
for program in files frame queue; do
    # shellcheck disable=SC2086 # flags are meant to be split
    quietly $cxx -std=c++11 "$root/docs/examples/$program.cpp" -o "$program" $flags
    if [ "$kind" = target ]; then
        quietly qemu-mipsel -L "/usr/$triple" -E LD_LIBRARY_PATH="$libdir" "./$program"
    else
        LD_LIBRARY_PATH=$libdir quietly "./$program"
    fi
done
cd "$out"
wc -c -- *_"$architecture.deb" "$tarball"
