#!/usr/bin/env bash
# Installs what the build and the tests need from Debian's packages, if it is
# missing. Safe to run again; does nothing when everything is there.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  qtbase5-dev qtbase5-dev-tools libqt5sql5-sqlite
  libgtest-dev libgmock-dev libbenchmark-dev
  libmodbus-dev libqt5serialport5-dev libqt5charts5-dev libedit-dev
  go-md2man groff-base dpkg-dev
)
if [ "${WITH_ARMHF:-1}" = 1 ]; then
  packages+=(g++-arm-linux-gnueabihf qemu-user mmdebstrap)
fi
# The lint gate (scripts/lint.sh) needs clang-format and clang-tidy (opt-in).
if [ "${WITH_LINT:-0}" = 1 ]; then
  packages+=(clang-format clang-tidy)
fi
# The libFuzzer targets under fuzz/ need clang and its runtime (opt-in).
if [ "${WITH_FUZZ:-0}" = 1 ]; then
  packages+=(clang libclang-rt-14-dev)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" = 0 ] || sudo=sudo
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
