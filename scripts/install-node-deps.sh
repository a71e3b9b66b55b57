#!/usr/bin/env bash
# Installs what the page-side tests need: Node.js and npm, and Chromium, from
# the Debian packages when missing; then the npm packages pinned in
# package-lock.json (npm ci, from the npm registry only; no package downloads
# a browser). Fails when Chromium is still missing afterwards: a browser test
# must never pass by skipping.
# Safe to run again: apt-get runs only when something is missing.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

missing=()
command -v node >/dev/null || missing+=(nodejs)
command -v npm >/dev/null || missing+=(npm)
chromium_present() {
  [[ -n ${VELQOR_CHROMIUM:-} && -x ${VELQOR_CHROMIUM:-} ]] || command -v chromium >/dev/null || command -v chromium-browser >/dev/null
}
chromium_present || missing+=(chromium)

if [ ${#missing[@]} -gt 0 ]; then
  echo "install-node-deps: installing ${missing[*]}"
  sudo=()
  [ "$(id -u)" -eq 0 ] || sudo=(sudo)
  "${sudo[@]}" apt-get update
  "${sudo[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
fi

if ! chromium_present; then
  echo "install-node-deps: FAILED: Chromium is still not installed (apt-get install chromium)" >&2
  exit 1
fi
node_major=$(node -p 'process.versions.node.split(".")[0]')
if [ "$node_major" -lt 18 ]; then
  echo "install-node-deps: FAILED: Node.js $(node --version) is too old; the test kit needs 18 or later" >&2
  exit 1
fi

# Playwright never fetches a browser here: the tests use the system's Chromium.
cd "$root"
PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --no-audit --no-fund
echo "install-node-deps: node $(node --version), npm $(npm --version), $(chromium --version 2>/dev/null || echo "Chromium at $VELQOR_CHROMIUM")"
