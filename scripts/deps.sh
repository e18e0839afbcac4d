#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs what building and testing need on Debian 12, only what is missing.
set -euo pipefail
pkgs=(cmake ninja-build g++ clang libclang-rt-14-dev libssl-dev openssl libgtest-dev
      libbenchmark-dev ca-certificates util-linux groff-base man-db dpkg-dev python3 lintian
      libcurl4-openssl-dev libp11-dev softhsm2 nlohmann-json3-dev busybox dash valgrind)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q
  apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
