#!/usr/bin/env bash
# Installs the Debian packages the build needs, if any are missing. Usage: scripts/deps.sh [extra...]
set -euo pipefail
wanted=(cmake ninja-build g++ pkg-config libgtest-dev libffi-dev unicode-data
  zip unzip binutils python3-pyelftools "$@")
missing=()
for p in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}"
  sudo=""
  [[ $(id -u) -ne 0 ]] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi
