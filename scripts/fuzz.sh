#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and UndefinedBehaviorSanitizer, and runs each on
# its seed corpus for FUZZ_SECONDS (default 60). New inputs go to build-fuzz/corpus/, never into the
# repository; a crash leaves its input in build-fuzz/ and fails the script.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${FUZZ_SECONDS:-60}"
if ! command -v clang++ >/dev/null; then
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq clang >/dev/null
fi
CC=clang CXX=clang++ bash scripts/build.sh build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFRAMEFEED_TESTS=OFF \
  -DFRAMEFEED_BENCH=OFF -DFRAMEFEED_FUZZ=ON -DFRAMEFEED_SANITIZE=address,undefined >/dev/null
for target in StreamConfigFuzz CacheFileFuzz VersionRecordFuzz; do
  mkdir -p "build-fuzz/corpus/$target"
  echo "== $target for ${seconds}s"
  (cd build-fuzz && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "./tests/fuzz/$target" -max_total_time="$seconds" -rss_limit_mb=4096 -print_final_stats=1 \
    "corpus/$target" "../tests/fuzz/corpus/$target" 2>&1 | grep -E "^(#[0-9]+ +DONE|stat::|==|SUMMARY|Done)" || true)
  # ls fails when any one of the patterns matches nothing, so the listing itself is tested.
  failures="$(ls build-fuzz/crash-* build-fuzz/leak-* build-fuzz/timeout-* build-fuzz/oom-* 2>/dev/null || true)"
  if [ -n "$failures" ]; then
    echo "fuzzing found a failure: $failures"
    exit 1
  fi
done
