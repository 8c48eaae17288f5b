#!/usr/bin/env bash
# Installs the Debian packages that a purpose needs, and only those that are missing.
#
#   scripts/install-packages.sh PURPOSE...     build | test | demo | bench | docs | clang | windows | aarch64 | s390x |
#                                              fuzz | coverage | memcheck | packages | abi | release | ci
#
# apt-get runs only when something is missing, through sudo for users other than root. Ends with status 1
# when a package stays missing. KIP_SKIP_PACKAGES=1 skips everything, for machines set up another way.
set -euo pipefail

build_packages="g++ cmake ninja-build pkg-config libcli11-dev libjpeg-dev libpng-dev libtiff-dev"
python_packages="python3-dev pybind11-dev python3-numpy python3-pip python3-setuptools python3-wheel"
python_packages+=" python3-pytest python3-hypothesis python3-skimage python3-opencv python3-matplotlib python3-pil mypy"

packages_for() {
    case $1 in
    build) echo "$build_packages" ;;
    demo) echo "$build_packages python3-dev pybind11-dev python3-numpy python3-pil librsvg2-bin fonts-dejavu-core" ;;
    test) echo "$build_packages $python_packages libgtest-dev libopencv-dev" ;;
    bench) echo "$build_packages libbenchmark-dev libopencv-dev" ;;
    docs) echo "$(packages_for test) doxygen furo python3-breathe python3-myst-parser python3-sphinx" ;;
    clang) echo "$build_packages clang libclang-rt-dev" ;;
    fuzz) echo "$(packages_for clang) libgtest-dev" ;;
    coverage) echo "$(packages_for test) gcovr" ;;
    memcheck) echo "$(packages_for test) valgrind" ;;
    windows)
        echo "$build_packages g++-mingw-w64-x86-64-posix libz-mingw-w64-dev dpkg-dev googletest wine wine64"
        echo "clang lld llvm zip unzip" # import libraries for Microsoft's linker, and the archive
        ;;
    packages)
        echo "$(packages_for docs) build-essential debhelper dh-python libjpeg-dev"
        echo "autopkgtest lintian mmdebstrap" # for scripts/test-packages.sh
        ;;
    abi) echo "cmake abigail-tools" ;;
    release) echo "$(packages_for packages) $(packages_for windows) $(packages_for abi) git xz-utils" ;;
    aarch64 | s390x) echo "$(packages_for test) g++-$1-linux-gnu googletest qemu-user" ;;
    ci)
        echo "$(packages_for coverage) $(packages_for fuzz) $(packages_for aarch64) $(packages_for s390x)"
        echo "$(packages_for release)"
        echo "libbenchmark-dev valgrind git clang-format clang-tidy clang-tools cppcheck"
        ;;
    *)
        echo "install-packages: unknown purpose '$1'; known: build test demo bench docs clang windows aarch64 s390x" \
            "fuzz coverage memcheck packages abi release ci" >&2
        return 1
        ;;
    esac
}

is_installed() {
    [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

missing_of() {
    local package
    for package in "$@"; do
        is_installed "$package" || echo "$package"
    done
}

if [ $# -eq 0 ]; then
    echo "usage: $0 build|test|demo|bench|docs|clang|windows|aarch64|s390x|fuzz|coverage|memcheck|packages|abi|release|ci ..." >&2
    exit 2
fi
wanted=""
for purpose in "$@"; do
    wanted+=" $(packages_for "$purpose")"
done
wanted=$(tr ' ' '\n' <<<"$wanted" | sed '/^$/d' | sort -u)

if [ -n "${KIP_SKIP_PACKAGES:-}" ]; then
    exit 0
fi
if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "install-packages: no Debian package manager here; going on as if these were present:" $wanted >&2
    exit 0
fi

missing=$(missing_of $wanted)
if [ -z "$missing" ]; then
    exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "install-packages: needs root or sudo to install; as root, run: apt-get install" $missing >&2
        exit 1
    fi
    as_root=(sudo)
fi
echo "install-packages: installing" $missing
apt_get=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300)
# Stale package lists name files that the mirror no longer has; an unreachable mirror may still be in the cache.
"${apt_get[@]}" update </dev/null || echo "install-packages: the package lists could not be updated" >&2
"${apt_get[@]}" install --no-install-recommends $missing </dev/null >&2 || true

missing=$(missing_of $wanted)
if [ -n "$missing" ]; then
    echo "install-packages: could not install:" $missing >&2
    exit 1
fi
