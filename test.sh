#!/usr/bin/env bash
# Sets up what is needed and passes the tests: with GCC, optimised, and with Clang under the
# address and undefined-behaviour sanitizers, with a short run of every fuzz target.
# "./test.sh quick" leaves out the second.
set -euo pipefail
cd "$(dirname "$0")"
. ./cmake/setup.sh

need_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"

echo "Formatting"
git ls-files -z -- '*.h' '*.cpp' | xargs -0 clang-format --dry-run --Werror

# run_tests PRESET: all tests, telling only of those that did not pass.
run_tests() {
  ctest --preset "$1" -j 2 --output-on-failure | grep -vE '^ *Start|  Passed '
}

build release
run_tests release
[ "${1:-}" = quick ] && exit

build sanitize
export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1
run_tests sanitize
