#!/usr/bin/env bash
# Does in bare systems what a new user does, to show that the two commands need nothing that they do
# not install themselves. As root; about ten minutes for "run", an hour for "test".
#   packaging/first-use.sh run        ./run.sh, by an ordinary user with sudo
#   packaging/first-use.sh test       ./test.sh, by root
#   packaging/first-use.sh run-test   ./run.sh and then ./test.sh quick, by root
#   packaging/first-use.sh test-run   ./test.sh quick and then ./run.sh, by an ordinary user
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  run) who=worker commands=("./run.sh") ;;
  test) who=root commands=("./test.sh") ;;
  run-test) who=root commands=("./run.sh" "./test.sh quick") ;;
  test-run) who=worker commands=("./test.sh quick" "./run.sh") ;;
  *) echo 'first-use.sh: name one of run, test, run-test, test-run' >&2; exit 2 ;;
esac

root=$(mktemp -d)/root
trap 'rm -rf --one-file-system "$(dirname "$root")"' EXIT
echo "A bare system for: ${commands[*]} (by $who)"
packaging/bare-root.sh "$root"
# What git tracks as it stands in the work tree, in a repository of its own, with the real meshes
# beside it where they are here.
home=$root/srv/worker
mkdir -p "$home/qx_db"
git ls-files -z | tar --null -T - -cf - | tar -xf - -C "$home/qx_db"
if [ -d ../shared/data ]; then
  mkdir -p "$home/shared" && cp -r ../shared/data "$home/shared/"
fi
chroot "$root" chown -R "$who" /srv/worker
# in_root COMMAND: with processes and mounts of its own, which end with it, and nothing of the
# caller's environment, which a new user would not have. The root is a mount point, as any system's
# is: else ./test.sh could not make a bare system in there. Terminals are the system's own, too.
in_root() {
  unshare --mount --pid --fork /bin/sh -c 'mount --bind "$1" "$1" && mount -t proc proc "$1/proc" && mkdir -p "$1/dev/pts" && \
    mount -t devpts -o newinstance,ptmxmode=0666,mode=0620,gid=5 devpts "$1/dev/pts" && exec chroot "$1" \
    env -i HOME=/srv/worker LC_ALL=C.UTF-8 PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    /bin/su "$2" -s /bin/bash -c "cd /srv/worker/qx_db && $3"' \
    sh "$root" "$who" "$1"
}
in_root "git init -q . && git add -A && git -c user.name=worker -c user.email=worker@localhost commit -qm tree"
for command in "${commands[@]}"; do
  start=$(date +%s)
  in_root "$command"
  echo "$command by $who: done in $(($(date +%s) - start)) s"
done
