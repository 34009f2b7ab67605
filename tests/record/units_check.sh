#!/bin/sh
# The units of the service as the service manager reads them: no word about them, and well shielded.
# Usage: units_check.sh FOLDER-OF-THE-UNITS COMMAND   (the built one takes the place of the installed)
set -eu
command -v systemd-analyze >/dev/null || { echo "no systemd-analyze here" >&2; exit 77; }
folder=$(mktemp -d /tmp/plendix-units-XXXXXX)
trap 'rm -rf "$folder"' EXIT
for unit in plendix.service plendix@.service plendix-serve.service; do
    sed "s|^ExecStart=plendix |ExecStart=$2 |" "$1/$unit" >"$folder/$unit"
done
said=$(systemd-analyze verify --man=no "$folder/plendix.service" "$folder/plendix@gate.service" \
    "$folder/plendix-serve.service" 2>&1) || true
[ -z "$said" ] || { echo "$said"; exit 1; }
# Below 2.0 of 10, the most exposed; the analyser counts tenths.
for unit in plendix.service plendix-serve.service; do
    systemd-analyze security --offline=yes --threshold=20 --no-pager "$folder/$unit" >"$folder/report" ||
        { cat "$folder/report"; exit 1; }
done
