#!/usr/bin/env bash
# The CLI's conventions as a table: exit status, what stderr names, and a
# standard output that holds results alone (every line of an answer is JSON).
set -u
bin="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
T=(--temp-dir "$work/tmp" --library "$work/library")
passed=0
failed=0
"$bin" sample camera-jpeg --width 640 --height 480 -o "$work/photo.jpg" >/dev/null
"$bin" sample movie --seconds 0.5 --width 64 --height 48 -o "$work/movie.mov" >/dev/null
printf 'not an image' >"$work/text.jpg"

# expect NAME STATUS STDERR_PATTERN -- ARGS...: runs ARGS, checks the exit
# status and that stderr matches the pattern (empty pattern: stderr empty).
expect() {
  local name=$1 status=$2 pattern=$3
  shift 4
  "$bin" "$@" >"$work/out" 2>"$work/err"
  local got=$?
  local why=""
  [ "$got" = "$status" ] || why="exit $got, expected $status"
  if [ -z "$pattern" ]; then
    [ -s "$work/err" ] && why="$why; stderr not empty: $(head -c 300 "$work/err")"
  elif ! grep -Eq -- "$pattern" "$work/err"; then
    why="$why; stderr lacks /$pattern/: $(head -c 300 "$work/err")"
  fi
  if [ -z "$why" ]; then passed=$((passed + 1)); echo "ok $name"; else failed=$((failed + 1)); echo "FAIL $name: $why"; fi
}
# jsonLines NAME: every line of the last standard output parses as JSON.
jsonLines() {
  if python3 -c 'import json,sys; [json.loads(l) for l in open(sys.argv[1]) if l.strip()]; sys.exit(0 if open(sys.argv[1]).read().strip() else 1)' "$work/out" 2>/dev/null; then
    passed=$((passed + 1)); echo "ok $1"
  else
    failed=$((failed + 1)); echo "FAIL $1: $(head -c 300 "$work/out")"
  fi
}

expect version 0 '' -- --version
grep -qx 'velqor-camera 9\.2\.1\.0' "$work/out" && passed=$((passed + 1)) || { failed=$((failed + 1)); echo "FAIL version-text"; }
expect version-after-subcommand 0 '' -- take-picture --version
expect help-subcommand 0 '' -- help take-picture
grep -q '12     usesGeolocation' "$work/out" && passed=$((passed + 1)) || { failed=$((failed + 1)); echo "FAIL help-argument-table"; }
expect typo 2 'unknown subcommand "take-pictur"; did you mean "take-picture"\? See velqor-camera --help' -- take-pictur
expect typo-nested 2 'unknown subcommand "lst" of velqor-camera library; did you mean "list"' -- library lst
expect no-subcommand 2 'a subcommand is required; see velqor-camera --help' --
expect unexpected-in-order 2 'unexpected argument a b; see velqor-camera options --help' -- options --args '[]' a b
expect library-option-after 0 '' -- library list --library "$work/library"
expect library-option-before 0 '' -- --library "$work/library" library list
expect device-option-before 0 'cameraDirection rear' -- --cancel take-picture "${T[@]}"
expect log-level-after 0 '' -- take-picture --cancel "${T[@]}" --log-level error
expect bad-log-level 2 'log-level' -- --log-level loud take-picture

# Answers alone on stdout: the plug-in's own line goes to stderr.
expect photo-answer 0 'cameraDirection rear' -- take-picture --photo "$work/photo.jpg" --args '[50, 1, 1]' "${T[@]}"
jsonLines photo-answer-json
expect photo-with-events 0 '' -- take-picture --photo "$work/photo.jpg" --args '[50, 0, 1, 64, 64]' --events "${T[@]}" --log-level none
jsonLines events-json
expect debug-level 0 '^debug: ' -- take-picture --photo "$work/photo.jpg" "${T[@]}" --log-level debug
expect info-hides-debug 0 '^cameraDirection rear$' -- take-picture --photo "$work/photo.jpg" "${T[@]}"
grep -q '^debug: ' "$work/err" && { failed=$((failed + 1)); echo "FAIL info-shows-debug"; } || passed=$((passed + 1))
expect open-reason 3 'still open' -- take-picture --no-view-controller "${T[@]}"
expect open-reason-at-error 3 'no view controller' -- take-picture --no-view-controller "${T[@]}" --log-level error
expect none-is-silent 3 '' -- take-picture --no-view-controller "${T[@]}" --log-level none

# Missing, unreadable and undecodable inputs: named, exit 2.
expect missing-photo 2 '--photo: no such file ".*/absent.jpg"' -- take-picture --photo "$work/absent.jpg" "${T[@]}"
expect missing-video 2 '--video: no such file' -- take-picture --video "$work/absent.mov" "${T[@]}"
expect photo-is-folder 2 '--photo: ".*" is not a file' -- take-picture --photo "$work" "${T[@]}"
expect unknown-asset 2 '--pick: "no-such-asset" is neither a file nor an asset' -- take-picture --pick no-such-asset "${T[@]}"
expect missing-pick-file 2 "--pick: \"$work/absent.jpg\" is neither a file nor an asset" -- take-picture --pick "$work/absent.jpg" "${T[@]}"
expect missing-image 2 'no such file' -- image-info "$work/absent.jpg"
expect undecodable-image 2 'text.jpg: ' -- image-info "$work/text.jpg"
expect metadata-of-movie 2 'movie.mov: ' -- metadata "$work/movie.mov"
expect metadata-one-line 0 '' -- metadata "$work/photo.jpg"
jsonLines metadata-json
expect missing-scenario 2 'no such file' -- run "$work/absent.json"
expect missing-library-file 2 'no such file' -- library add "$work/absent.jpg" --library "$work/library"

# Meaningless combinations are refused, not ignored.
expect png-with-quality 2 '--png and --quality do not go together' -- image-fit "$work/photo.jpg" --width 10 --height 10 --png --quality 80 -o "$work/o.png"
expect tap-unknown 2 '--tap: ok not in' -- take-picture --tap ok "${T[@]}"
expect edit-without-photo 2 '--edit' -- take-picture --edit 0,0,10,10 "${T[@]}"
expect answer-never-asked 2 '--camera-answer' -- take-picture --camera-answer denied "${T[@]}"
expect bundle-twice 2 '--no-bundle and --bundle' -- localize CANCEL --no-bundle --bundle "$work"
expect movie-option-on-photo 2 '--seconds is for KIND movie only' -- sample png --seconds 3 -o "$work/s.png"
expect quality-range 2 'quality' -- image-fit "$work/photo.jpg" --width 10 --height 10 --quality 101 -o "$work/o.jpg"

# Generated documents.
expect completion 0 '' -- completion bash
grep -q 'complete -o filenames -F _velqor_camera velqor-camera' "$work/out" && grep -q '"take-picture") subs=' "$work/out" \
  && bash -n "$work/out" && passed=$((passed + 1)) || { failed=$((failed + 1)); echo "FAIL completion-script"; }
# The completion offers subcommands and a subcommand's options.
complete_words() {  # words... -> what the completion offers for the last one
  ( source "$work/out"; COMP_WORDS=(velqor-camera "$@"); COMP_CWORD=$#; _velqor_camera; echo "${COMPREPLY[*]}" )
}
"$bin" completion bash >"$work/out"
[[ " $(complete_words take-pi) " == *" take-picture "* ]] && [[ " $(complete_words take-picture --pho) " == *" --photo "* ]] \
  && [[ "$(complete_words take-picture --camera-access den)" == denied ]] \
  && passed=$((passed + 1)) || { failed=$((failed + 1)); echo "FAIL completion-offers"; }
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
