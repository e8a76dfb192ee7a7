#!/bin/sh
# package.sh [host|target PRESET]: packs the library, its headers and mavutil in build/packages, and
# builds and runs programs against what was packed. For this machine that is Debian packages and a
# tarball, for the target (built as PRESET says) a tarball.
#
# CMake decides what a package contains. This script packs it again, in sorted order, with the date
# of the release on every file and with the same permissions for every umask: so the same sources
# always give the same bytes.
set -eu
umask 022
kind=${1:-host} preset=${2-}
root=$(pwd -P)
out=$root/build/packages
build=$root/build/package-${preset:-host}
if [ -z "${SOURCE_DATE_EPOCH-}" ]; then
    release=$(sed -n '/^## \[[0-9]/{s/.* - //p;q;}' CHANGELOG.md)
    SOURCE_DATE_EPOCH=$(date -u -d "$release" +%s)
fi
export SOURCE_DATE_EPOCH

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
say() { echo "$*" >&2; }

mkdir -p "$build" "$out"
scratch=$(mktemp -d)
trap 'rm -rf -- "$scratch"' EXIT

case $kind/$preset in
host/)
    # The flags of Debian's own packages. CMake has no separate flags for the preprocessor.
    export DEB_BUILD_MAINT_OPTIONS=hardening=+bindnow
    compile="$(dpkg-buildflags --get CPPFLAGS) $(dpkg-buildflags --get CXXFLAGS)"
    link=$(dpkg-buildflags --get LDFLAGS)
    set -- -G Ninja -DCMAKE_BUILD_TYPE=Release "-DCMAKE_CXX_FLAGS=$compile" \
        "-DCMAKE_EXE_LINKER_FLAGS=$link" "-DCMAKE_SHARED_LINKER_FLAGS=$link"
    ;;
target/?*)
    set -- --preset "$preset" -DCMAKE_BUILD_TYPE=MinSizeRel
    ;;
*)
    echo "usage: package.sh [host|target PRESET]" >&2
    exit 2
    ;;
esac

# The tarball has a plain lib, the Debian packages the directory of their architecture.
say "Building (log: ${build#"$root"/}/log)"
quietly cmake -S . -B "$build" "$@" -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib \
    -DMAVKIT_SHARED=ON -DMAVKIT_TOOLS=ON -DMAVKIT_TESTS=OFF -DMAVKIT_EXAMPLES=OFF
