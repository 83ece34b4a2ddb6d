#!/usr/bin/env bash
# What a user reads when the machine cannot be set up: one line that says what is wrong and what to
# do, and nothing is half done. The system's commands are stand-ins that do as each case says.
#   setup_test.sh SOURCE_FOLDER
set -u
source_folder=${1:?}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# A tree with the scripts only, and a folder of stand-ins before everything else on the path.
mkdir -p "$work/tree/cmake" "$work/bin"
cp "$source_folder"/{run.sh,test.sh} "$work/tree/"
cp "$source_folder/cmake/setup.sh" "$work/tree/cmake/"
stand_in() {
  printf '#!/bin/sh\necho "%s $*" >>"%s/calls"\n%s\n' "$1" "$work" "$2" >"$work/bin/$1"
  chmod +x "$work/bin/$1"
}

# case NAME EXPECTED_CODE EXPECTED_TEXT COMMAND...
check() {
  local name=$1 code=$2 text=$3 out result
  shift 3
  : >"$work/calls"
  out=$(cd "$work/tree" && PATH="$work/bin:$PATH" "$@" 2>&1)
  result=$?
  if [ $result -ne "$code" ] || ! grep -qE "$text" <<<"$out"; then
    printf 'FAILED %s: exit code %s, wanted %s; said:\n%s\nwanted: %s\n' "$name" $result "$code" "$out" "$text"
    failures=$((failures + 1))
  fi
}
never_called() {
  if grep -q "$1" "$work/calls"; then
    echo "FAILED: $1 was called:"; cat "$work/calls"
    failures=$((failures + 1))
  fi
}

nothing_is_installed='exit 1'
everything_is_installed='echo "install ok installed"'

stand_in cmake 'exit 0'
stand_in npm 'exit 0'
stand_in dpkg-query "$nothing_is_installed"
stand_in apt-get 'case "$*" in *update*) echo "E: Failed to fetch"; exit 100;; esac'
stand_in sudo 'case "$1" in -v) exit 0;; esac; exec "$@"'
check "no network" 1 '^run\.sh: the package sources cannot be reached: check the network' ./run.sh
never_called '^apt-get install'
never_called ^cmake

stand_in apt-get 'case "$*" in *update*) exit 0;; *) echo "E: Unable to locate package lld"; exit 100;; esac'
check "no such package" 1 '^test\.sh: packages cannot be installed; nothing was built: E: Unable to locate' ./test.sh
never_called ^cmake

stand_in id 'echo 1000'
stand_in sudo 'exit 1'
check "no right" 1 '^run\.sh: no right to install packages: have an administrator run: apt-get install g\+\+' ./run.sh
never_called ^apt-get
rm "$work/bin/id"

# All that a build needs is there, Open CASCADE and Qt are not.
stand_in apt-get 'exit 100'
stand_in dpkg-query 'case "$*" in *occt*|*qt6*) exit 1;; *) echo "install ok installed";; esac'
stand_in cmake 'echo "$*"; case "$*" in --build*) exit 1;; esac'
check "component left out" 1 '^without CAD files: Open CASCADE is not installed; \./run\.sh --all installs it$' ./run.sh
if ! grep -q -- '-DQX_OCCT=OFF.*-DQX_QT=OFF' "$work/calls"; then
  echo "FAILED: the switches of what is left out are not said to CMake"; cat "$work/calls"
  failures=$((failures + 1))
fi
check "tests leave nothing out" 1 'the package sources cannot be reached' ./test.sh

stand_in dpkg-query "$everything_is_installed"
stand_in npm 'exit 1'
check "no npm registry" 1 '^without the viewer in the browser: the npm registry cannot be reached' ./run.sh
stand_in npm 'exit 0'
check "failed build" 1 '^run\.sh: the release build failed; the whole log is build/release\.log' ./run.sh
check "misspelt argument" 1 '^run\.sh: unknown argument "--al": the only one is --all' ./run.sh --al

echo "$failures failed"
[ "$failures" = 0 ]
