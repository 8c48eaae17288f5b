#!/usr/bin/env bash
# Makes the demo's files with two builds of the tool and compares them byte by byte, pictures as PGM, which every build
# knows. The photograph takes part where the demo has fetched it (build/photo/page.png).
#
#   scripts/compare-tools.sh WORK-DIRECTORY TOOL OTHER-TOOL-WITH-ITS-RUNNER...
set -euo pipefail

if [ $# -lt 3 ]; then
    echo "usage: $0 WORK-DIRECTORY TOOL OTHER-TOOL..." >&2
    exit 2
fi
work=$(realpath --canonicalize-missing "$1")
tool=$(realpath "$2")
other=("$(realpath "$3")" "${@:4}")
photo=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")/build/photo/page.png

# Every mode, at the rectangle's own size and enlarged: SOURCE NAME --rect R --angle A
straighten() {
    local source=$1 name=$2 mode
    shift 2
    for mode in nearest bilinear separable cubic; do
        "${tool[@]}" transform "$source" "$name-$mode.pgm" "$@" --mode "$mode"
        "${tool[@]}" transform "$source" "$name-x4-$mode.pgm" "$@" --mode "$mode" --size 1188x791
    done
    "${tool[@]}" project "$source" -o "$name.csv" --plot "$name.svg" "$@" --mean
}

make_pictures() { # DIRECTORY TOOL...
    local depth options
    mkdir "$1" && cd "$1"
    shift
    local tool=("$@")
    for depth in 8 16; do
        # What the tool prints is compared, too; Windows ends its lines in its own way.
        "${tool[@]}" scene "scene$depth.pgm" --depth "$depth" | tr -d '\r' >"scene$depth.txt"
        options=$(<"scene$depth.txt")
        # shellcheck disable=SC2086 # the options are words
        straighten "scene$depth.pgm" "label$depth" $options
        "${tool[@]}" transform "scene$depth.pgm" "clipped$depth.pgm" --rect=-90,40,200,120 --angle 11 --clip \
            --mask "mask$depth.pgm"
        "${tool[@]}" info "scene$depth.pgm" | tr -d '\r' >"info$depth.txt"
    done
    if [ -f ../photo.pgm ]; then
        straighten ../photo.pgm line --rect 3,117,172,21 --angle 2.25
        straighten ../photo.pgm paragraph --rect 4,81,176,58 --angle 1.75
    fi
}

rm -rf "$work"
mkdir -p "$work"
if [ -f "$photo" ]; then
    "$tool" transform "$photo" "$work/photo.pgm" --rect "0,0,$("$tool" info "$photo" |
        sed -n 's/^size: \([0-9]*\) x \([0-9]*\)$/\1,\2/p')" --mode nearest
fi
(make_pictures "$work/one" "$tool")
(make_pictures "$work/other" "${other[@]}")
diff -rq "$work/one" "$work/other"
echo "compare-tools: $(find "$work/one" -type f | wc -l) files, the same byte for byte"
