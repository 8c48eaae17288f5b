#!/usr/bin/env bash
# Makes the demo's files with two builds of the tool and compares them byte by byte. The photograph takes part where the
# demo has fetched it (build/photo/page.png).
#
#   scripts/compare-tools.sh [--pgm] WORK-DIRECTORY TOOL OTHER-TOOL-WITH-ITS-RUNNER...
#
# With --pgm all pictures are PGM, for a build of the tool that knows nothing else.
set -euo pipefail

extension=png
if [ "${1-}" = --pgm ]; then
    extension=pgm
    shift
fi
if [ $# -lt 3 ]; then
    echo "usage: $0 [--pgm] WORK-DIRECTORY TOOL OTHER-TOOL..." >&2
    exit 2
fi
work=$(realpath --canonicalize-missing "$1")
first=$(realpath "$2")
other=("$(realpath "$3")" "${@:4}")
photo=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")/build/photo/page.png

# Every mode, at the rectangle's own size and enlarged: SOURCE NAME --rect R --angle A
straighten() {
    local source=$1 name=$2 mode
    shift 2
    for mode in nearest bilinear separable cubic; do
        "${tool[@]}" transform "$source" "$name-$mode.$extension" "$@" --mode "$mode"
        "${tool[@]}" transform "$source" "$name-x4-$mode.$extension" "$@" --mode "$mode" --size 1188x791
    done
    "${tool[@]}" project "$source" -o "$name.csv" --plot "$name.svg" "$@" --mean
    [ "$extension" = png ] || return 0
    "${tool[@]}" transform "$source" "$name.tif" "$@" --overlay "$name-overlay.png"
    "${tool[@]}" project "$source" -o "$name.json" "$@" --mean
}

make_pictures() { # DIRECTORY TOOL...
    local depth options
    mkdir "$1" && cd "$1"
    shift
    local tool=("$@")
    for depth in 8 16; do
        # What the tool prints is compared, too; Windows ends its lines in its own way.
        "${tool[@]}" scene "scene$depth.$extension" --depth "$depth" | tr -d '\r' >"scene$depth.txt"
        options=$(<"scene$depth.txt")
        # shellcheck disable=SC2086 # the options are words
        straighten "scene$depth.$extension" "label$depth" $options
        "${tool[@]}" transform "scene$depth.$extension" "clipped$depth.$extension" --rect=-90,40,200,120 --angle 11 \
            --clip --mask "mask$depth.$extension"
        "${tool[@]}" info "scene$depth.$extension" | tr -d '\r' >"info$depth.txt"
    done
    if [ -f "../photo.$extension" ]; then
        straighten "../photo.$extension" line --rect 3,117,172,21 --angle 2.25
        straighten "../photo.$extension" paragraph --rect 4,81,176,58 --angle 1.75
    fi
}

rm -rf "$work"
mkdir -p "$work"
if [ -f "$photo" ]; then
    if [ "$extension" = png ]; then
        cp "$photo" "$work/photo.png"
    else
        "$first" transform "$photo" "$work/photo.pgm" --rect "0,0,$("$first" info "$photo" |
            sed -n 's/^size: \([0-9]*\) x \([0-9]*\)$/\1,\2/p')" --mode nearest
    fi
fi
(make_pictures "$work/one" "$first")
(make_pictures "$work/other" "${other[@]}")
diff -rq "$work/one" "$work/other"
echo "compare-tools: $(find "$work/one" -type f | wc -l) files, the same byte for byte"
