#!/usr/bin/env bash
# Holds the Debian packages of what is committed to their promises.
#
#   scripts/test-packages.sh [OUT-DIR]
#
# Builds them twice, side by side, in two folders and under two locales, time zones and file masks: every package and
# the source must be the same, byte for byte. lintian must say nothing. Then they are installed into an empty Debian
# that has what they depend on and nothing else, they are removed, and not a file may differ from before; last, the tests
# of debian/tests run there, which bring their compilers. OUT-DIR (build/packages) receives the packages.
#
# The empty Debian comes from the mirrors in the machine's own apt configuration. It needs root, or sudo, for chroot and
# device nodes, but no mounts. Installs what is missing first (Debian; see scripts/install-packages.sh).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

[ $# -le 1 ] && [[ ${1-} != -* ]] || { sed -n '/^#   scripts/s/^# *//p' "$0" >&2; exit 2; }
out=$(realpath --canonicalize-missing "${1-build/packages}")

scripts/install-packages.sh packages

as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
work=$(mktemp -d "${TMPDIR:-/tmp}/kip-test-packages.XXXXXX")
trap '"${as_root[@]}" rm -rf "$work"' EXIT
root=$work/root

say() { printf 'test-packages: %s (after %d s)\n' "$1" "$SECONDS"; }

fail() {
    echo "test-packages: $1" >&2
    exit 1
}

# What a process of apt or dpkg in the root does, it does without questions.
in_root() { "${as_root[@]}" chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive "$@"; }

make_root() {
    # shellcheck disable=SC2016 # apt-get fills these in
    apt-get indextargets --format '$(ORIGIN) deb $(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
        sed -n 's/^Debian deb /deb /p' >"$work/sources.list"
    apt-config dump --format '%f "%v";%n' Acquire::http Acquire::https >"$work/apt.conf"
    echo 'APT::Install-Recommends "false";' >>"$work/apt.conf"
    "${as_root[@]}" mmdebstrap --quiet --mode=root --variant=apt --skip=cleanup/apt --dpkgopt=force-unsafe-io \
        --aptopt="$work/apt.conf" '' "$root" "$work/sources.list"
}

# Everything that an installation could leave behind: each file with its kind, mode and content. The exceptions are
# what apt, dpkg and the loader keep of their own work.
list_root() {
    # shellcheck disable=SC2016 # for the shell within
    "${as_root[@]}" env LC_ALL=C bash -c '
        cd "$1"
        not=(-path ./proc -o -path ./sys -o -path ./dev -o -path ./tmp -o -path ./var/lib/apt -o -path ./var/cache/apt)
        not+=(-o -path ./var/cache/ldconfig -o -path ./var/log -o -path ./etc/ld.so.cache)
        not+=(-o -path "./var/lib/dpkg/*" ! -path "./var/lib/dpkg/info*" ! -path "./var/lib/dpkg/alternatives*")
        not+=(-o -path ./var/lib/dpkg/info/format)
        find . \( "${not[@]}" \) -prune -o -printf "%p %y %m %l\n"
        find . \( "${not[@]}" \) -prune -o -type f -print0 | xargs -0 md5sum
    ' list_root "$root" | sort
}

make_root >"$work/root.log" 2>&1 &
root_pid=$!
mkdir "$work/elsewhere"
(
    umask 077
    TMPDIR="$work/elsewhere" TZ=Asia/Kathmandu LC_ALL=C.UTF-8 scripts/build-packages.sh "$work/second" >"$work/second.log" 2>&1
) &
second_pid=$!

say "building"
LC_ALL=C scripts/build-packages.sh "$out"
wait "$second_pid" || { cat "$work/second.log" >&2; fail "the second build failed"; }

say "comparing two builds"
count=0
for file in "$out"/*.deb "$out"/*.dsc "$out"/*.tar.xz; do
    cmp "$file" "$work/second/${file##*/}" || fail "two builds differ"
    count=$((count + 1))
done
[ "$count" -ge 7 ] || fail "only $count files were built"

say "lintian"
lintian --allow-root --display-info --pedantic --tag-display-limit 0 "$out"/*.changes >"$work/lintian" 2>&1 || true
[ ! -s "$work/lintian" ] || { cat "$work/lintian" >&2; fail "lintian has something to say"; }

wait "$root_pid" || { cat "$work/root.log" >&2; fail "no empty Debian could be made"; }

# Not apt, but dpkg installs them: what a package does not declare is then missing. Other packages than ours come before.
say "installing into an empty Debian, and removing"
packages=()
depends=""
for file in "$out"/*.deb; do
    name=$(dpkg-deb --field "$file" Package)
    case $name in *-dbgsym) continue ;; esac
    packages+=("$name")
    "${as_root[@]}" cp "$file" "$root/tmp/"
    depends+="$(dpkg-deb --field "$file" Pre-Depends), $(dpkg-deb --field "$file" Depends), "
done
depends=$(tr ',' '\n' <<<"$depends" | grep -Ev '^ *((lib)?kip|$)' | paste -s -d ,)
{
    in_root apt-get -qq satisfy -y "$depends"
    list_root >"$work/before"
    in_root sh -c 'dpkg --install /tmp/*.deb'
    list_root >"$work/installed"
    in_root kip --version
    in_root python3 -c 'import kip; print(kip.__version__)'
    in_root apt-get -qq purge -y "${packages[@]}"
    list_root >"$work/after"
} >"$work/install.log" 2>&1 || { cat "$work/install.log" >&2; fail "installing failed"; }
grep -q '^./usr/bin/kip f 755 ' "$work/installed" || fail "nothing was installed"
diff "$work/before" "$work/after" || fail "removing leaves something behind, or takes something along"

say "the packages' tests"
debs=()
for name in "${packages[@]}"; do debs+=("$out/$name"_*.deb); done
"${as_root[@]}" autopkgtest --summary-file "$work/summary" "${debs[@]}" "$out"/*.dsc -- chroot "$root" \
    >"$work/autopkgtest.log" 2>&1 || { cat "$work/autopkgtest.log" >&2; fail "a test of the packages failed"; }
cat "$work/summary"
say "done"
