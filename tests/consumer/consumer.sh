#!/bin/sh
# consumer.sh [--accept-abi]: installs the library, moves the installation elsewhere, and uses it as
# somebody else would: every public header alone in C++11, the guide's programs built four ways and
# run, a project that has mavkit in its tree, uninstalling, and the exported symbols compared with
# cmake/abi.txt. Run it at the root of the tree.
set -eu
build=$PWD/build/consumer
programs="files frame mask queue region schedule trace" # something of every family
abi=cmake/abi.txt
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
prefix=$work/moved/here
lib=$prefix/lib
source=$PWD/tests/consumer

fail() {
    echo "consumer: $*" >&2
    exit 1
}
# quietly COMMAND...: its output is shown when it fails.
quietly() {
    "$@" >"$work/log" 2>&1 || {
        cat "$work/log" >&2
        fail "failed: $*"
    }
}
refused() {
    if "$@" >"$work/log" 2>&1; then
        fail "should have failed: $*"
    fi
}

# In a prefix of its own, with a plain lib; then moved to a place that it does not know.
quietly cmake --preset library -B "$build" -DCMAKE_INSTALL_LIBDIR=lib
quietly cmake --build "$build"
quietly cmake --install "$build" --prefix "$work/first"
mkdir "$work/moved"
cp -a "$work/first" "$prefix"
export PKG_CONFIG_LIBDIR="$lib/pkgconfig" CMAKE_PREFIX_PATH="$prefix"

quietly cmake --build "$build" --target uninstall
rest=$(find "$work/first" ! -type d -o -path '*mavkit*')
[ -z "$rest" ] || fail "uninstalled, but still there: $rest"

# --- The public headers, each by itself.
(cd "$prefix/include" && find mavkit -type f) | sort >"$work/headers"
for compiler in g++ clang++; do
    command -v $compiler >/dev/null || continue
    while read -r header; do
        quietly $compiler -std=c++11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c++ \
            -I"$prefix/include" -include "$header" /dev/null
    done <"$work/headers"
    echo "$(wc -l <"$work/headers") headers alone as C++11: $compiler"
done

# --- Four ways to the programs, which do the same each time.
output() { # PROGRAM FILE: what it prints, run in an empty directory
    mkdir "$work/run"
    (cd "$work/run" && LD_LIBRARY_PATH=$lib "$1") >"$2" 2>&1 || fail "failed: $1"
    rm -r "$work/run"
}
check() { # NAME DIRECTORY static|shared
    for program in $programs; do
        needed=$(readelf -d "$2/$program" | grep -c 'NEEDED.*\[libmavkit\.so\.1\]' || true)
        case $3/$needed in
        static/0 | shared/1) ;;
        *) fail "$1, $program: not linked to the $3 library" ;;
        esac
        output "$2/$program" "$work/printed"
        [ -e "$work/$program.expected" ] || cp "$work/printed" "$work/$program.expected"
        diff "$work/$program.expected" "$work/printed" || fail "$1, $program: prints something else"
    done
    echo "$1, $3: $(echo "$programs" | wc -w) programs at work"
}
with_cmake() { # DIRECTORY OPTION...
    directory=$work/$1
    shift
    quietly cmake -S "$source" -B "$directory" -G Ninja "$@"
    quietly cmake --build "$directory"
}
with_cmake static
check CMake "$work/static" static
with_cmake shared -DBUILD_SHARED_LIBS=ON
check CMake "$work/shared" shared
# A component has precedence over BUILD_SHARED_LIBS.
with_cmake component -DBUILD_SHARED_LIBS=ON -DKIND=static
check "CMake by component" "$work/component" static
refused cmake -S "$source" -B "$work/none" -G Ninja -DKIND=dynamic
grep -q 'components static and shared' "$work/log" ||
    fail "a wrong component is not reported as one"

with_pkg_config() { # DIRECTORY COMPILER-OPTION PKG-CONFIG-OPTION...
    directory=$1 option=$2
    shift 2
    mkdir "$directory"
    for program in $programs; do
        # shellcheck disable=SC2046,SC2086 # flags are meant to be split
        quietly g++ -std=c++11 $option "docs/examples/$program.cpp" -o "$directory/$program" \
            $(pkg-config "$@" mavkit)
    done
}
with_pkg_config "$work/pc-static" -static --static --cflags --libs
check pkg-config "$work/pc-static" static
with_pkg_config "$work/pc-shared" "" --cflags --libs
check pkg-config "$work/pc-shared" shared

# --- The first program of README.md, with its own command line.
awk '/^```/ { code = $0 == "```cpp"; next } code' README.md >"$work/first.cpp"
quietly g++ -std=c++17 -I. "$work/first.cpp" "$build/libmavkit.a" -o "$work/first.program"
quietly "$work/first.program"
lines=$(grep -cx -e 'kor(.*):next reading at .*' -e 'kor(.*):45 23 01 crc 31061' \
    -e 'first: 123.45 kWh' "$work/log")
[ "$lines" -eq 3 ] || fail "README.md's program prints something else: $(cat "$work/log")"

# --- In the tree of another project: in a shared object of its own, and exported for others.
embedded() { # DIRECTORY OPTION...
    directory=$1
    shift
    quietly cmake -S "$source/embedded" -B "$directory" -G Ninja -DCMAKE_INSTALL_LIBDIR=lib "$@"
    quietly cmake --build "$directory"
    quietly cmake --install "$directory" --prefix "$directory/installed"
}
embedded "$work/own" -DOWN_EXPORT=ON -DBUILD_SHARED_LIBS=ON
readelf -d "$work/own/libplugin.so" | grep -q 'NEEDED.*libmavkit\.so\.1' ||
    fail "BUILD_SHARED_LIBS does not reach mavkit in another project's tree"
embedded "$work/beside"
CMAKE_PREFIX_PATH=$work/beside/installed with_cmake user -DEMBEDDED=ON
quietly "$work/user/user"
grep -qx "mavkit $(pkg-config --modversion mavkit)" "$work/log" ||
    fail "mavkit_version() is not the version of the package"
echo "In another project's tree: shared and static, exported, in a shared object"

# --- What the shared library exports. The list is that of 64-bit hosts.
{
    readelf -d "$lib/libmavkit.so" | sed -n 's/.*(SONAME).*\[\(.*\)\]/SONAME \1/p'
    nm -DC --defined-only --without-symbol-versions "$lib/libmavkit.so" | cut -d' ' -f3-
} | LC_ALL=C sort -u >"$work/abi"
if [ "${1-}" = --accept-abi ]; then
    cp "$work/abi" "$abi"
elif ! diff -u --label "$abi" --label "this library" "$abi" "$work/abi"; then
    fail "the exported names have changed. One that is gone (-) breaks every program that is
linked to the library: then the major version goes up. A new one (+) needs a new minor version.
docs/versions.md says more. If the change is meant,
    ./run consumer --accept-abi
makes this the list, to be committed with it."
fi
echo "$(wc -l <"$work/abi") exported names: as in $abi"
