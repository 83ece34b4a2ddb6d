#!/bin/sh
# Draws the pictures of docs/local-axes.md: draw.sh <path of qxdb>
set -e
qxdb=$(realpath "$1")
cd "$(dirname "$0")"
model=$(mktemp -u).qxm
trap 'rm -f "$model"' EXIT
"$qxdb" import local-axes.json "$model" >/dev/null
draw() { "$qxdb" axes "$model" "$2" $3 --svg "axes-$1.svg" >/dev/null; }
draw line 1-5
draw plane 11-13
draw special 21-26
draw boundary 31-36
draw material 41-44 --material
