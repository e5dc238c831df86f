#!/usr/bin/env bash
# Installs the Debian 12 packages the project needs, only those that are missing.
# Sourced by ./run-tests and ./ovcert; run on its own it does the same.
# When not root it prints the exact install command and fails.

OV_PACKAGES=(
  cmake ninja-build g++ pkg-config
  libssl-dev openssl
  libcurl4-openssl-dev
  libpugixml-dev
  nlohmann-json3-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libp11-kit-dev softhsm2 opensc
  python3 python3-cryptography
  clang libclang-rt-14-dev
)

ov_ensure_deps() {
  local missing=()
  local p
  for p in "${OV_PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  if [ "$(id -u)" -ne 0 ]; then
    echo "Missing packages. Install them with:" >&2
    echo "  sudo apt-get update && sudo apt-get install -y ${missing[*]}" >&2
    return 1
  fi
  echo "Installing missing packages: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq && apt-get install -y -qq "${missing[@]}" >/dev/null
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
  ov_ensure_deps
fi
