#!/bin/sh
# Makes libraries to link against in place of the compiler's C library: the same functions, each in the
# version that a linker would have taken from C library BASE, or else in its oldest. What is linked so
# loads with older C libraries too. They hold no code.
# Usage: old-c-library.sh COMPILER READELF BASE FOLDER   (BASE: 2.4, say; COMPILER with its --sysroot)
set -eu
compiler=$1 readelf=$2 base=$3 folder=$4
rm -rf "$folder"
mkdir -p "$folder"

real() { # real NAME: where the compiler's sysroot has it
    # shellcheck disable=SC2086
    file=$($compiler -print-file-name="$1")
    [ -e "$file" ] || { echo "old-c-library: $compiler finds no $1: is its C library GNU's?" >&2; exit 1; }
    echo "$file"
}
c_library=$(real libc.so.6)
loader=$("$readelf" -dW "$c_library" | sed -n 's/.*NEEDED.*\[\(ld-linux.*\)\]/\1/p')
[ -n "$loader" ] || { echo "old-c-library: $c_library names no loader" >&2; exit 1; }
loader_file=$(real "$loader")

# Lines "LIBRARY VERSION SYMBOL TYPE SIZE" to standard output.
for library in libc.so.6 "$loader"; do
    file=$c_library
    [ "$library" = libc.so.6 ] || file=$loader_file
    "$readelf" --dyn-syms -W "$file" | awk -v library="$library" -v base="$base" '
        function number(version, part) {
            sub(/^GLIBC_/, "", version)
            split(version, part, ".")
            return part[1] * 1000000 + part[2] * 1000 + part[3]
        }
        # Nearer below the base, or nearer above it where nothing is below.
        function better(version, than) {
            if (number(version) > number(base)) return number(version) < number(than)
            return number(than) > number(base) || number(than) < number(version)
        }
        # Functions that came to the C library from the one of threads or of loading in 2.32 to 2.34.
        function home(symbol) {
            if (number(default_version[symbol]) < 2032000 || number(best[symbol]) >= 2032000) return library
            if (symbol ~ /^(pthread|sem)_/) return "libpthread.so.0"
            if (symbol ~ /^dl/) return "libdl.so.2"
            return library
        }
        NF == 8 && $7 != "UND" && $4 != "TLS" && $8 ~ /@GLIBC_[0-9]/ {
            at = index($8, "@")
            symbol = substr($8, 1, at - 1)
            version = substr($8, at)
            is_default = version ~ /^@@/
            gsub("@", "", version)
            if (is_default) default_version[symbol] = version
            # The clocks came from a library of their own, which a small root may lack.
            if (symbol ~ /^clock_/ && number(version) < 2017000) next
            if (!(symbol in best) || better(version, best[symbol])) best[symbol] = version
            type[symbol] = $4 == "OBJECT" ? "object" : "function"
            size[symbol] = $3
        }
        END { for (symbol in best) print home(symbol), best[symbol], symbol, type[symbol], size[symbol] }'
done | sort >"$folder/symbols"
[ -s "$folder/symbols" ] || { echo "old-c-library: no symbols in $c_library" >&2; exit 1; }

for library in $(cut -d' ' -f1 "$folder/symbols" | sort -u); do
    grep "^$library " "$folder/symbols" >"$folder/$library.symbols"
    awk '{ print ".globl " $3 "\n.type " $3 ", %" $4 "\n.size " $3 ", " $5 "\n" $3 ":" }' \
        "$folder/$library.symbols" >"$folder/$library.s"
    awk '$2 != version { if (version) print "};"; print $2 " {"; version = $2 } { print $3 ";" }
         END { print "};" }' "$folder/$library.symbols" >"$folder/$library.map"
    # shellcheck disable=SC2086
    $compiler -shared -nostdlib -Wl,-soname,"$library" -Wl,--version-script="$folder/$library.map" \
        -o "$folder/$library" "$folder/$library.s"
done
# What -lc, -lpthread and -ldl find.
for name in c pthread dl; do
    echo "GROUP ( libc.so.6 AS_NEEDED ( libpthread.so.0 libdl.so.2 $loader ) )" >"$folder/lib$name.so"
done