quietly cmake --build "$build"
rm -rf "$build/packed"
cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
version=$(cached CMAKE_PROJECT_VERSION)
cxx=$(sed -n 's/^set(CMAKE_CXX_COMPILER "\(.*\)")/\1/p' \
    "$build"/CMakeFiles/*/CMakeCXXCompiler.cmake)
strip=$(cached CMAKE_STRIP)
triple=$(basename "$cxx" -g++)
[ "$kind" = target ] || triple=$(dpkg-architecture -q DEB_HOST_MULTIARCH)

# strip_tree TREE: strips as Debian does for its packages.
strip_tree() {
    find "$1" -name '*.a' -exec "$strip" --strip-debug --remove-section=.comment \
        --enable-deterministic-archives {} +
    find "$1" -type f \( -name '*.so.*' -o -path '*/bin/*' \) -exec "$strip" --strip-unneeded \
        --remove-section=.comment --remove-section=.note {} +
}

say "Packing"
tarball=mavkit-$version-$triple
rm -f "$out/$tarball.tar.gz"
quietly cpack --config "$build/CPackConfig.cmake" -G TGZ -B "$build/packed" \
    -D CPACK_PACKAGE_FILE_NAME="$tarball"
tree=$scratch/$tarball
tar -xzf "$build/packed/$tarball.tar.gz" -C "$scratch" --no-same-owner
strip_tree "$tree"
sh cmake/sbom.sh "$tree" mavkit "$version" "libc, libstdc++" \
    >"$scratch/spdx" && mv "$scratch/spdx" "$tree/share/doc/mavkit/mavkit.spdx.json"
if private=$(find "$tree" ! -type l ! -perm -444) && [ -n "$private" ]; then
    fail "not everybody can read $private"
fi
tar -C "$scratch" --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$SOURCE_DATE_EPOCH" \
    -cf - "$tarball" | gzip -9n >"$out/$tarball.tar.gz"

cd "$scratch" # the programs leave files behind
# try LIBDIR WORD...: builds programs with the flags that pkg-config finds in LIBDIR, wherever that
# is, and runs them with the words in front of the command.
try() {
    libdir=$1
    shift
    flags=$(PKG_CONFIG_LIBDIR=$libdir/pkgconfig pkg-config --cflags --libs mavkit)
    for program in files frame queue; do
        # shellcheck disable=SC2086 # flags are meant to be split
        quietly "$cxx" -std=c++11 "$root/docs/examples/$program.cpp" -o "$program" $flags
        quietly "$@" "LD_LIBRARY_PATH=$libdir" "./$program"
    done
}
check_paths() {
    if grep -rlF "$root" "$@"; then
        fail "the build machine's path is in these files"
    fi
}
check_paths "$tree"
if [ "$kind" = target ]; then
    sysroot=$("$cxx" -print-sysroot)
    [ "$sysroot" != / ] || sysroot=/usr/$triple # Debian's compilers have none
    try "$tree/lib" qemu-mipsel -L "$sysroot" -E
    cd "$out"
    wc -c -- "$tarball.tar.gz"
    exit
fi
try "$tree/lib" env
cd "$root"

# --- Debian packages.
architecture=$(dpkg --print-architecture)
rm -f "$out"/*_"$architecture.deb"
quietly cmake -S . -B "$build" -DCMAKE_INSTALL_LIBDIR="lib/$triple"
quietly cpack --config "$build/CPackConfig.cmake" -G DEB -B "$build/packed"
# The changelog of the release, as Debian writes it: each item wrapped at 80 columns.
awk -v date="$(date -u -R -d "@$SOURCE_DATE_EPOCH")" '
    function put(count, words, i, line) {
        count = split(item, words, " ")
        line = "  *"
        for (i = 1; i <= count; ++i) {
            if (length(line) + length(words[i]) > 78) { print line; line = "   " }
            line = line " " words[i]
        }
        if (count > 0) print line
        item = ""
    }
    /^## \[[0-9]/ {
        if (open) exit
        open = 1
        gsub(/[][]/, "", $2)
        print "mavkit (" $2 ") stable; urgency=medium\n"
        next
    }
    open && /^- / { put(); item = substr($0, 3) }
    open && /^  [^ ]/ { item = item $0 }
    END { put(); print "\n -- The mavkit authors <mavkit@example.org>  " date }
' CHANGELOG.md | gzip -9n >"$scratch/changelog.gz"
for deb in "$build"/packed/*.deb; do
    package=$(dpkg-deb -f "$deb" Package)
    tree=$scratch/deb/$package
    mkdir -p "$tree"
    dpkg-deb -R "$deb" "$tree"
    strip_tree "$tree"
    cp "$scratch/changelog.gz" "$tree/usr/share/doc/$package/"
    find "$tree/usr/share" -path '*/man/*' -type f ! -name '*.gz' -exec gzip -9n {} +
    if [ -f "$tree/DEBIAN/shlibs" ]; then
        # A trigger updates the dynamic linker's cache, so no maintainer script is needed.
        rm "$tree/DEBIAN/postinst" "$tree/DEBIAN/postrm"
        echo "activate-noawait ldconfig" >"$tree/DEBIAN/triggers"
        (cd "$tree" && mkdir debian && echo "Source: mavkit" >debian/control &&
            dpkg-gensymbols -q "-p$package" -P. "-v$version" -ODEBIAN/symbols && rm -r debian &&
            sed -i '1a* Build-Depends-Package: libmavkit-dev' DEBIAN/symbols)
    fi
    sh cmake/sbom.sh "$tree" "$package" "$version" "$(dpkg-deb -f "$deb" Depends)" \
        >"$tree/usr/share/doc/$package/$package.spdx.json"
    (cd "$tree" && find usr -type f -print0 | sort -z | xargs -0 md5sum >DEBIAN/md5sums)
    size=$(du -sk --apparent-size "$tree/usr" | cut -f1)
    sed -i "s/^Installed-Size: .*/Installed-Size: $size/" \
        "$tree/DEBIAN/control"
    chmod -R u=rwX,go=rX "$tree"
    find "$tree" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
    dpkg-deb --root-owner-group -Zxz -b "$tree" "$out" >/dev/null
done
check_paths "$scratch/deb"
say "Checking the packages"
quietly lintian --allow-root --fail-on error,warning \
    "$out"/*_"$architecture.deb"

# The scratch system has no libc6, and its architecture may be another one than this machine's.
system=$scratch/system
admin=$system/var/lib/dpkg
mkdir -p "$admin/info" "$admin/updates"
: >"$admin/status"
quietly dpkg --root="$system" --force-depends,architecture,not-root --log=/dev/null \
    -i "$out"/*_"$architecture.deb"
for package in libmavkit1 libmavkit-dev; do
    # shellcheck disable=SC2016 # dpkg's variables
    dpkg-query --admindir="$admin" -W -f \
        '${db:Status-Status} ${Package} ${Version} ${Architecture} ${Maintainer}\n' $package |
        grep -q "^installed $package [0-9.]* $architecture .* <.*@.*>\$" ||
        fail "$package is not installed, or its control file is not as it should be"
done
libdir=$system/usr/lib/$triple
for file in libmavkit.a libmavkit.so libmavkit.so.1; do
    [ -f "$libdir/$file" ] || fail "there is no $file"
done

cd "$scratch"
try "$libdir" env
cd "$out"
wc -c -- *_"$architecture.deb" "$tarball.tar.gz"
