#!/usr/bin/env bash
# Installs the Debian packages needed to build and test zolt timing, when any
# is missing. Extra package names may be given as arguments.
# Usage: tools/deps.sh [package ...]
set -euo pipefail

wanted=(cmake ninja-build g++ pkg-config binutils libgtest-dev libgmock-dev libbenchmark-dev "$@")
missing=()
for package in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
  echo "installing: ${missing[*]}"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  echo "These Debian packages are missing: ${missing[*]}" >&2
  echo "Install them with: sudo apt-get install -y ${missing[*]}  (or run this command as root)" >&2
  exit 1
fi
