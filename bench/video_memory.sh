#!/usr/bin/env bash
# Peak memory of a 256 MiB movie answered as a data URL, as a multiple of the
# movie's size, beside the same capture answered as a file URI. The data URL
# holds the file and its base64 text in memory; the file URI streams.
set -euo pipefail
bin="${1:-build/velqor-camera}"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$bin" sample movie --noise --seconds "${SECONDS_OF_NOISE:-6.2}" --width 1280 --height 720 -o "$work/big.mov" >/dev/null
python3 - "$bin" "$work" <<'PY'
import os, resource, subprocess, sys
bin_, work = sys.argv[1], sys.argv[2]
movie = os.path.join(work, "big.mov")
size = os.path.getsize(movie)
def peak(args):
    # Each run in its own child, so the children's peak is this run's peak.
    r = subprocess.run(["python3", "-c",
        "import resource,subprocess,sys;"
        "subprocess.run(sys.argv[1:],stdout=subprocess.DEVNULL,stderr=subprocess.DEVNULL,check=True);"
        "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)"] + args,
        capture_output=True, text=True, check=True)
    return int(r.stdout.strip()) * 1024
common = ["--video", movie, "--temp-dir", os.path.join(work, "tmp"), "--library", os.path.join(work, "lib")]
data = peak([bin_, "take-picture", "--args", "[50, 0, 1, null, null, 0, 1]"] + common)
file_ = peak([bin_, "take-picture", "--args", "[50, 1, 1, null, null, 0, 1]"] + common)
mib = 1024 * 1024
print(f"movie              {size / mib:8.1f} MiB")
print(f"data URL peak RSS  {data / mib:8.1f} MiB  ratio {data / size:.2f}x the movie (goal <= 3.5x)")
print(f"file URI peak RSS  {file_ / mib:8.1f} MiB  ratio {file_ / size:.2f}x the movie")
PY
