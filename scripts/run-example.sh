#!/usr/bin/env bash
# Builds the plug-in and the framefeed tool, then runs its demo: the sample image through typical streams,
# written into framefeed-demo/ (extra arguments go to the demo, e.g. -o another-folder).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh build >/dev/null
build/framefeed demo "$@"
