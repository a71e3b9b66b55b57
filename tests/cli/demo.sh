#!/usr/bin/env bash
# The demo report as a new user makes it: one good scenario and one malformed
# one in a folder; the bad one shows as failed in the report and the good one
# still runs.
set -u
bin="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail=0
check() {  # name, expected, actual
  if [ "$2" != "$3" ]; then echo "FAIL $1: expected [$2] got [$3]"; fail=1; else echo "ok $1"; fi
}
mkdir -p "$work/scenarios"
cp "$(dirname "$0")/../../scenarios/camera-photo-file.json" "$work/scenarios/"
printf '{"name": "half-written", "steps": [' > "$work/scenarios/half-written.json"
"$bin" demo --scenarios "$work/scenarios" --out "$work/report" >"$work/out" 2>"$work/err"
check demo-exit 1 $?
grep -q '^PASS camera-photo-file' "$work/out"; check good-ran 0 $?
grep -q '^FAIL half-written' "$work/out"; check bad-listed 0 $?
report="$work/report/index.html"
test -s "$report"; check report-written 0 $?
grep -q 'href="#camera-photo-file"' "$report"; check report-shows-good 0 $?
grep -q 'href="#half-written">half-written</a></td><td><span class="verdict fail">not run' "$report"; check report-shows-bad 0 $?
grep -q '1 passed, 1 failed' "$report"; check report-count 0 $?
grep -q 'takes a photo' "$report"; check report-in-words 0 $?
ls "$work/report"/thumb-*.jpg >/dev/null 2>&1; check thumbnails 0 $?
exit $fail
