#!/bin/sh
# The driver as one file to copy: it needs the C library only, of old versions, exports its eight
# functions, and keeps what is linked into it to itself.
# Usage: standalone_check.sh READELF LIBRARY NEWEST_VERSION   (NEWEST_VERSION: 2.7, say)
set -eu
readelf=$1 library=$2 newest=$3
failed=0
complain() {
    echo "$1"
    failed=1
}

needed=$("$readelf" -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
echo "needs: $(echo "$needed" | tr '\n' ' ')"
echo "$needed" | grep -q '^libc\.so\.6$' || complain "no C library among them"
echo "$needed" | grep -Ev '^(libc\.so\.6|libpthread\.so\.0|ld-linux.*)$' && complain "not of the C library"

versions=$("$readelf" -VW "$library" | sed -n 's/.*Name: \([^ ]*\).*/\1/p' | sort -Vu)
echo "versions: $(echo "$versions" | tr '\n' ' ')"
echo "$versions" | grep -v '^GLIBC_[0-9]' && complain "not versions of the C library"
[ "$({ echo "$versions"; echo "GLIBC_$newest"; } | sort -V | tail -n 1)" = "GLIBC_$newest" ] ||
    complain "newer than GLIBC_$newest"

symbols=$("$readelf" --dyn-syms -W "$library")
defined=$(echo "$symbols" | awk 'NF >= 8 && $7 ~ /^[0-9]+$/ && $5 != "LOCAL" { print $8 }' | sort | tr '\n' ' ')
[ "$defined" = "Close IOCTL Load Open Read Seek Unload Write " ] || complain "exported: $defined"
echo "$symbols" | grep UNIQUE && complain "a unique symbol is shared with every library of the process"
echo "$symbols" | awk '$5 == "GLOBAL" && $7 == "UND" && $8 !~ /@/' | grep . && complain "of no version"
exit $failed
