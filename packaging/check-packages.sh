#!/usr/bin/env bash
# Builds the Debian packages from a clean clone of what is committed, has lintian look at them, and
# installs, uses and removes them in a bare system. As root; half an hour on two cores.
#   packaging/check-packages.sh             all of it; the packages stay in out/packages
#   packaging/check-packages.sh FOLDER      uses the packages in FOLDER instead of building them
set -euo pipefail
cd "$(dirname "$0")/.."
. ./cmake/setup.sh

work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT
fail() {
  echo "check-packages.sh: $*" >&2
  exit 1
}
# quietly LOG COMMAND...: tells the end of the log when the command fails.
quietly() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 || { tail -n 30 "$log" >&2; fail "$1 failed; the whole log is $log"; }
}

packages=${1:-out/packages}
if [ $# = 0 ]; then
  mapfile -t build_depends < <(sed -n '/^Build-Depends:/,/^[^ B]/s/^\(Build-Depends:\)\? *\([a-z0-9+.-]*\).*/\2/p' \
    debian/control | sed 's/^debhelper-compat$/debhelper/')
  need_packages git dpkg-dev lintian mmdebstrap "${build_depends[@]}"
  echo "Building packages from a clean clone of $(git rev-parse --short HEAD)"
  git clone -q . "$work/qx-db"
  mkdir -p build "$packages"
  (cd "$work/qx-db" && DEB_BUILD_OPTIONS="noautodbgsym parallel=$(nproc)" \
    quietly "$OLDPWD/build/packages.log" dpkg-buildpackage -us -uc -b)
  rm -f "$packages"/*
  mv "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$packages"
fi
packages=$(realpath "$packages")

echo "lintian"
lintian --allow-root --tag-display-limit 0 --fail-on error,warning "$packages"/*.changes

echo "Installing and using them in a bare system"
root=$work/root
packaging/bare-root.sh "$root"
mkdir "$root/tmp/use"
cp "$packages"/*.deb examples/bracket.msh examples/joint.step "$root/tmp/use"
# The first program of the README, as an application of its own.
awk '/^```cpp/ { inside = 1; next } /^```/ && inside { exit } inside' README.md \
  >"$root/tmp/use/first.cpp"
cat >"$root/tmp/use/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(first CXX)
find_package(QX_db REQUIRED COMPONENTS exchange host occt sql)
add_executable(first first.cpp)
target_link_libraries(first PRIVATE QX_db::exchange QX_db::host QX_db::occt
                      QX_db::sql)
CMAKE
cat >"$root/tmp/use/use.sh" <<'USE'
set -eux
cd /tmp/use
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -q --no-install-recommends ./*.deb g++ cmake make pkg-config man-db
find / -xdev -name '*qx*' -not -path '/tmp/*' -not -path '/var/*' | sort >installed
grep -q /usr/bin/qxdb installed

qxdb --version
qxdb import bracket.msh bracket.qxm
qxdb verify bracket.qxm
qxdb geom joint.step joint.qxm | tail -n 1
man -w qxdb qxdb-import qxdb-sets-add
bash -c '. /usr/share/bash-completion/completions/qxdb; COMP_WORDS=(qxdb verif) COMP_CWORD=1
         _qxdb; [ "${COMPREPLY[*]}" = verify ]'

cmake -S . -B app -DCMAKE_BUILD_TYPE=Release
cmake --build app
app/first bracket.msh
g++ -std=c++20 first.cpp $(pkg-config --cflags --libs qx_db-exchange qx_db-host) -o first
./first bracket.msh

python3 - <<'PYTHON'
import qxdb

with qxdb.open("bracket.qxm") as model:
    top = model.nodes.xyz[:, 2].max()
    with model.step("raise the top"):
        model.nodes.xyz[model.nodes.xyz[:, 2] > top - 0.5, 2] += 0.5
    assert model.nodes.xyz[:, 2].max() == top + 0.5
    model.undo()
    assert model.nodes.xyz[:, 2].max() == top
PYTHON

python3 - /usr/lib/*/qxdb/qxdb.so <<'PYTHON'
import sqlite3
import sys

db = sqlite3.connect(":memory:")
db.enable_load_extension(True)
db.load_extension(sys.argv[1])
db.execute("SELECT qx_open('bracket.qxm')").fetchall()
assert db.execute("SELECT count(*) FROM node").fetchone() == (9210,)
PYTHON

apt-get purge -y -qq qxdb python3-qxdb 'libqx-*'
find / -xdev -name '*qx*' -not -path '/tmp/*' -not -path '/var/*' | sort >left
[ ! -s left ] || { cat left; exit 1; }
USE
quietly "$PWD/build/packages-used.log" unshare --mount --pid --fork /bin/sh -c \
  'mount -t proc proc "$1/proc" && exec chroot "$1" /bin/bash /tmp/use/use.sh' sh "$root"
echo "The packages in $packages install, work and go without a trace"
