#!/usr/bin/env bash
# Builds kip and straightens slanted parts of a real photograph with it. Installs what is missing first
# (Debian; see scripts/).
#
#   ./demo.sh [PICTURE | --scene]
#
# Without an argument the photograph is page.png of Debian's package python3-skimage: a page of a book whose
# lines run slanted. Where that cannot be had, and with --scene, the tool renders a slanted label instead.
# PICTURE is any PNG, TIFF or binary PGM: a part in its middle is turned. The results stand in demo-out/: the four
# modes together in overview.png, a profile across lines of text beside its picture in profile-overview.png, and a
# rectangle half outside the picture with its mask in clipped-overview.png; and, of the photograph, in caliper.png where
# lines of text begin and end, by examples/caliper.py and the Python package.
set -euo pipefail

modes="nearest bilinear separable cubic" # what every rectangle is sampled in

case ${1-} in
-h | --help)
    sed -n '2,/^set /{s/^# \{0,1\}//;/^set /d;p}' "$0"
    exit 0
    ;;
esac
if [ $# -gt 1 ]; then
    echo "usage: $0 [PICTURE | --scene]" >&2
    exit 2
fi
picture=${1-}
if [ -n "$picture" ] && [ "$picture" != --scene ]; then
    if [ ! -f "$picture" ]; then
        echo "demo: $picture: no such file" >&2
        exit 1
    fi
    picture=$(realpath "$picture")
fi
cd "$(dirname "${BASH_SOURCE[0]}")"

out=demo-out
photo=build/photo/page.png
kip=build/demo/tools/kip

build_tool() {
    scripts/install-packages.sh demo
    mkdir -p build
    echo "demo: building a release (build/demo)"
    if ! { cmake --preset demo && cmake --build --preset demo --parallel "$(nproc)" --target kip_tool kip_python; } >build/demo.log 2>&1; then
        cat build/demo.log >&2
        exit 1
    fi
}

# Unpacks the photograph, which is downloaded but not installed.
fetch_photo() {
    [ ! -f "$photo" ] || return 0
    command -v apt-get >/dev/null && command -v dpkg-deb >/dev/null || return 1
    local work package
    work=$(mktemp -d) || return 1
    echo "demo: fetching the photograph from Debian's python3-skimage"
    for package in python3-skimage python3-skimage-lib; do
        download_package "$work" "$package" || continue
        dpkg-deb --fsys-tarfile "$work/$package"_*.deb 2>/dev/null |
            tar -x -C "$work" --wildcards --no-anchored '*/data/page.png' 2>/dev/null || continue
        mkdir -p "$(dirname "$photo")"
        find "$work" -name page.png -exec cp {} "$photo" \; -quit
        [ ! -f "$photo" ] || break
    done
    rm -rf "$work"
    [ -f "$photo" ]
}

download_package() { # DIRECTORY PACKAGE
    local get=(apt-get -q -o APT::Sandbox::User=root download "$2")
    (cd "$1" && { "${get[@]}" || { update_lists && "${get[@]}"; }; }) >/dev/null 2>&1 </dev/null
}

update_lists() {
    if [ "$(id -u)" -eq 0 ]; then apt-get -qq update; else sudo -n apt-get -qq update; fi
}

picture_size() { "$kip" info "$1" | sed -n 's/^size: \([0-9]*\) x \([0-9]*\)$/\1 \2/p'; }

# The widest of some rectangle's shape that fits into the middle of a picture at an angle: X,Y,W,H.
middle_rectangle() { # WIDTH HEIGHT ANGLE RECTANGLE-WIDTH RECTANGLE-HEIGHT
    awk -v W="$1" -v H="$2" -v a="$3" -v w="$4" -v h="$5" 'BEGIN {
        a *= atan2(0, -1) / 180; c = cos(a); s = sin(a); if (c < 0) c = -c; if (s < 0) s = -s
        f = 1
        if (f > 0.9 * W / (w * c + h * s)) f = 0.9 * W / (w * c + h * s)
        if (f > 0.9 * H / (w * s + h * c)) f = 0.9 * H / (w * s + h * c)
        printf "%.2f,%.2f,%.2f,%.2f\n", (W - f * w) / 2, (H - f * h) / 2, f * w, f * h }'
}

