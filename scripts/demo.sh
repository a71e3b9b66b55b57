#!/usr/bin/env bash
# Runs the CLI on a few sample inputs and writes a report under build/demo/.
set -euo pipefail
build="${1:-build}"
bin="$build/velqor-camera"
out="$build/demo"
mkdir -p "$out"
report="$out/report.txt"
{
  echo "VelqorCamera demo — $(date -u +%Y-%m-%dT%H:%M:%SZ)"
  echo "version: $("$bin" version)"
  for args in '[]' '[50, 1, 1, 1024, 1024, 0, 0, false, true]' '[150, 3, 0, 1024, 768, 2, 1, true, true, true, null, true, true]'; do
    echo
    echo "options --args '$args'"
    "$bin" options --args "$args"
  done
} > "$report"
cat "$report"
echo
echo "report: $report"
