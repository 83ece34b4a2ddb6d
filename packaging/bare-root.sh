#!/usr/bin/env bash
# Makes a root folder of a Debian 12 that holds nothing but apt, git and sudo, with this machine's
# own package sources, and an ordinary user "worker" who may use sudo.
#   packaging/bare-root.sh FOLDER     (as root; about half a minute)
set -euo pipefail
root=${1:?"usage: packaging/bare-root.sh FOLDER"}

stop() {
  echo "bare-root.sh: $*" >&2
  exit 1
}
[ "$(id -u)" = 0 ] || stop "a root folder can only be made by root: run it with sudo"
command -v mmdebstrap >/dev/null || stop "mmdebstrap is not installed: apt-get install mmdebstrap"
[ ! -e "$root" ] || stop "$root exists: remove it, or name another folder"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Packages come from where this machine has its own: same sources, same way to reach them.
apt-config dump --format '%F "%v";%n' Acquire | grep -v '""' >"$work/acquire.conf"
shopt -s nullglob
lists=(/etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources)
for list in "${lists[@]}"; do [ -s "$list" ] && sources+=("$list"); done
mmdebstrap --variant=apt --include=git,ca-certificates,sudo \
  --setup-hook="mkdir -p \"\$1/etc/apt/apt.conf.d\" && cp $work/acquire.conf \"\$1/etc/apt/apt.conf.d/90acquire\"" \
  bookworm "$root" "${sources[@]}" >"$work/log" 2>&1 ||
  stop "mmdebstrap failed: $(tail -n 1 "$work/log")"
# The names and the authorities that this machine knows besides.
cat /etc/hosts >"$root/etc/hosts"
cp -L /etc/resolv.conf "$root/etc/resolv.conf" 2>/dev/null || true
if [ -d /usr/local/share/ca-certificates ]; then
  cp -r /usr/local/share/ca-certificates/. "$root/usr/local/share/ca-certificates/"
  chroot "$root" update-ca-certificates >/dev/null 2>&1
  echo 'cafile=/etc/ssl/certs/ca-certificates.crt' >"$root/etc/npmrc"
fi
chroot "$root" useradd --create-home --home-dir /srv/worker --shell /bin/bash worker
echo 'worker ALL=(ALL) NOPASSWD: ALL' >"$root/etc/sudoers.d/worker"
