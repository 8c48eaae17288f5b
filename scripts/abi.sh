#!/usr/bin/env bash
# Compares the binary interface of both libraries with the last release's, which abi/ describes. Ends with status 1 when
# programs that were built with that release could not run with these libraries: a function or variable is missing or
# takes other arguments, a struct has other members. What is new is told and allowed, and so is everything once the
# libraries have another SONAME.
#
#   scripts/abi.sh [BUILD-DIR]             build/dev unless said otherwise: libraries with debug information
#   scripts/abi.sh --write [BUILD-DIR]     describes these libraries in abi/, as those of a release
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

write=
if [ "${1-}" = --write ]; then
    write=1
    shift
fi
build=${1:-build/dev}
scripts/install-packages.sh abi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The installed headers say which types a program can know: all others may change.
cmake --install "$build" --prefix "$work/installed" >/dev/null

# Nothing of the machine, of the compiler's choices or of the order of lines in a source goes into the description.
describe() { # LIBRARY
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-architecture --no-parameter-names \
        --no-write-default-sizes --type-id-style hash --exported-interfaces-only --drop-undefined-syms \
        --drop-private-types --headers-dir "$work/installed/include" "$work/installed/lib/lib$1.so" |
        sed -E "/^  <abi-instr /s#( path=')[^']*/((src|services)/[^']*')#\1\2#" >"$work/lib$1.abi"
    grep -q '<class-decl ' "$work/lib$1.abi" || {
        echo "abi: $build holds no debug information of lib$1" >&2
        exit 1
    }
}

soname() { sed -n "s/^<abi-corpus .*soname='\([^']*\)'.*/\1/p" "$1"; }

failed=0
compare() { # LIBRARY
    local before=abi/lib$1.abi now=$work/lib$1.abi report status=0
    report=$(abidiff "$before" "$now") || true # what is new gives a status of its own
    abidiff --no-added-syms "$before" "$now" >"$work/broken" || status=$?
    if [ $((status & ~12)) -ne 0 ]; then
        echo "abi: abidiff cannot compare lib$1 (status $status)" >&2
        failed=1
    elif [ "$(soname "$before")" != "$(soname "$now")" ]; then
        echo "abi: $(soname "$now") is not $(soname "$before"), and may differ from it"
    elif [ "$status" -ne 0 ]; then
        cat "$work/broken" >&2
        echo "abi: lib$1 breaks programs that were built with the last release" >&2
        failed=1
    elif [ -n "$report" ]; then
        printf '%s\nabi: lib%s has grown and breaks no program\n' "$report" "$1"
    else
        echo "abi: lib$1 is as in the last release"
    fi
}

for library in kip kip_services; do
    describe "$library"
    if [ -n "$write" ]; then
        cp "$work/lib$library.abi" abi/
    else
        compare "$library"
    fi
done
exit "$failed"
