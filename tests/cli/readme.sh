#!/usr/bin/env bash
# Runs every command line of README.md's fenced blocks that calls the program
# (`velqor-camera ...` or `build/velqor-camera ...`), in order, in a scratch
# folder, so the README cannot drift from the program. A line passes when it
# exits 0, or with the status its `# exit N` comment announces, which must be
# one the README's exit-status table documents. `UUID/L0/001` stands for the
# identifier the last `library add` printed. Sample inputs (photo.jpg,
# scene.png, movie.mov) are there before the first line runs.
# Usage: readme.sh PROGRAM README.md
set -u
bin=$(realpath "$1")
readme=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_STATE_HOME="$work/state"
mkdir -p "$work/run/build" "$work/path"
ln -s "$bin" "$work/run/build/velqor-camera"
ln -s "$bin" "$work/path/velqor-camera"
export PATH="$work/path:$PATH"
cd "$work/run" || exit 2

"$bin" sample camera-jpeg --width 640 --height 480 -o photo.jpg >/dev/null &&
  "$bin" sample png --width 400 --height 300 -o scene.png >/dev/null &&
  "$bin" sample movie --seconds 0.5 -o movie.mov >/dev/null || { echo "FAIL samples: cannot make the inputs"; exit 1; }

# The statuses the README's exit-status table lists: rows "| N | meaning |".
documented=$(awk '/^Exit status/ { on = 1; next }
  on && /^\| [0-9]+ \|/ { split($0, cell, "|"); gsub(/ /, "", cell[2]); print cell[2]; rows++; next }
  on && rows && !/^\|/ { exit }' "$readme" | tr '\n' ' ')
[ -n "$documented" ] || { echo "FAIL exit-table: README.md lists no exit statuses"; exit 1; }

# Fenced lines that run the program, continuation lines joined: "LINE<TAB>COMMAND".
mapfile -t commands < <(awk '
  /^```/ { fenced = !fenced; next }
  !fenced { next }
  pending != "" { pending = pending " " $0; if (pending !~ /\\$/) { print start "\t" pending; pending = "" } else sub(/\\$/, "", pending); next }
  /^(build\/)?velqor-camera( |$)/ {
    if ($0 ~ /\\$/) { start = NR; pending = $0; sub(/\\$/, "", pending); next }
    print NR "\t" $0
  }' "$readme")

passed=0
failed=0
id=""
for entry in "${commands[@]}"; do
  line=${entry%%$'\t'*}
  cmd=${entry#*$'\t'}
  want=$(printf '%s\n' "$cmd" | sed -n 's/.*[[:space:]]#[[:space:]]*exit \([0-9][0-9]*\).*/\1/p')
  want=${want:-0}
  why=""
  case " $documented " in *" $want "*) ;; *) why="announces exit $want, which the exit-status table does not list" ;; esac
  if [[ "$cmd" == *UUID/L0/001* ]]; then
    [ -n "$id" ] || why="${why:+$why; }uses UUID/L0/001 before any library add printed an identifier"
    cmd=${cmd//UUID\/L0\/001/$id}
  fi
  if [ -z "$why" ]; then
    timeout 120 bash -o pipefail -c "$cmd" >"$work/out" 2>"$work/err"
    got=$?
    [ "$got" = "$want" ] || why="exit $got, expected $want: $(tail -c 300 "$work/err")"
    added=$(sed -n 's/.*"identifier":"\([^"]*\)".*/\1/p' "$work/out" | head -1)
    [[ "$cmd" == *"library add"* && -n "$added" ]] && id=$added
  fi
  if [ -z "$why" ]; then
    passed=$((passed + 1))
    echo "ok README.md:$line $cmd"
  else
    failed=$((failed + 1))
    echo "FAIL README.md:$line $cmd: $why"
  fi
done
# A README whose commands vanished (a renamed program, a changed fence) is a failure too.
if [ $((passed + failed)) -lt 5 ]; then
  echo "FAIL README.md: only $((passed + failed)) program lines found in fenced blocks"
  failed=$((failed + 1))
fi
echo "readme: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
