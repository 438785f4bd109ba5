#!/usr/bin/env bash
# Configures and builds into the folder given (default build/); extra arguments go to CMake.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
dir=${1:-build}
shift || true
cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
ninja -C "$dir"
