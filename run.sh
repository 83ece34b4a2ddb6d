#!/usr/bin/env bash
# Sets up what is needed, builds, and runs the main job on a real part: import, edit, undo, redo,
# save; then, each in a process of its own, open, verify, summarise and export.
set -euo pipefail
cd "$(dirname "$0")"
. ./cmake/setup.sh

need_packages "${BUILD_PACKAGES[@]}"
build release main_job qxdb

out=out
mkdir -p "$out"
bin=build/release/bin
"$bin/main_job" examples/bracket.msh "$out/bracket.qxm"
echo "Open it in a fresh process: verify, summarise, export"
"$bin/qxdb" verify "$out/bracket.qxm" | sed 's/^/  /'
"$bin/qxdb" info "$out/bracket.qxm" | sed 's/^/  /'
"$bin/qxdb" export "$out/bracket.qxm" "$out/bracket.vtu" | sed 's/^/  /'
echo "Left behind: $out/bracket.qxm (the model), $out/bracket.vtu (for ParaView and the like)"
