#!/usr/bin/env bash
# Compares the functions a built plug-in exports with the four of the host interface.
set -euo pipefail
library=$1
case "$library" in
  *.dll)
    # The export table's name pointer section lists "[ordinal] name" lines up to a blank line.
    names=$(x86_64-w64-mingw32-objdump -p "$library" |
      awk '/\[Ordinal\/Name Pointer\] Table/ { inTable = 1; next } inTable && NF == 0 { inTable = 0 } inTable { print $NF }') ;;
  *)
    names=$(nm -D --defined-only "$library" | awk '{ print $NF }') ;;
esac
actual=$(printf '%s\n' "$names" | sort | tr '\n' ' ')
expected="CreateStreamer DestroyStreamer GetStreamerPerformance NewStream "
if [ "$actual" != "$expected" ]; then
  echo "exports of $library: $actual"
  echo "expected:            $expected"
  exit 1
fi
echo "exports of $library: $actual"
