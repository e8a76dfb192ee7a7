#!/bin/sh
# packages.sh NAME...: unpacks Debian's packages NAME for mipsel, each once, on a machine of another
# architecture and without root; prints the folder that then has a folder NAME for each. apt uses
# its own files in the cache, and the package sources of this machine.
set -eu
here=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd -P)
# shellcheck source=machine/cache.sh
. "$here/cache.sh"
use_cache mipsel
folder=$cache/mipsel

# apt TOOL ARGUMENT...: apt-get or apt-cache, for mipsel.
apt() { APT_CONFIG=$folder/apt.conf "$@"; }

# Reads the list of packages when it is needed for the first time.
prepare_apt() {
    [ -z "${prepared-}" ] || return 0
    prepared=yes
    mkdir -p "$folder/state/lists/partial" "$folder/archives/partial"
    : >"$folder/status"
    cat >"$folder/apt.conf" <<CONF
APT::Architecture "mipsel";
APT::Architectures { "mipsel"; };
APT::Sandbox::User "$(id -un)";
Dir::State "$folder/state";
Dir::State::status "$folder/status";
Dir::Cache "$folder";
CONF
    echo "Reading the list of Debian's packages for mipsel" >&2
    apt apt-get -qq update >&2
}

for package; do
    [ ! -e "$folder/$package/.whole" ] || continue
    prepare_apt
    rm -rf "${folder:?}/$package" "$folder/download"
    mkdir -p "$folder/download"
    # The package of the newest kernel is empty and only depends on the real one.
    case $package in
    linux-image-*) real=$(apt apt-cache depends "$package" | sed -n 's/^ *Depends: //p') ;;
    *) real=$package ;;
    esac
    echo "Fetching $real for mipsel" >&2
    (cd "$folder/download" && apt apt-get -qq download "$real") >&2
    dpkg-deb -x "$folder"/download/*.deb "$folder/$package"
    rm -r "$folder/download"
    : >"$folder/$package/.whole"
done
echo "$folder"