# Straightens one rectangle in every mode: as it is and, when it is small, sampled four times as finely.
straighten() { # NAME RECTANGLE ANGLE
    local name=$1 rectangle=$2 angle=$3 mode width height
    echo "$name: --rect $rectangle --angle $angle"
    "$kip" transform "$source" "$out/$name-before.png" --rect "$rectangle" --mode nearest
    panels["$name,before"]="Not turned=$out/$name-before.png"
    read -r width height < <(picture_size "$out/$name-before.png")
    panels["$name,overlay"]="The $name in the picture=$out/$name-overlay.png"
    for mode in $modes; do
        sample "$name-$mode" "$mode" "$rectangle" "$angle" --overlay "$out/$name-overlay.png"
        panels["$name,$mode"]="Straightened, $mode=$out/$name-$mode.png"
    done
    for mode in $modes; do
        panels["$name,x4-$mode"]=-
        [ "$width" -le 200 ] || continue
        sample "$name-x4-$mode" "$mode" "$rectangle" "$angle" --size "$((4 * width))x$((4 * height))"
        panels["$name,x4-$mode"]="Straightened and enlarged by 4, $mode=$out/$name-x4-$mode.png"
    done
}

sample() { # FILE MODE RECTANGLE ANGLE OPTION...
    local file=$1 mode=$2 rectangle=$3 angle=$4
    shift 4
    printf '  %-38s ' "$out/$file.png"
    "$kip" transform "$source" "$out/$file.png" --rect "$rectangle" --angle "$angle" --mode "$mode" --time "$@"
}

# The profile of a rectangle across its lines, in which lines of text are valleys: x runs down its left side.
project_across() { # NAME RECTANGLE ANGLE
    local name=$1 across angle
    across=$(awk -F , '{ printf "%.2f,%.2f,%s,%s\n", $1 + ($3 - $4) / 2, $2 + ($4 - $3) / 2, $4, $3 }' <<<"$2")
    angle=$(awk -v a="$3" 'BEGIN { print a + 90 }')
    local arguments=("$source" --rect "$across" --angle "$angle" --mean -o "$out/$name-profile.csv")
    echo "profile: --rect $across --angle $angle"
    printf '  %-38s ' "$out/$name-profile.svg"
    "$kip" project "${arguments[@]}" --plot "$out/$name-profile.svg" --overlay "$out/$name-across.png" --time 2>&1
    compose profile-overview 2 "Down the $name, across its lines=$out/$name-across.png" \
        "Mean of each line of samples=$out/$name-profile.svg"
}

# A rectangle of some size, half outside at the left.
clip_at_the_edge() { # RECTANGLE ANGLE PICTURE-HEIGHT
    local half
    half=$(awk -F , -v h="$3" '{ printf "%.2f,%.2f,%s,%s\n", -$3 / 2, (h - $4) / 2, $3, $4 }' <<<"$1")
    echo "half outside: --rect $half --angle $2"
    sample clipped bilinear "$half" "$2" --clip --mask "$out/clipped-mask.png" --overlay "$out/clipped-overlay.png"
    compose clipped-overview 1 "A rectangle half outside=$out/clipped-overlay.png" \
        "Straightened, black where nothing is=$out/clipped.png" "Its mask=$out/clipped-mask.png"
}

