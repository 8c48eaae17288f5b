#!/usr/bin/env bash
# Runs the suite and counts which branches of src and services it takes. Ends with status 1 below the bar.
#
#   scripts/coverage.sh [PERCENT]      95
#
# Branches that only an exception takes, and those that the compiler adds, do not count; GCOVR_EXCL marks in the sources
# leave out what no test can reach, each with its reason. build/coverage/branches.txt lists what was not taken.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bar=${1:-95}
scripts/install-packages.sh coverage
cmake --preset coverage
cmake --build --preset coverage --parallel "$(nproc)"
find build/coverage -name '*.gcda' -delete # counts of earlier runs, maybe of other sources
ctest --preset coverage --parallel "$(nproc)"

# Kernels that this processor lacks were skipped, and with them what only they use.
lacking=()
features=$(grep -m 1 '^flags' /proc/cpuinfo || true)
case $features in *avx2*) ;; *) lacking+=(--exclude 'src/.*_avx2\.') ;; esac
case $features in *avx512_vbmi*) ;; *) lacking+=(--exclude 'src/.*_avx512\.') ;; esac

# A worker may be between two counters when its process ends; gcov then makes out a count of -1, which is no error.
gcovr --root . --object-directory build/coverage --filter src/ --filter services/ "${lacking[@]}" \
    --gcov-ignore-parse-errors --exclude-throw-branches --exclude-unreachable-branches --branches --sort-percentage \
    --txt build/coverage/branches.txt --print-summary --fail-under-branch "$bar" >build/coverage/summary.txt || failed=1
cat build/coverage/summary.txt
if [ -n "${failed:-}" ]; then
    cat build/coverage/branches.txt
    exit 1
fi
