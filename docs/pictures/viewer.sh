#!/usr/bin/env bash
# Draws the pictures of docs/viewer.md and README.md anew: docs/pictures/viewer.sh [QXDB].
set -euo pipefail
cd "$(dirname "$0")"
qxdb=$(realpath "${1:-../../build/release/bin/qxdb}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
model=$work/bracket.qxm

"$qxdb" import ../../examples/bracket.msh "$model" >/dev/null
"$qxdb" picture "$model" viewer-sets.png --force --size 1100x720
"$qxdb" picture "$model" viewer-quality.png --force --size 1100x720 --color scaled-jacobian --cut y=0.5
"$qxdb" edit move "$model" 4000-4200 --by 0 0 0.4 >/dev/null
"$qxdb" delete "$model" elem 3000-3060 >/dev/null
"$qxdb" picture "$model" viewer-history.png --force --size 1100x720 --changes
