#!/usr/bin/env bash
# Runs every fuzzer for some time on its part of the corpus, as many at once as there are processors. Ends with status 1
# after a finding.
#
#   scripts/fuzz.sh [SECONDS [FUZZER...]]      60 seconds each; transform, clipped_transform, projection, geometry,
#                                              pictures
#
# Inputs that reach something new are kept in build/fuzz/found, and a later run starts from them too. An input that
# fails is kept in build/fuzz/failed; the fuzzer, given that file alone, shows the failure again.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=${1:-60}
shift || true
fuzzers=("$@")
if [ ${#fuzzers[@]} -eq 0 ]; then
    fuzzers=(transform clipped_transform projection geometry pictures)
fi

scripts/install-packages.sh fuzz
targets=("${fuzzers[@]/%/_fuzzer}")
cmake --preset fuzz
cmake --build --preset fuzz --parallel "$(nproc)" --target "${targets[@]}"

export UBSAN_OPTIONS=print_stacktrace=1
run_fuzzer() {
    local fuzzer=$1 found=build/fuzz/found/$1
    mkdir -p "$found" "build/fuzz/failed/$fuzzer"
    # A run beyond 20 s counts as endless.
    "build/fuzz/fuzz/${fuzzer}_fuzzer" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -max_len=2048 \
        -len_control=0 \
        -print_final_stats=1 -artifact_prefix="build/fuzz/failed/$fuzzer/" \
        "$found" "fuzz/corpus/$fuzzer" >"build/fuzz/$fuzzer.log" 2>&1
}

printf '\n== %s: %d s each, %d at once\n' "${fuzzers[*]}" "$seconds" "$(nproc)"
declare -A running=()
for fuzzer in "${fuzzers[@]}"; do
    while [ "$(jobs -pr | wc -l)" -ge "$(nproc)" ]; do
        wait -n || true # asked again below
    done
    run_fuzzer "$fuzzer" &
    running[$fuzzer]=$!
done
failed=()
for fuzzer in "${fuzzers[@]}"; do
    wait "${running[$fuzzer]}" || failed+=("$fuzzer")
    printf '\n== %s\n' "$fuzzer"
    tail -n 8 "build/fuzz/$fuzzer.log"
done

if [ ${#failed[@]} -gt 0 ]; then
    for fuzzer in "${failed[@]}"; do
        printf '\n== finding of %s\n' "$fuzzer"
        grep -v -E '^#[0-9]+\s+(NEW|REDUCE|pulse|INITED|READ|RELOAD)' "build/fuzz/$fuzzer.log" | tail -n 80
    done
    exit 1
fi
