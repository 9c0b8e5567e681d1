#!/usr/bin/env bash
# Installs every Debian package that building and testing Quorvane needs.
# Safe to run again: apt-get skips what is already installed.
set -euo pipefail

packages=(
  build-essential g++ cmake ninja-build pkg-config git
  nlohmann-json3-dev libcli11-dev libfmt-dev
  libcurl4-openssl-dev libsecret-1-dev libsystemd-dev uuid-dev
  libgtest-dev libgmock-dev libbenchmark-dev tzdata
)

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi

export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update
"${sudo_cmd[@]}" apt-get install -y --no-install-recommends "${packages[@]}"
