#!/usr/bin/env bash
# Remux throughput of a generated H.264/AAC movie into a faststart MP4:
# the project's export (a whole take-picture capture with --video, file URI)
# against `ffmpeg -c copy -movflags +faststart`, alternating, in one run.
set -euo pipefail
bin="${1:-build/velqor-camera}"
rounds="${ROUNDS:-5}"
if ! command -v ffmpeg >/dev/null; then
  echo "ffmpeg is not installed: run 'make bench-deps' (or apt-get install ffmpeg) to compare against it" >&2
  exit 1
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# About 200 MB of lossless H.264 (noise) with AAC audio.
"$bin" sample movie --noise --seconds "${MOVIE_SECONDS:-5}" --width 1280 --height 720 -o "$work/in.mov" >/dev/null
size=$(stat -c %s "$work/in.mov")
python3 - "$bin" "$work" "$rounds" "$size" <<'PY'
import os, statistics, subprocess, sys, time
bin_, work, rounds, size = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
src = os.path.join(work, "in.mov")
def project():
    tmp = os.path.join(work, "tmp")
    subprocess.run(["rm", "-rf", tmp], check=True)
    t = time.perf_counter()
    subprocess.run([bin_, "take-picture", "--args", "[50, 1, 1, null, null, 0, 1]", "--video", src,
                    "--temp-dir", tmp, "--library", os.path.join(work, "lib")],
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    return time.perf_counter() - t
def ffmpeg():
    out = os.path.join(work, "ffmpeg.mp4")
    t = time.perf_counter()
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-i", src, "-c", "copy", "-movflags", "+faststart", out], check=True)
    return time.perf_counter() - t
ours, theirs = [], []
for _ in range(rounds):
    ours.append(project())
    theirs.append(ffmpeg())
mo, mt = statistics.median(ours), statistics.median(theirs)
mb = size / 1e6
print(f"input {mb:.0f} MB, {rounds} rounds each, medians")
print(f"velqor-camera take-picture --video  {mo:6.3f} s  {mb / mo:7.1f} MB/s")
print(f"ffmpeg -c copy +faststart          {mt:6.3f} s  {mb / mt:7.1f} MB/s")
print(f"throughput ratio (project / ffmpeg): {mt / mo:.2f} (goal >= 0.8)")
PY
