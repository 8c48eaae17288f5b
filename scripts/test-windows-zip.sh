#!/usr/bin/env bash
# Tries the archive for Windows as its users do, under Wine: unpacked into a folder with a blank in its name, programs are
# built with nothing of kip but that folder, by MinGW and by Clang with the linker that takes Microsoft's import libraries,
# and run; and its tool makes the same files as this machine's, byte for byte.
#
#   scripts/test-windows-zip.sh ZIP [TOOL]     TOOL: kip of this machine; without it, one is built in build/demo
set -euo pipefail
[ $# -ge 1 ] || { echo "usage: $0 ZIP [TOOL]" >&2; exit 2; }
zip=$(realpath "$1")
tool=$(realpath "${2:-$(dirname "${BASH_SOURCE[0]}")/../build/demo/tools/kip}")
here=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
cd "$here"

fail() {
    echo "test-windows-zip: $1" >&2
    exit 1
}

scripts/install-packages.sh windows
if [ $# -lt 2 ]; then
    scripts/install-packages.sh demo
    cmake --preset demo
    cmake --build --preset demo --parallel "$(nproc)" --target kip_tool
fi

# Away from the sources: what is found is found in the folder.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/a folder"
unzip -q "$zip" -d "$work/a folder"
folder=$(echo "$work/a folder"/*)
[ -d "$folder" ] || fail "$zip holds more than one folder"
export WINEPATH="Z:$folder/bin"
wine=("$here/scripts/wine.sh" "$work/wine")

for file in README.txt CHANGELOG.md bin/kip.exe share/doc/kip/index.html share/licenses/kip/LICENSE; do
    [ -s "$folder/$file" ] || fail "there is no $file"
done
# Of parts that are in every archive; build-windows-zip.sh knows all of them.
for part in libpng1.6 tiff libz-mingw-w64-dev libcli11-dev gcc-mingw-w64-x86-64-posix mingw-w64-x86-64-dev; do
    [ -s "$folder/share/licenses/$part/copyright" ] || fail "there is no licence of $part"
done

build() { # SOURCE BUILD OPTION...
    local source=$1 build=$2
    shift 2
    { cmake -S "$source" -B "$build" -G Ninja -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SYSTEM_PROCESSOR=AMD64 \
        -DCMAKE_PREFIX_PATH="$folder" -DCMAKE_BUILD_TYPE=Release "$@" && cmake --build "$build"; } >"$work/log" 2>&1 ||
        { cat "$work/log" >&2 && fail "$source could not be built"; }
}

# The README's programs, by MinGW.
cp -r examples/straighten "$work/straighten"
build "$work/straighten" "$work/mingw" -DCMAKE_C_COMPILER=x86_64-w64-mingw32-gcc-posix \
    -DCMAKE_CXX_COMPILER=x86_64-w64-mingw32-g++-posix -DCMAKE_EXE_LINKER_FLAGS=-static
for program in straighten_c straighten_cpp; do
    "${wine[@]}" "$work/mingw/$program.exe" | tr -d '\r' | cmp - tests/package/straighten.txt ||
        fail "$program prints the wrong picture"
done

# As for Microsoft's compiler, whose headers and runtime are not to be had here: kip's headers need three that every
# compiler brings and <wchar.h>, for wchar_t.
cp -r tests/package/freestanding "$work/freestanding"
mkdir "$work/freestanding/include"
echo '#include <stddef.h>' >"$work/freestanding/include/wchar.h"
build "$work/freestanding" "$work/msvc" -DCMAKE_C_COMPILER=clang -DCMAKE_C_COMPILER_TARGET=x86_64-pc-windows-msvc \
    -DCMAKE_C_FLAGS="-ffreestanding -Wall -Wextra -Werror -isystem $work/freestanding/include" \
    -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY -DCMAKE_C_STANDARD_LIBRARIES= -DCMAKE_MSVC_RUNTIME_LIBRARY=
grep -qF '/lib/kip.lib' "$work/msvc/build.ninja" || fail "CMake does not take kip.lib for Microsoft's linker"
status=0
"${wine[@]}" "$work/msvc/quarter_turn.exe" || status=$?
[ "$status" -eq 42 ] || fail "quarter_turn.exe, linked with kip.lib, ends with $status, not 42"

# Pictures straightened by either tool.
straighten() { # DIRECTORY TOOL...
    local extension depth options
    mkdir "$1" && cd "$1"
    shift
    for extension in png tif pgm; do
        for depth in 8 16; do
            options=$("$@" scene "scene$depth.$extension" --depth "$depth" | tr -d '\r')
            # shellcheck disable=SC2086 # the options are words
            "$@" transform "scene$depth.$extension" "label$depth.$extension" $options --mode cubic
        done
    done
}
(straighten "$work/linux" "$tool")
(straighten "$work/windows" "${wine[@]}" "$folder/bin/kip.exe")
diff -rq "$work/linux" "$work/windows" || fail "the tool makes other files than this machine's"
echo "test-windows-zip: programs run by MinGW and by Clang; $(find "$work/linux" -type f | wc -l) files of the tool" \
    "are the same byte for byte"