# Puts pictures under their labels, row by row, small ones enlarged by a whole factor; - leaves a place free. librsvg
# sets the text, and draws the plots; as it enlarges smoothly, grey pictures, whose pixels are to show, come enlarged.
compose() { # NAME COLUMNS LABEL=FILE...
    local name=$1 columns=$2 entry column=-1 label file width height factor x y bottom=0
    local -a bottoms=()
    shift 2
    {
        for entry in "$@"; do
            column=$(((column + 1) % columns))
            [ "$entry" != - ] || continue
            label=${entry%=*} file=${entry##*=} width=800 height=400
            if [[ $file == *.png ]]; then
                read -r width height < <(picture_size "$file")
                label+=" ($width x $height"
                factor=$((800 / width < 8 ? 800 / width : 8))
                if [ "$factor" -eq 0 ]; then
                    label+=", reduced" height=$((height * 800 / width)) width=800
                elif [ "$factor" -gt 1 ]; then
                    label+=", enlarged by $factor"
                    if "$kip" info "$file" | grep -q 'grey$'; then
                        "$kip" transform "$file" "${file%.png}.enlarged.png" --rect "0,0,$width,$height" \
                            --size "$((width * factor))x$((height * factor))" --mode nearest
                        file=${file%.png}.enlarged.png
                    fi
                    width=$((width * factor)) height=$((height * factor))
                fi
                label+=")"
            fi
            x=$((14 + column * 814)) y=$((${bottoms[column]:-0} + 28))
            bottoms[column]=$((y + 8 + height))
            [ "$bottom" -ge "${bottoms[column]}" ] || bottom=${bottoms[column]}
            echo "<text x='$x' y='$y'>$label</text>"
            echo "<image x='$x' y='$((y + 8))' width='$width' height='$height' href='${file##*/}'/>"
        done
        echo "</svg>"
    } >"$out/$name.svg"
    sed -i "1i <svg xmlns='http://www.w3.org/2000/svg' width='$((14 + columns * 814))' height='$((bottom + 14))' \
font-family='sans-serif' font-size='14' fill='#1e2230'>" "$out/$name.svg"
    rsvg-convert --background-color='#fafaf8' "$out/$name.svg" -o "$out/$name.png"
    rm -f "$out/$name.svg" "$out"/*.enlarged.png
}

# Two columns, one a rectangle; below each other what is to be compared.
compose_overview() { # NAME NAME
    local rows="overlay before" row name entries=() mode
    for mode in $modes; do rows+=" $mode"; done
    for mode in $modes; do rows+=" x4-$mode"; done
    for row in $rows; do
        for name in "$@"; do
            entries+=("${panels["$name,$row"]}")
        done
    done
    compose overview 2 "${entries[@]}"
}

build_tool
rm -rf "$out"
mkdir -p "$out"
declare -A panels=()

if [ -n "$picture" ] && [ "$picture" != --scene ]; then
    source=$picture
    read -r width height < <(picture_size "$source")
    echo "demo: $source, $width x $height"
    text=$(middle_rectangle "$width" "$height" 10 "$((width * 3 / 5))" "$((height * 2 / 5))")
    straighten part "$text" 10
    straighten detail "$(middle_rectangle "$width" "$height" 10 120 60)" 10
    names="part detail" lines=part angle=10
elif [ "$picture" != --scene ] && fetch_photo; then
    source=$photo
    read -r width height < <(picture_size "$source")
    echo "demo: page.png, a photograph of a page, $width x $height pixels"
    text=4,81,176,58 angle=1.75
    # Measured: at these angles the rows of text stand out most sharply from the gaps between them.
    straighten line 3,117,172,21 2.25
    straighten paragraph "$text" "$angle"
    echo "caliper: examples/caliper.py, by the Python package"
    PYTHONPATH=build/demo/python /usr/bin/python3 examples/caliper.py "$photo" "$out/caliper.png"
    names="line paragraph" lines=paragraph
else
    [ "$picture" = --scene ] || echo "demo: the photograph cannot be had here; a rendered scene takes its place"
    source=$out/scene.png
    options=$("$kip" scene "$source")
    read -r width height < <(picture_size "$source")
    angle=${options##*--angle }
    echo "demo: a rendered scene, $width x $height pixels"
    text=${options#--rect } text=${text%% *}
    straighten label "$text" "$angle"
    straighten detail "$(middle_rectangle "$width" "$height" "$angle" 120 60)" "$angle"
    names="label detail" lines=label
fi
project_across "$lines" "$text" "$angle"
clip_at_the_edge "$text" "$angle" "$height"
# shellcheck disable=SC2086 # two names
compose_overview $names
[ ! -f "$out/caliper.png" ] || echo "demo: see $out/caliper.png"
echo "demo: see $out/overview.png, $out/profile-overview.png and $out/clipped-overview.png"
