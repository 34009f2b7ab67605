#!/bin/sh
# Runs an ARM program with nothing but the C library around it: the loader gets a folder that holds the
# named libraries only, and whatever else it takes is a failure.
# Usage: bare_root.sh C_LIBRARY_FOLDER EMULATOR PROGRAM LIBRARY ARGUMENT...
# C_LIBRARY_FOLDER: with a loader of that machine; of an older system, say.
set -eu
from=$1 emulator=$2 program=$3 library=$4
shift 4
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
loader=$(cd "$from" && ls -d ld-linux*.so.* | head -n 1)
cp -L "$from/$loader" "$from/libc.so.6" "$from/libpthread.so.0" "$from/libdl.so.2" "$root"
cp "$program" "$root/host"
cp "$library" "$root/Plendix.so"

status=0
"$emulator" -E LD_DEBUG=files -E LD_DEBUG_OUTPUT="$root/loaded" "$root/$loader" --inhibit-cache \
    --library-path "$root" "$root/host" "$root/Plendix.so" "$@" || status=$?
loaded=$(sed -n 's/.*calling init: *//p' "$root"/loaded.* | sort -u)
echo "loaded: $(echo "$loaded" | tr '\n' ' ')" >&2
echo "$loaded" | grep -q '/Plendix.so$' || { echo "bare_root: the driver was not loaded" >&2; exit 1; }
if echo "$loaded" | grep -v "^$root/"; then
    echo "bare_root: these are not of the C library" >&2
    exit 1
fi
exit $status
