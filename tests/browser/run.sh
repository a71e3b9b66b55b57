#!/usr/bin/env bash
# Runs the web host's page in headless Chromium (the system's package, driven
# by playwright-core) against `velqor-camera serve`. A missing browser, Node.js
# or npm dependency fails the test: scripts/install-node-deps.sh installs them.
set -euo pipefail
bin="$1"
out="$2"
root=$(cd "$(dirname "$0")/../.." && pwd)
if ! command -v node >/dev/null; then
  echo "FAIL: Node.js is not installed (run scripts/install-node-deps.sh)" >&2
  exit 1
fi
if [[ ! -d $root/node_modules/playwright-core ]]; then
  echo "FAIL: playwright-core is not installed (run scripts/install-node-deps.sh)" >&2
  exit 1
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bin" sample camera-jpeg -o "$work/photo.jpg" --width 1600 --height 1200 >/dev/null
exec node "$root/tests/browser/capture.mjs" "$bin" "$out" "$work/photo.jpg"
