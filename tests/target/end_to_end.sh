#!/bin/sh
# The ARM driver under an emulator and the native one, each loaded by a host of its own kind, get
# the same pictures from native simulated cameras: every frame is the same to the byte.
# Usage: end_to_end.sh NATIVE_BUILD ARM_LIBRARY ARM_HOST EMULATOR...
set -eu
native=$1 arm_library=$2 arm_host=$3
shift 3
for file in "$native/tools/plendix" "$native/src/Plendix.so" "$native/tests/target/frame_files"; do
    [ -e "$file" ] || { echo "no $file: build the dev preset first, as scripts/build arm does"; exit 1; }
done

frames=24 # of each camera, at most; H.264 frames that must have come: one group is shorter on a slow machine
fewest=5
network=127.33.$(($$ >> 8 & 255)) # a fleet of five, so that its pictures come from a repeatable loop
first=$network.$(($$ % 200 + 1)) second=$network.$(($$ % 200 + 2))
work=$(mktemp -d)
camera=
trap '[ -z "$camera" ] || kill "$camera" 2>/dev/null; rm -rf "$work"' EXIT

# run NAME LIBRARY COMMAND...: the frames go to a folder of that name.
run() {
    name=$1 library=$2
    shift 2
    mkdir "$work/$name"
    "$native/tools/plendix" camera --address "$first" --count 5 --sensor 640x480 --seed 7 \
        >/dev/null 2>"$work/camera.log" &
    camera=$!
    tries=0
    until grep -q 'Ctrl-C ends' "$work/camera.log"; do
        tries=$((tries + 1))
        if [ $tries -gt 300 ] || ! kill -0 "$camera" 2>/dev/null; then
            cat "$work/camera.log"
            exit 1
        fi
        sleep 0.1
    done
    echo "$name: $library"
    "$@" "$library" "$work/$name" $frames "$first" "$second" >"$work/host.log" 2>&1 || {
        tail -n 20 "$work/host.log" "$work/camera.log"
        exit 1
    }
    kill "$camera"
    wait "$camera" || true
    camera=
}
run native "$native/src/Plendix.so" "$native/tests/target/frame_files"
run arm "$arm_library" "$@" "$arm_host"

compared=0
for number in 1 2; do
    count=0
    while [ -e "$work/native/$number-$count" ] && [ -e "$work/arm/$number-$count" ]; do
        cmp "$work/native/$number-$count" "$work/arm/$number-$count"
        count=$((count + 1))
    done
    [ $count -ge $fewest ] || { echo "camera $number: only $count frames to compare"; exit 1; }
    compared=$((compared + count))
done
echo "$compared frames are the same"
