#!/usr/bin/env bash
# Locks and files on their way on a file system that can neither link nor rename without replacing:
# a memory stick's, in a file, mounted for this script alone.
#   exfat_test.sh TEST_PROGRAM
# Ends with 77, saying why, where none may be mounted.
set -euo pipefail
program=${1:?}

skip() {
  echo "skipped: $1"
  exit 77
}

if [ "${2:-}" != apart ]; then
  [ "$(id -u)" = 0 ] || skip "only an administrator may mount"
  for tool in mkfs.exfat mount.exfat-fuse losetup unshare; do
    command -v "$tool" >/dev/null || skip "$tool is missing"
  done
  unshare --mount true 2>/dev/null || skip "no mounts of its own are allowed here"
  exec unshare --mount "$0" "$program" apart
fi

work=$(mktemp -d)
device=
end() {
  cd /
  mountpoint -q "$work/files" && umount "$work/files"
  [ -z "$device" ] || losetup -d "$device"
  rm -rf "$work"
}
trap end EXIT
mkdir "$work/files"
truncate -s 64M "$work/image"
mkfs.exfat "$work/image" >/dev/null
device=$(losetup -f --show "$work/image" 2>&1) || { why=$device; device=; skip "no loop device: $why"; }
mount.exfat-fuse "$device" "$work/files" >"$work/log" 2>&1 || skip "$(tail -n 1 "$work/log")"

cd "$work/files"
touch one
if ln one other 2>/dev/null; then
  echo "this file system can link, and tells nothing"
  exit 1
fi
rm one
tests='TrustTest.ALockIsHeldByOneAtATimeAndLeavesNothing:TrustTest.AHolderRemovesItsOwnLockOnly'
tests+=':TrustTest.AFileThatIsNoLockStaysWhatItIs:TrustTest.WritersOfOneFileLeaveEachOtherAlone'
tests+=':TrustTest.LeftoversOfKilledSavesAreCleanedUpByTheNextWriter'
TMPDIR=$PWD "$program" --gtest_filter="$tests"
