#!/bin/sh
# The built driver as a small machine needs it: small when stripped, no use of streams and locales,
# nothing exported but its functions, and hardened.
# Usage: library_check.sh NM STRIP READELF LIBRARY LIMIT_BYTES OPTIMISED
set -eu
nm=$1 strip=$2 readelf=$3 library=$4 limit=$5 optimised=$6
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

headers=$("$readelf" -Wld "$library")
for mark in 'GNU_RELRO' '(BIND_NOW|FLAGS.*NOW)' 'GNU_STACK .* RW '; do
    echo "$headers" | grep -Eq "$mark" || { echo "no $mark in the headers"; failed=1; }
done
echo "$needed" | grep -q __stack_chk_fail || { echo "no stack protector"; failed=1; }
if [ "$optimised" = 1 ]; then # fortified calls are made by the optimiser
    echo "$needed" | grep -Eq '_chk(@|$)' || { echo "not fortified"; failed=1; }
fi
exit $failed
