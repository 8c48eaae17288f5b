#!/usr/bin/env bash
# Makes pictures and profiles with the tool under every setting and compares the files.
#
#   same_files.sh TOOL SETTINGS-LIBRARY WORK-DIRECTORY
set -euo pipefail
tool=$1 settings=$2 work=$3
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

make_files() { # DIRECTORY
    mkdir -p "$1"
    local depth mode options
    for depth in 8 16; do
        options=$("$tool" scene "$1/scene$depth.pgm" --depth "$depth")
        for mode in nearest bilinear separable cubic; do
            # shellcheck disable=SC2086 # the options are words
            {
                "$tool" transform "$1/scene$depth.pgm" "$1/$depth-$mode.pgm" $options --mode "$mode"
                "$tool" transform "$1/scene$depth.pgm" "$1/$depth-$mode-x3.pgm" $options --mode "$mode" --size 1097x743
                # 16-bit projections have no table-driven modes.
                case $depth-$mode in
                16-separable | 16-cubic) ;;
                *) "$tool" project "$1/scene$depth.pgm" $options --mode "$mode" -o "$1/$depth-$mode.csv" ;;
                esac
            }
        done
    done
}

is_available() { env "$1" LD_PRELOAD="$settings" "$tool" --version >/dev/null; }

rm -rf "$work"
compared=0
for inhibited in 0 1; do
    export KIP_RUN_INHIBITED=$inhibited
    (export LD_PRELOAD="$settings" && make_files "$work/$inhibited")
    while read -r setting; do
        if ! is_available "$setting"; then
            echo "$setting: not on this processor"
            continue
        fi
        (export LD_PRELOAD="$settings" "${setting?}" && make_files "$work/other")
        diff -rq "$work/$inhibited" "$work/other"
        rm -r "$work/other"
        compared=$((compared + 1))
    done < <(grep -v INHIBITED "$here/settings.txt")
done
# The 8-bit path that the hook forbids cuts other tiles, from whose corners positions count, and rounds bilinear and
# cubic samples its own way; everything else is the same with and without it.
diff -rq --exclude='8-nearest*' --exclude='8-bilinear*' --exclude='8-cubic*' "$work/0" "$work/1"
echo "$(find "$work/0" -type f | wc -l) files, the same under $compared settings"
[ "$compared" -ge 10 ] # every machine can do without variants and has threads
