#!/usr/bin/env bash
# Runs a built suite's random calls under Valgrind's memcheck, with the portable kernels and with those for AVX2:
# nothing that the library has not written may reach a result or a branch, and no memory may be lost. Valgrind knows no
# AVX-512, so that programs do not see it there. Ends with status 1 after a finding; nothing is suppressed.
#
#   scripts/memcheck.sh BUILD-DIRECTORY [CASES]      40000 cases of each of two seeds, and the model test
set -euo pipefail
build=$(realpath "$1")
cases=${2:-40000}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

"$here/scripts/install-packages.sh" memcheck
logs=$build/memcheck
rm -rf "$logs"
mkdir -p "$logs"

# The model test runs each call at all levels, and of the boundary cases every 1024 have levels of their own. Pictures
# larger than the caches take long here and read nothing that smaller ones do not.
model="$build/tests/transform/kip_transform_model_test --gtest_brief=1 --gtest_filter=-*LargerThanTheCaches*"
boundary="$build/tests/robustness/kip_boundary --cases $cases --seed"
commands=("$model" "$model" "$boundary 101" "$boundary 102")
export GTEST_TOTAL_SHARDS=2 # one for each of the model test's two runs
check() { # NUMBER
    # shellcheck disable=SC2086 # the command is words
    GTEST_SHARD_INDEX=$1 valgrind --quiet --error-exitcode=1 --leak-check=full \
        --errors-for-leak-kinds=definite,possible --num-callers=20 ${commands[$1]} >"$logs/$1.log" 2>&1
}

running=()
for n in "${!commands[@]}"; do
    while [ "$(jobs -pr | wc -l)" -ge "$(nproc)" ]; do
        wait -n || true # asked again below
    done
    check "$n" &
    running+=($!)
done
failed=0
for n in "${!commands[@]}"; do
    wait "${running[n]}" || failed=1
    cat "$logs/$n.log"
done
exit "$failed"
