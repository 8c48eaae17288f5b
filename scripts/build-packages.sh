#!/usr/bin/env bash
# Builds the Debian packages of what is committed.
#
#   scripts/build-packages.sh [OUT-DIR]
#
# OUT-DIR (build/packages) receives the packages, their source (.dsc, .tar.xz), .changes and .buildinfo; packages that
# it already holds go. Installs what is missing first (Debian; see scripts/install-packages.sh), and needs no network
# otherwise. Two builds of one commit give the same packages and the same source, wherever they take place.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

[ $# -le 1 ] && [[ ${1-} != -* ]] || { sed -n '/^#   scripts/s/^# *//p' "$0" >&2; exit 2; }
out=$(realpath --canonicalize-missing "${1-build/packages}")

scripts/install-packages.sh packages

umask 022 # the modes of files are part of the source
work=$(mktemp -d "${TMPDIR:-/tmp}/kip-packages.XXXXXX")
trap 'rm -rf "$work"' EXIT
tree="$work/kip-$(dpkg-parsechangelog --show-field Version)"
mkdir "$tree"
# The clone may belong to another user than the one who runs this.
git -c safe.directory="$PWD" archive HEAD | tar -x -C "$tree"

echo "build-packages: building in $tree"
# What the caller's environment has for compilers, or another Python, is none of the packages' business.
if ! (cd "$tree" && unset CFLAGS CXXFLAGS CPPFLAGS LDFLAGS PYTHONPATH &&
    PATH=/usr/sbin:/usr/bin:/sbin:/bin DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS-} parallel=$(nproc)" \
        dpkg-buildpackage --unsigned-source --unsigned-changes) >"$work/log" 2>&1 </dev/null; then
    tail -n 100 "$work/log" >&2
    echo "build-packages: the build failed" >&2
    exit 1
fi

mkdir -p "$out"
results='.*\.\(deb\|dsc\|tar\.xz\|changes\|buildinfo\)'
find "$out" -maxdepth 1 -type f -regex "$results" -delete
find "$work" -maxdepth 1 -type f -regex "$results" -exec mv -t "$out" {} +
ls "$out"
