#!/usr/bin/env bash
# Sets up what is needed, builds, and runs the main job on a real part: import, edit, undo, redo,
# save; then, each in a process of its own, open, verify, summarise and export.
# "./run.sh --all" installs the optional components' packages, too.
set -euo pipefail
cd "$(dirname "$0")"
. ./cmake/setup.sh

case "${1:-}" in
  "") components=installed ;;
  --all) components=all ;;
  *) stop "unknown argument \"$1\": the only one is --all" ;;
esac

need_packages "${BUILD_PACKAGES[@]}"
choose_components "$components"
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
if [[ " ${SWITCHES[*]} " == *" -DQX_VIEWER=ON "* ]]; then
  "$bin/qxdb" view "$out/bracket.qxm" --html "$out/bracket.html" | sed 's/^/  /'
  echo "Look at it: open $out/bracket.html in a browser, or: $bin/qxdb view $out/bracket.qxm"
fi
cat <<TEXT
Next, try:
  $bin/qxdb log $out/bracket.qxm          what was done to it
  $bin/qxdb check $out/bracket.qxm        faults and quality of the mesh
  $bin/qxdb import YOUR.msh model.qxm     a mesh of your own
  $bin/qxdb help                          all commands
TEXT
