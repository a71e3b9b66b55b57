#!/usr/bin/env bash
# Runs the page in headless Chromium against `velqor-camera serve`.
# Exit 77 (skipped) when Chromium or Node.js is missing.
set -euo pipefail
bin="$1"
out="$2"
if ! command -v node >/dev/null; then
  echo "SKIP: Node.js is not installed"
  exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bin" sample camera-jpeg -o "$work/photo.jpg" --width 1600 --height 1200 >/dev/null
exec node "$(dirname "$0")/capture.mjs" "$bin" "$out" "$work/photo.jpg"
