#!/usr/bin/env bash
# Sets up what is needed and passes the tests: with GCC, optimised; with Clang under the address and
# undefined-behaviour sanitizers, where every fuzz target reads its committed corpus, and nothing of
# chance; readers beside an owner under the thread sanitizer; then the first use on a bare system.
#   ./test.sh quick     the GCC build and its tests only
#   ./test.sh nightly   all of it, and the long proofs: a minute of chance for every fuzz target, other
#                       programs that read what is exported, site, packages, both scripts in bare
#                       systems
set -euo pipefail
cd "$(dirname "$0")"
. ./cmake/setup.sh

mode=${1:-landing}
case "$mode" in
  quick | landing | nightly) ;;
  *) stop "unknown argument \"$mode\": quick, nightly or nothing" ;;
esac

need_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
choose_components all

# so_far WHAT: the time since the start and what the processors did in it, in minutes.
so_far() {
  times >build/times # a pipe would ask a process without children
  awk -v what="$1" -v wall="$SECONDS" -F '[ms ]' '
    { spent += $1 * 60 + $2 + $4 * 60 + $5 }
    END { printf "%s: after %.1f min, %.1f min of processor\n", what, wall / 60, spent / 60 }' build/times
}

echo "Formatting"
git ls-files -z -- '*.h' '*.cpp' | xargs -0 clang-format --dry-run --Werror

# run_tests PRESET: all tests, telling only of those that did not pass.
run_tests() {
  ctest --preset "$1" -j 2 --output-on-failure | grep -vE '^ *Start|  Passed '
}

build release
so_far "Release built"
run_tests release
so_far "Release tested"
[ "$mode" = quick ] && exit

build sanitize
so_far "Sanitizers built"
export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 LSAN_OPTIONS=print_suppressions=0
run_tests sanitize
so_far "Sanitizers tested"

echo "Readers beside an editing owner, under the thread sanitizer"
if ! { cmake -S tests/threads -B build/threads -G Ninja -DCMAKE_CXX_COMPILER=clang++ &&
       cmake --build build/threads --target check; } >build/threads.log 2>&1; then
  tail -n 40 build/threads.log >&2
  stop "a race, or a build that failed; the whole log is build/threads.log"
fi

so_far "Threads tested"

packaging/first-use.sh run
so_far "First use tried"
[ "$mode" = landing ] && exit

fuzz/run.sh all 60
echo "Files that were exported, read by other programs"
need_packages "${ORACLE_PACKAGES[@]}"
ctest --preset release -R '^python.oracles$' --output-on-failure

docs/build.sh
packaging/check-packages.sh
packaging/first-use.sh test
packaging/first-use.sh run-test
packaging/first-use.sh test-run
