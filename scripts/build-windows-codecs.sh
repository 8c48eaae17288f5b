#!/usr/bin/env bash
# Builds libpng, libjpeg-turbo and libtiff for 64-bit Windows, from Debian's sources of them and against Debian's zlib
# for MinGW-w64, into build/windows-codecs: static, once. Debian has no packages of the three for Windows.
# share/licenses/<source> there holds the source's licence and the list of its files.
#
#   scripts/build-windows-codecs.sh
#
# The sources come through apt-get from wherever this machine's packages come from. The machine's own lists and
# configuration stay as they are.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

toolchain=$PWD/cmake/mingw-w64.cmake
prefix=$PWD/build/windows-codecs
sources="libpng1.6 libjpeg-turbo tiff" # in the order in which they need each other
[ "$(cat "$prefix/complete" 2>/dev/null)" != "$sources" ] || [ ! -d "$prefix/share/licenses" ] || exit 0

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/{parts,lists/partial,cache/archives/partial}

# What the machine has as binaries, as sources, of either format of lists: "deb ..." lines and "Types: deb" records.
derive_lists() {
    local directory file list=0
    eval "$(apt-config shell directory Dir::Etc::sourceparts/d file Dir::Etc::sourcelist/f)"
    for file in "$file" "$directory"/*.list "$directory"/*.sources; do
        [ -f "$file" ] || continue
        list=$((list + 1))
        case $file in
        *.sources) sed -E 's/^Types:.*/Types: deb-src/' "$file" >"$work/parts/$list.sources" ;;
        *) sed -nE 's/^[[:space:]]*deb([[:space:]])/deb-src\1/p' "$file" >"$work/parts/$list.list" ;;
        esac
    done
}

own=(-o Dir::Etc::sourcelist=/dev/null -o "Dir::Etc::sourceparts=$work/parts"
    -o "Dir::State::lists=$work/lists" -o "Dir::Cache=$work/cache" -o APT::Sandbox::User=root)

# The version that this machine builds with or else the newest that is to be had: a mirror can list a version whose
# files it lacks. Debian's versions of a release differ in repairs alone, not in what the encoders write.
fetch() { # SOURCE-PACKAGE BINARY-PACKAGE
    local version
    for version in $(dpkg-query --show --showformat='${source:Version}' "$2" 2>/dev/null) \
        $(apt-cache "${own[@]}" showsrc --only-source "$1" | sed -n 's/^Version: //p' | sort -ruV); do
        rm -f "$work/$1"_*
        (cd "$work" && apt-get -q "${own[@]}" source --download-only "$1=$version") >>"$work/log" 2>&1 </dev/null ||
            continue
        dpkg-source --no-check -x "$work/$1"_*.dsc "$work/$1" >>"$work/log" 2>&1 || continue
        echo "build-windows-codecs: $1 $version"
        return 0
    done
    return 1
}

build() { # SOURCE-PACKAGE OPTION...
    local source=$work/$1 licenses=$prefix/share/licenses/$1
    shift
    # Asserts name their file, which shall be the same wherever the sources lie.
    cmake -S "$source" -B "$source-build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_C_FLAGS="-ffile-prefix-map=$work=." -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_SHARED_LIBS=OFF "$@" &&
        cmake --build "$source-build" --parallel "$(nproc)" && cmake --install "$source-build" || return 1
    mkdir -p "$licenses" && cp "$source/debian/copyright" "$licenses/" &&
        sed "s|^$prefix/||" "$source-build/install_manifest.txt" >"$licenses/files"
}

binary_of() { # SOURCE-PACKAGE
    case $1 in
    libpng1.6) echo libpng-dev ;;
    libjpeg-turbo) echo libjpeg62-turbo-dev ;;
    tiff) echo libtiff-dev ;;
    esac
}

# libjpeg-turbo's assembler needs a program more and gives the same pixels as its C.
options_of() { # SOURCE-PACKAGE
    case $1 in
    libpng1.6) echo -DPNG_SHARED=OFF -DPNG_TESTS=OFF ;;
    libjpeg-turbo) echo -DENABLE_SHARED=OFF -DWITH_SIMD=OFF -DWITH_TURBOJPEG=OFF ;;
    tiff)
        echo -Dtiff-tools=OFF -Dtiff-tests=OFF -Dtiff-contrib=OFF -Dtiff-docs=OFF -Dcxx=OFF -Djpeg=ON -Djbig=OFF \
            -Dlerc=OFF -Dlibdeflate=OFF -Dlzma=OFF -Dwebp=OFF -Dzstd=OFF
        ;;
    esac
}

fail() {
    cat "$work/log" >&2
    echo "build-windows-codecs: $1" >&2
    exit 1
}

echo "build-windows-codecs: fetching and building libpng, libjpeg-turbo and libtiff (build/windows-codecs)"
rm -rf "$prefix"
derive_lists
# A list without sources is an error of apt-get's, but not of ours while another list has them.
apt-get -q "${own[@]}" update >"$work/log" 2>&1 </dev/null || true
for name in $sources; do
    fetch "$name" "$(binary_of "$name")" || fail "the source of $name cannot be had"
    # shellcheck disable=SC2046 # the options are words
    build "$name" $(options_of "$name") >>"$work/log" 2>&1 || fail "$name cannot be built"
done
echo "$sources" >"$prefix/complete"
