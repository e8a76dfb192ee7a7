#!/bin/sh
# check.sh: checks of the recipes what can be checked without the build systems that they are for.
# All have to name the version and the licence of this tree. make reads Buildroot's and OpenWrt's,
# with stand-ins for what those systems define, and their options and file lists are tried on a
# build. Run it at the root of the tree.
set -eu
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
here=$PWD/packaging

fail() {
    echo "packaging: $*" >&2
    exit 1
}
quietly() {
    "$@" >"$work/log" 2>&1 || {
        cat "$work/log" >&2
        fail "failed: $*"
    }
}
# configure SOURCE OPTION...: every option must be one that the build knows.
configure() {
    source=$1
    shift
    rm -rf "$work/build"
    quietly cmake -S "$source" -B "$work/build" -G Ninja -DCMAKE_INSTALL_PREFIX=/usr \
        -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_BUILD_TYPE=MinSizeRel "$@"
    if grep -A9 'were not used by the project' "$work/log"; then
        fail "options that the build does not know"
    fi
}

version=$(awk '/^#define MAVKIT_VERSION_(MAJOR|MINOR|PATCH) / { text = text "." $3 }
    END { print substr(text, 2) }' mavkit/Version.h)
grep -qx "## \[$version\] - ....-..-.." CHANGELOG.md || fail "CHANGELOG.md has no release $version"
[ -f "$here/yocto/mavkit_$version.bb" ] || fail "Yocto's recipe is not called mavkit_$version.bb"
grep -q "md5=$(md5sum <LICENSE | cut -d' ' -f1)" "$here/yocto/mavkit_$version.bb" ||
    fail "Yocto's recipe has the sum of another LICENSE"
(grep '^sha256' "$here/buildroot/package/mavkit/mavkit.hash" | cut -d' ' -f3-) >"$work/sums"
quietly sha256sum --check "$work/sums"
python3 - "$here/conan/conanfile.py" <<'END'
import ast, sys
with open(sys.argv[1], encoding="utf-8") as file:
    ast.parse(file.read())
END

# Buildroot: its package infrastructure is a stand-in that prints what the recipe says.
cat >"$work/buildroot.mk" <<'END'
BR2_EXTERNAL_MAVKIT_PATH = $(HERE)/buildroot
BR2_PACKAGE_MAVKIT_TOOLS = y
cmake-package = $(info $(MAVKIT_VERSION) $(realpath $(MAVKIT_SITE)) $(MAVKIT_CONF_OPTS))
include $(HERE)/buildroot/external.mk
all: ;
END
read -r found source options <<END
$(make -s --no-print-directory -f "$work/buildroot.mk" HERE="$here")
END
[ "$found" = "$version" ] || fail "Buildroot's recipe is for version '$found'"
[ "$source" = "$(pwd -P)" ] || fail "Buildroot's recipe takes its sources from '$source'"
# shellcheck disable=SC2086 # options are meant to be split
configure "$source" -DBUILD_SHARED_LIBS=ON $options
quietly ninja -C "$work/build" -t query libmavkit.so

# OpenWrt: stand-ins run what the recipe says, in the order of a build.
mkdir "$work/openwrt"
: >"$work/openwrt/cmake.mk"
: >"$work/openwrt/package.mk"
cat >"$work/openwrt/rules.mk" <<'END'
INCLUDE_DIR = $(TOPDIR)
PKG_BUILD_DIR = $(TOPDIR)/source
PKG_INSTALL_DIR = $(TOPDIR)/installed
INSTALL_DIR = install -d -m0755
INSTALL_BIN = install -m0755
CP = cp -fpR
define BuildPackage
$(eval $(call Package/$(1)))$(if $(and $(TITLE),$(DEPENDS),$(SECTION)),,$(error $(1)))
package-$(1):
	$$(call Package/$(1)/install,$(TOPDIR)/$(1))
endef
version:
	@echo $(PKG_VERSION) $(CMAKE_OPTIONS)
prepare:
	$(Build/Prepare)
END
openwrt() { make -s --no-print-directory -C "$here/openwrt" TOPDIR="$work/openwrt" "$@"; }
read -r found options <<END
$(openwrt version)
END
[ "$found" = "$version" ] || fail "OpenWrt's recipe is for version '$found'"
quietly openwrt prepare
# shellcheck disable=SC2086
configure "$work/openwrt/source" $options
quietly cmake --build "$work/build"
DESTDIR=$work/openwrt/installed quietly cmake --install "$work/build"
quietly openwrt package-libmavkit package-mavutil
for file in libmavkit/usr/lib/libmavkit.so.1 mavutil/usr/bin/mavutil; do
    [ -f "$work/openwrt/$file" ] || fail "OpenWrt's packages have no $file"
done
echo "packaging: the recipes are those of $version"
