#!/usr/bin/env bash
# Builds and runs the benchmarks; arguments choose some of those that main.cpp lists, or "qt_lists".
# QX_THREADS=2 lets the library use two threads where it can; it uses one without it.
set -euo pipefail
cd "$(dirname "$0")/.."
. ./cmake/setup.sh
need_packages "${BUILD_PACKAGES[@]}" libabsl-dev libboost-dev qt6-base-dev
SWITCHES=(-DQX_QT=ON -DQX_OCCT=OFF -DQX_VIEWER=OFF -DQX_EXODUS=OFF -DQX_PYTHON=OFF -DQX_TESTS=OFF)
build bench
if [ $# = 0 ] || [ "$1" = qt_lists ]; then
  QT_QPA_PLATFORM=offscreen build/bench/bin/bench_qt_lists
fi
[ "${1:-}" = qt_lists ] || build/bench/bin/bench_qx "$@"
