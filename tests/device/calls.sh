#!/bin/sh
# Checks that each libc call of the library is one that the stand-in wraps, or one that harmless.txt
# names: calls.sh NM LIBRARY WRAPPED...
set -eu
nm=$1 library=$2
shift 2
known=$(printf '%s\n' "$@" && grep -v '^#' "$(dirname "$0")/harmless.txt" | tr ' ' '\n')
symbols=$("$nm" "$library" 2>/dev/null | awk 'NF { print $(NF - 1), $NF }' | sort -u)
defined=$(printf '%s\n' "$symbols" | awk '$1 != "U" { print $2 }')
unknown=$(printf '%s\n' "$symbols" | awk '$1 == "U" && $2 !~ /^_Z/ { print $2 }' |
    grep -vxF -e "$known" -e "$defined" || :)
[ -n "$symbols" ] || unknown="no symbol in $library"
[ -z "$unknown" ] || {
    echo "Neither wrapped in tests/device/Device.cpp nor in harmless.txt:"
    echo "$unknown"
    exit 1
}
