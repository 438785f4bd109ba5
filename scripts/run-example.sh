#!/usr/bin/env bash
# Builds the plug-in and runs the example host: a Mono frame through a JPEG stream into a file.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh build >/dev/null
build/framefeed_example "${@:-framefeed-example.jpg}"
