#!/bin/sh
# Read by the scripts beside it: where what is built or fetched once is kept.
# shellcheck shell=sh

# Sets $cache: $MAVKIT_CACHE, or build/toolchains of the project. Of several scripts at once, one
# works there and the others wait for it.
use_cache() {
    cache=${MAVKIT_CACHE:-$here/../build/toolchains}
    mkdir -p "$cache"
    cache=$(CDPATH='' cd -- "$cache" && pwd -P)
    exec 9>"$cache/lock"
    flock -n 9 || {
        echo "Waiting for another build in $cache" >&2
        flock 9
    }
}
