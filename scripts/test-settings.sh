#!/usr/bin/env bash
# Runs a built suite again as if the processor had only some of its instructions, with the optimised kernels
# forbidden, and with other numbers of threads. Left out are the tests of the packages, of what the processor is and of
# unloading the libraries, which the settings themselves keep loaded, the guide's examples, and the boundary cases and
# the model test, which make each call under such settings themselves.
#
#   scripts/test-settings.sh BUILD-DIRECTORY [CTEST-ARGUMENT...]
set -euo pipefail
build=$(realpath "$1")
shift
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
library=$build/tests/libkip_run_settings.so

while read -r setting; do
    if ! env "$setting" LD_PRELOAD="$library" true; then
        echo "$setting: not on this processor"
        continue
    fi
    echo "==== $setting"
    env "$setting" LD_PRELOAD="$library" ctest --test-dir "$build" --output-on-failure --parallel "$(nproc)" \
        --exclude-regex '^(boundary|guide|package|python|settings|ProcessorInformation|Unload)\.|/SamplingModel\.' "$@" | grep -vE '^ *[0-9]+/[0-9]+ |^ +Start '
done <"$here/tests/settings/settings.txt"
