#!/bin/sh
# The built driver as a small machine needs it: small when stripped, no use of streams and locales,
# and nothing exported but its functions.
# Usage: library_check.sh NM STRIP LIBRARY LIMIT_BYTES
set -eu
nm=$1 strip=$2 library=$3 limit=$4
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
failed=0

"$strip" -o "$stripped" "$library"
size=$(wc -c <"$stripped")
echo "stripped: $size bytes, limit $limit"
[ "$size" -le "$limit" ] || failed=1

needed=$("$nm" -D -C --undefined-only "$library")
[ -n "$needed" ] || { echo "$nm lists nothing"; failed=1; }
if echo "$needed" | grep -E 'std::(ios_base|locale|cout|cerr|clog|cin|basic_[a-z]*(stream|streambuf|ios)|__cxx11::basic_[a-z]*stream|ctype|num_put|num_get|__cxx11::basic_regex)'; then
    echo "the library uses streams or locales"
    failed=1
fi

exported=$("$nm" -D --defined-only "$library" | cut -d' ' -f3 | sort | tr '\n' ' ')
if [ "$exported" != "Close IOCTL Load Open Read Seek Unload Write " ]; then
    echo "exported: $exported"
    failed=1
fi
exit $failed
