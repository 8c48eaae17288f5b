#!/usr/bin/env bash
# Runs cppcheck on the libraries and the tool. Ends with status 1 after a finding; .cppcheck lists what is no finding.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mkdir -p build/cppcheck
cppcheck --quiet --std=c++20 --language=c++ --enable=warning,performance,portability,style --error-exitcode=1 \
    --suppressions-list=.cppcheck --cppcheck-build-dir=build/cppcheck -j "$(nproc)" \
    -Iinclude -Iservices -Isrc -Itools -D__x86_64__ -D__linux__ -D__GNUC__=12 src services tools
