#!/usr/bin/env bash
# Makes the archive for 64-bit Windows: the libraries with their import libraries for MinGW and for Microsoft's linker,
# headers, CMake package, tool, guide, and the licence of every part. The same sources give the same bytes.
#
#   scripts/build-windows-zip.sh [OUT-DIR]     build/windows-zip unless said otherwise
#
# Builds go on in build/windows, build/windows-codecs and build/docs. SOURCE_DATE_EPOCH is the time that all files get:
# unless set, that of the last commit.
set -euo pipefail
out=$(realpath --canonicalize-missing "${1:-$(dirname "${BASH_SOURCE[0]}")/../build/windows-zip}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
    echo "build-windows-zip: $1" >&2
    exit 1
}

# A source archive has no commits; its files have the time of the one that it was made of.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -c safe.directory="$PWD" log -1 --format=%ct 2>/dev/null ||
    stat --format=%Y CMakeLists.txt)}
export SOURCE_DATE_EPOCH LC_ALL=C TZ=UTC

scripts/install-packages.sh windows docs
scripts/build-windows-codecs.sh
cmake --preset windows -DKIP_TOOL_CODECS=ON
cmake --build --preset windows --parallel "$(nproc)" --target kip kip_services kip_tool
cmake --preset docs
cmake --build --preset docs --parallel "$(nproc)"

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/windows/CMakeCache.txt)
name=kip-$version-windows-x86_64
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/$name
licenses=$root/share/licenses

cmake --install build/windows --prefix "$root" --strip >/dev/null
for library in kip kip_services; do
    [ -f "$root/lib/$library.lib" ] || fail "there is no $library.lib: llvm-dlltool was not found"
done
mkdir -p "$root/share/doc"
cp -r build/docs/docs/html "$root/share/doc/kip"
rm -rf "$root/share/doc/kip/.doctrees" "$root/share/doc/kip/.buildinfo"
cp CHANGELOG.md "$root/"
cat >"$root/README.txt" <<END
kip $version for 64-bit Windows

bin\\                   kip.exe, the tool; kip.dll and kip_services.dll, which programs need beside them
include\\, lib\\         for programs: kip.lib and kip_services.lib for Microsoft's linker and those that take its
                       libraries, libkip.dll.a and libkip_services.dll.a for MinGW
lib\\cmake\\kip\\         find_package(kip) of CMake finds it with this folder in CMAKE_PREFIX_PATH
share\\doc\\kip\\         the guide: open index.html
share\\licenses\\        the licences of kip and of all that is linked into the files above or shown in the guide

The folder can lie anywhere.
END

# What became part of the programs: archives' members and start-up objects, as the linker wrote down, and headers, as
# the compiler did. Run in the directory of the build.
parts() {
    sed -nE 's/^([^ ].*\.a)\([^)]*\)$/\1/p; s/^LOAD (.*\.o)$/\1/p' {kip,kip_services,kip_tool}.map
    ninja -t deps | sed -nE '/^(src|services|tools)\//,/^$/s/^    //p'
}

# The licences of files of Debian's packages.
add_packages() { # PACKAGE...
    local package
    for package in "$@"; do
        mkdir -p "$licenses/$package"
        cp "/usr/share/doc/$package/copyright" "$licenses/$package/" || fail "$package has no licence"
    done
}

(cd build/windows && parts | sort -u | xargs -d '\n' realpath | sort -u) >"$work/parts"
codecs=$PWD/build/windows-codecs
for source in "$codecs"/share/licenses/*/; do
    # Headers alone may come from it, too.
    sed "s|^|$codecs/|" "$source/files" | xargs -d '\n' realpath | sort -u | comm -12 - "$work/parts" >"$work/taken"
    [ -s "$work/taken" ] || continue
    cat "$work/taken" >>"$work/licensed"
    mkdir -p "$licenses/$(basename "$source")"
    cp "$source/copyright" "$licenses/$(basename "$source")/"
done
grep "^$codecs/" "$work/parts" | comm -23 - <(sort -u "$work/licensed") >"$work/unlicensed"
[ ! -s "$work/unlicensed" ] || fail "no licence is known of $(tr '\n' ' ' <"$work/unlicensed")"
grep -v "^$PWD/" "$work/parts" >"$work/foreign"
xargs -d '\n' dpkg-query --search <"$work/foreign" >"$work/owners" || fail "a part is of no package"
mapfile -t packages < <(sed -E 's/:.*//' "$work/owners" | sort -u)
add_packages "${packages[@]}"
# What the pages of the guide take along: Sphinx' and the theme's scripts and styles, and photographs.
add_packages furo libjs-jquery libjs-underscore python3-pygments python3-skimage sphinx-common
# Full texts that these only name.
grep -rhoE '/usr/share/common-licenses/[A-Za-z0-9.+-]*[A-Za-z0-9]' "$licenses" | sort -u | while read -r text; do
    [ ! -f "$text" ] || install -D --mode=644 "$text" "$licenses/common-licenses/${text##*/}"
done

if grep -rlF -e "$PWD" -e "$work" "$root" >"$work/local"; then
    fail "these hold a path of this machine: $(tr '\n' ' ' <"$work/local")"
fi

chmod -R u=rwX,go=rX "$root"
find "$root" -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +
mkdir -p "$out"
rm -f "$out/$name.zip"
(cd "$work" && find "$name" -type f | sort | zip -X -q -9 -@ "$out/$name.zip")
echo "build-windows-zip: $out/$name.zip, parts of: ${packages[*]}"
