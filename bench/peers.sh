#!/usr/bin/env bash
# The project against vipsthumbnail/vips, ImageMagick, Pillow and ffmpeg, whole
# processes, alternating rounds, one table. Installs nothing: says what is
# missing (make bench-deps installs it).
#   bench/peers.sh [build/velqor-camera]      ROUNDS=5 MOVIE_SECONDS=5 by default
set -euo pipefail
bin="${1:-build/velqor-camera}"
exec /usr/bin/python3 "$(dirname "$0")/peers.py" "$bin"
