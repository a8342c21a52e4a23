#!/usr/bin/env bash
# Installs the Debian packages the build, tests and benchmarks need. Quiet and
# quick when everything is already there. --fuzz adds clang and its libFuzzer
# and sanitizer runtimes, which scripts/fuzz.sh builds with.
set -euo pipefail
packages=(cmake g++ make libgtest-dev libbenchmark-dev libassimp-dev libocct-data-exchange-dev libocct-modeling-algorithms-dev zlib1g-dev libcli11-dev nlohmann-json3-dev librsvg2-bin
  pybind11-dev python3-dev python3-numpy python3-pytest python3-setuptools python3-distributed)
if [ "${1:-}" = "--fuzz" ]; then
  packages+=(clang libclang-rt-14-dev)
fi
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi
