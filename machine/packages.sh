#!/bin/sh
# Read by the scripts beside it: Debian's packages for mipsel, on a machine of another architecture
# and without root. apt works on folders of its own in the cache and on this machine's sources.
# shellcheck shell=sh
: "${cache:?}"

# apt_mipsel TOOL ARGUMENT...: apt-get or apt-cache, for mipsel.
apt_mipsel() { APT_CONFIG=$cache/mipsel/apt.conf "$@"; }

prepare_apt() {
    [ -z "${apt_ready-}" ] || return 0
    apt_ready=yes
    mkdir -p "$cache/mipsel/state/lists/partial" "$cache/mipsel/archives/partial"
    : >"$cache/mipsel/status"
    cat >"$cache/mipsel/apt.conf" <<CONF
APT::Architecture "mipsel";
APT::Architectures { "mipsel"; };
APT::Sandbox::User "$(id -un)";
Dir::State "$cache/mipsel/state";
Dir::State::status "$cache/mipsel/status";
Dir::Cache "$cache/mipsel";
CONF
    echo "Reading the list of Debian's packages for mipsel" >&2
    apt_mipsel apt-get -qq update >&2
}

# fetch_packages NAME...: unpacks each package to $cache/mipsel/NAME, once. use_cache ran before.
fetch_packages() {
    for package; do
        [ ! -e "$cache/mipsel/$package/.whole" ] || continue
        prepare_apt
        rm -rf "$cache/mipsel/$package" "$cache/mipsel/download"
        mkdir -p "$cache/mipsel/download"
        echo "Fetching $package for mipsel" >&2
        (cd "$cache/mipsel/download" && apt_mipsel apt-get -qq download "$package") >&2
        dpkg-deb -x "$cache"/mipsel/download/*.deb "$cache/mipsel/$package"
        : >"$cache/mipsel/$package/.whole"
    done
}
