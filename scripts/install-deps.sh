#!/usr/bin/env bash
# Installs the Debian packages the build needs, once; later runs find them and do nothing.
set -euo pipefail
packages=(g++ cmake ninja-build pkg-config binutils libturbojpeg0-dev libgtest-dev libbenchmark-dev libopencv-imgproc-dev libyuv-dev libpng-dev libcli11-dev)
missing=()
for package in "${packages[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi
