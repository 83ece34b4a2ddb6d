#!/usr/bin/env bash
# Builds and runs the benchmarks; arguments choose some of those that main.cpp lists.
set -euo pipefail
cd "$(dirname "$0")/.."
. ./cmake/setup.sh
need_packages "${BUILD_PACKAGES[@]}" libabsl-dev libboost-dev
build bench
exec build/bench/bin/bench_qx "$@"
