#!/bin/sh
# Read by the scripts beside it: where results that are built or fetched only once are kept.
# shellcheck shell=sh
: "${here:?}"

# use_cache WHAT: sets $cache: $MAVKIT_CACHE, or build/toolchains of the project. When several
# scripts make the same thing, one works and the others wait for it.
use_cache() {
    cache=${MAVKIT_CACHE:-$here/../build/toolchains}
    mkdir -p "$cache"
    cache=$(CDPATH='' cd -- "$cache" && pwd -P)
    exec 9>"$cache/$1.lock"
    flock -n 9 || {
        echo "Waiting for another start that makes $1 in $cache" >&2
        flock 9
    }
}
