#!/usr/bin/env bash
# Builds kip and runs its whole test suite. Installs what is missing first (Debian; see scripts/).
#
#   ./test.sh [--preset NAME | --windows [--allow-pgm]] [--jobs N] [CTEST-ARGUMENT...]
#
# NAME is a preset of CMakePresets.json: dev (default), release, asan, tsan, clang, or, for other processors under
# QEMU, aarch64 or s390x. Further arguments go to ctest, for example: ./test.sh --preset asan -R Transform
#
# --windows builds for 64-bit Windows by MinGW-w64 and runs the suite under Wine; then the tool of that build and the
# one of this machine make the demo's pictures, which must be the same files. The codecs for Windows are built
# from Debian's sources; where those cannot be had, --allow-pgm goes on without them, with a tool that knows PGM alone.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

preset=dev
jobs=$(nproc)
allow_pgm=
while [ $# -gt 0 ]; do
    case $1 in
    --preset | --jobs)
        [ $# -ge 2 ] || { echo "test.sh: $1 needs a value" >&2; exit 2; }
        if [ "$1" = --preset ]; then preset=$2; else jobs=$2; fi
        shift 2
        ;;
    --windows)
        preset=windows
        shift
        ;;
    --allow-pgm)
        allow_pgm=1
        shift
        ;;
    -h | --help)
        sed -n '2,/^set /{s/^# \{0,1\}//;/^set /d;p}' "$0"
        exit 0
        ;;
    *) break ;;
    esac
done

purposes=(test)
case $preset in clang | windows | aarch64 | s390x) purposes+=("$preset") ;; esac
scripts/install-packages.sh "${purposes[@]}"

# The thread sanitizer of GCC 12 cannot place its memory where kernels randomise addresses strongly.
runner=()
if [ "$preset" = tsan ] && setarch --addr-no-randomize true 2>/dev/null; then
    runner=(setarch --addr-no-randomize)
fi

codecs=() comparison=()
if [ "$preset" = windows ] && ! scripts/build-windows-codecs.sh; then
    [ -n "$allow_pgm" ] || exit 1
    echo "test.sh: the tool for Windows is built without PNG and TIFF; their tests are left out" >&2
    codecs=(-DKIP_TOOL_CODECS=OFF) comparison=(--pgm)
fi

cmake --preset "$preset" "${codecs[@]}"
"${runner[@]}" cmake --build --preset "$preset" --parallel "$jobs"
"${runner[@]}" ctest --preset "$preset" --parallel "$jobs" "$@"

if [ "$preset" = windows ]; then
    ./demo.sh # builds this machine's tool and fetches the photograph
    scripts/compare-tools.sh "${comparison[@]}" build/windows/pictures build/demo/tools/kip \
        scripts/wine.sh "$PWD/build/windows/wine" "$PWD/build/windows/bin/kip.exe"
fi
