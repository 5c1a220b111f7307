#!/usr/bin/env bash
# Runs the packaged plugin and kxt on an old Linux: a Debian 11 (bullseye, glibc 2.31) root made
# with debootstrap from the mirror apt uses (kept in build-old/bullseye-root for later runs).
# Inside it (chroot), the library from the archive prints its banner, and kxt, loading that
# library, runs `kxt list` and every build/kxt example from the README; each output (standard
# output, standard error, exit status) must equal the build machine's, made from build/.
# Needs root (debootstrap and chroot); about three minutes the first time, seconds after.
#   scripts/check-old-linux.sh
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh debootstrap
scripts/build.sh
old=build-old
root=$old/bullseye-root
if [[ ! -x $root/bin/bash ]]; then
  mirror=$(grep -hoE '(URIs:|^deb) *https?://[^ ]*/debian/?( |$)' /etc/apt/sources.list \
    /etc/apt/sources.list.d/* 2>/dev/null | grep -oE 'https?://[^ ]*' | head -1 || true)
  rm -rf "$root"
  debootstrap --variant=minbase bullseye "$root" "${mirror:-http://deb.debian.org/debian}" \
    >"$old/debootstrap.log" || { tail "$old/debootstrap.log" >&2; exit 1; }
fi
scripts/package.sh --no-build --x86-64-only --output "$old/KXTString.xojo_plugin" >/dev/null

# The root gets kxt and the archive's library where the README's commands expect them.
rm -rf "$root/kxt"
mkdir -p "$root/kxt/build" "$root/kxt/tests/data"
cp build/kxt "$root/kxt/build/"
unzip -q -j "$old/KXTString.xojo_plugin" '*/Linux x86-64/*' -d "$root/kxt/build"
cp -r tests/data/rtf "$root/kxt/tests/data/"

# Every README line that runs build/kxt or the library (`kxt list` among them), without its
# comment; kxt is pointed at the plugin beside it (on the build machine: the unpacked build's),
# FILE.rtf at a sample.
plugin=build/libKXTString.Linux32.so.21160
mapfile -t examples < <(
  grep -oE '(^ {4}\$? ?| && )build/(kxt|libKXTString)[^#]*' README.md |
    sed -E 's/^ *(&& )?\$? ?//; s/ +$//; s|FILE\.rtf|tests/data/rtf/letter.rtf|' |
    sed -E "s|^build/kxt |build/kxt --plugin $plugin |" | sort -u)
# The debug log names host objects by address, which differs from run to run.
same_addresses() { sed -E 's/0x[0-9a-f]{8,}/0xADDRESS/g'; }
run_here() {
  env -i PATH=/usr/bin:/bin LC_ALL=C bash -c "$1" 2>&1 | same_addresses
  echo "status ${PIPESTATUS[0]}"
}
run_old() {
  chroot "$root" env -i PATH=/usr/bin:/bin LC_ALL=C bash -c "cd /kxt && $1" 2>&1 | same_addresses
  echo "status ${PIPESTATUS[0]}"
}

glibc=$(chroot "$root" /lib/x86_64-linux-gnu/libc.so.6 | head -1)
echo "Old system: $glibc"
failed=0
for example in "${examples[@]}"; do
  here=$(run_here "$example")
  if [[ ${here##*$'\n'} != "status 0" ]]; then
    echo "FAILS HERE $example"
    failed=$((failed + 1))
  elif diff <(echo "$here") <(run_old "$example") >"$old/diff.txt"; then
    echo "same    $example"
  else
    echo "DIFFERS $example"
    sed 's/^/        /' "$old/diff.txt"
    failed=$((failed + 1))
  fi
done
echo "$((${#examples[@]} - failed)) of ${#examples[@]} outputs identical on $(date -u +%F)"
((failed == 0))
