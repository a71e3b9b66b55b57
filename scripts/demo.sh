#!/usr/bin/env bash
# Runs every shipped scenario on the simulated device, with sample inputs made
# by the project itself, and writes an HTML report under build/demo/.
set -euo pipefail
build="${1:-build}"
cd "$(dirname "$0")/.."
"$build/velqor-camera" version
"$build/velqor-camera" demo --scenarios scenarios --out "$build/demo" 2> "$build/demo-log.txt"
