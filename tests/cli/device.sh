#!/usr/bin/env bash
# The simulated device and the files commands as a new user runs them.
set -u
bin="$1"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The record of the folders the tool made, and the default library, stay in the scratch tree.
export XDG_STATE_HOME="$work/state"
T=(--temp-dir "$work/tmp")
fail=0
check() {  # name, expected, actual
  if [ "$2" != "$3" ]; then echo "FAIL $1: expected [$2] got [$3]"; fail=1; else echo "ok $1"; fi
}
answer() { grep '"status"' | tail -1; }

check no-camera '{"keepCallback":false,"payload":"Camera disabled device","status":"OBJECT_REFERENCE_FAILED"}' \
  "$("$bin" take-picture --args '[]' --no-camera "${T[@]}" 2>/dev/null | answer)"
check camera-denied-cancel '{"keepCallback":false,"payload":"Not have permission to use the camera.","status":"NO_PERMISSION"}' \
  "$("$bin" take-picture --camera-access denied --tap cancel "${T[@]}" 2>/dev/null | answer)"
"$bin" take-picture --camera-access denied --tap settings --events "${T[@]}" >"$work/out" 2>"$work/err"
check settings-exit 3 $?
grep -q '"event":"settingsOpened"' "$work/out"; check settings-opened 0 $?
grep -q 'settings page was opened' "$work/err"; check settings-reason 0 $?
check library-refused '{"keepCallback":false,"payload":"has no access to PhotoLibrary","status":"NO_PERMISSION"}' \
  "$("$bin" take-picture --args '[50, 1, 0]' --library-access notDetermined --library-answer denied "${T[@]}" 2>/dev/null | answer)"
check media-all '{"keepCallback":false,"payload":"Not supported mediaType","status":"INVALID_PARAM"}' \
  "$("$bin" take-picture --args '[50, 1, 1, null, null, 0, 2]' "${T[@]}" 2>/dev/null | answer)"
"$bin" take-picture --args '[50, 1, 0]' --library-access limited "${T[@]}" >/dev/null 2>"$work/err"
check limited-exit 3 $?
grep -q 'limited' "$work/err"; check limited-reason 0 $?
"$bin" take-picture --no-view-controller "${T[@]}" >/dev/null 2>"$work/err"
check no-vc-exit 3 $?
grep -q 'no view controller' "$work/err"; check no-vc-reason 0 $?
"$bin" take-picture --args '[50, 1, 1, null, null, 0, 1]' --events --cancel "${T[@]}" >"$work/out" 2>/dev/null
grep -q '"mediaTypes":\["public.movie"\],"captureMode":1' "$work/out"; check video-picker 0 $?
"$bin" take-picture --args '[50, 1, 0]' --events --cancel "${T[@]}" >"$work/out" 2>/dev/null
grep -q '"source":0,"mediaTypes":\["public.image"\]' "$work/out"; check library-picker 0 $?
"$bin" take-picture --camera-access denied --tap cancel --events --lang fr "${T[@]}" >"$work/out" 2>/dev/null
grep -q '"buttons":\["Réglages","Annuler"\]' "$work/out"; check french-prompt 0 $?
check localize-de "Abbrechen" "$("$bin" localize CANCEL --lang de)"
check localize-missing "NOPE" "$("$bin" localize NOPE)"
check localize-no-bundle "" "$("$bin" localize CANCEL --no-bundle)"
"$bin" take-picture --camera-access bogus >/dev/null 2>&1; check bad-access-exit 2 $?
check localize-second-choice "Annuler" "$(LANGUAGE=sv:fr "$bin" localize CANCEL)"
check localize-region-dropped "Abbrechen" "$(LANGUAGE= LC_ALL= LANG=de_AT.UTF-8 "$bin" localize CANCEL)"

# A picker set up for pictures does not take a movie: it stays on the screen, nothing is answered.
"$bin" sample movie --seconds 0.3 -o "$work/movie.mov" >/dev/null
"$bin" take-picture --args '[50, 1, 1]' --video "$work/movie.mov" --events "${T[@]}" >"$work/out" 2>"$work/err"
check refused-exit 3 $?
grep -q '"event":"pickerRefused"' "$work/out"; check refused-event 0 $?
grep -q 'set up for pictures only' "$work/err"; check refused-reason 0 $?
grep -q '"status"' "$work/out"; check refused-no-answer 1 $?

# A portrait camera photo answered as a file keeps its stored pixels and its orientation.
"$bin" sample camera-jpeg --width 640 --height 480 -o "$work/portrait.jpg" >/dev/null
photo=$("$bin" take-picture --args '[50, 1, 1]' --photo "$work/portrait.jpg" --library "$work/lib" --temp-dir "$work/photos" 2>/dev/null \
  | answer | sed 's/.*"callbackURI":"\([^"]*\)".*/\1/')
check portrait-orientation '"Orientation":6' "$("$bin" metadata "$photo" | tr -d ' \n' | grep -o '"Orientation":[0-9]*' | head -1)"
check portrait-info-orientation '"exifOrientation":6,"imageOrientation":"right"' \
  "$("$bin" image-info "$photo" | grep -o '"exifOrientation":[0-9]*,"imageOrientation":"[a-zA-Z]*"')"
check portrait-stored-size '"storedSize":[640,480]' "$("$bin" image-info "$photo" | grep -o '"storedSize":\[[0-9,]*\]')"

# Files.
path=$("$bin" temp-path jpg "${T[@]}")
[[ "$path" =~ ^$work/tmp/velqor_photo_[0-9]{14}\.jpg$ ]]; check temp-path 0 $?
mkdir -p "$work/outside" && echo keep > "$work/outside/keep"
ln -s "$work/outside/keep" "$work/tmp/link" && touch "$work/tmp/velqor_photo_1.jpg"
check cleanup '{"keepCallback":false,"payload":null,"status":"OK"}' "$("$bin" cleanup "${T[@]}")"
check cleanup-left-outside keep "$(cat "$work/outside/keep")"
check cleanup-emptied "" "$(ls -A "$work/tmp")"

# Picking by the library's identifier (UUID/L0/001), the form `library list` prints; a file is
# imported first; a name that is neither is refused with both readings named.
id=$("$bin" library add "$work/portrait.jpg" --library "$work/picklib" | sed -n 's/.*"identifier":"\([^"]*\)".*/\1/p')
case "$id" in */L0/001) check pick-id-form ok ok ;; *) check pick-id-form "UUID/L0/001" "$id" ;; esac
check pick-by-identifier '"status":"OK"' "$("$bin" take-picture --args '[50, 1, 0]' --pick "$id" --library "$work/picklib" \
  "${T[@]}" 2>"$work/err" | answer | grep -o '"status":"OK"')"
check pick-by-identifier-kept-one 1 "$("$bin" library list --library "$work/picklib" | grep -c identifier)"
# A file that happens to lie at the identifier's path does not shadow the asset.
mkdir -p "$work/cwd/${id%/*}" && cp "$work/portrait.jpg" "$work/cwd/$id"
(cd "$work/cwd" && "$bin" take-picture --args '[50, 1, 0]' --pick "$id" --library "$work/picklib" "${T[@]}" >/dev/null 2>&1)
check pick-identifier-before-file 1 "$("$bin" library list --library "$work/picklib" | grep -c identifier)"
check pick-by-file '"status":"OK"' "$("$bin" take-picture --args '[50, 1, 0]' --pick "$work/portrait.jpg" --library "$work/picklib" \
  "${T[@]}" 2>/dev/null | answer | grep -o '"status":"OK"')"
check pick-by-file-imported 2 "$("$bin" library list --library "$work/picklib" | grep -c identifier)"
"$bin" take-picture --args '[50, 1, 0]' --pick "${id%%/*}0/L0/001" --library "$work/picklib" "${T[@]}" >/dev/null 2>"$work/err"
check pick-neither-exit 2 $?
grep -q 'is neither a file nor an asset of the library' "$work/err"; check pick-neither-message 0 $?

# Folder choices that would lose someone's files, on a scratch tree and links to it.
mkdir -p "$work/project/src" && echo code > "$work/project/src/main.cpp" && echo notes > "$work/project/notes.txt"
ln -s "$work/project" "$work/link-to-project"
refused() {  # name, expected message part, command...
  local name=$1 want=$2; shift 2
  "$@" >/dev/null 2>"$work/err"; check "$name-exit" 2 $?
  grep -q "$want" "$work/err"; check "$name-message" 0 $?
}
refused cleanup-foreign-folder 'did not write' "$bin" cleanup --temp-dir "$work/project"
refused cleanup-dot 'did not write' bash -c "cd '$work/project' && '$bin' cleanup --temp-dir ."
refused cleanup-link 'did not write' "$bin" cleanup --temp-dir "$work/link-to-project"
refused cleanup-system-tree 'system tree /usr' "$bin" cleanup --temp-dir "$work/link-to-project/../../../usr/local"
refused library-in-temp 'must not lie in the temporary folder' "$bin" cleanup "${T[@]}" --library "$work/tmp/lib"
check foreign-files-kept "code notes" "$(cat "$work/project/src/main.cpp" "$work/project/notes.txt" | tr '\n' ' ' | sed 's/ $//')"
deep=$(printf '%.0s[' $(seq 30000))$(printf '%.0s]' $(seq 30000))
refused deep-args 'more than 64 deep' "$bin" take-picture --args "$deep" "${T[@]}"
mkdir -p "$work/W/runs" && echo keep > "$work/W/keep" && echo '{"name":"x","steps":[]}' > "$work/..json"
refused run-dotdot-stem 'cannot name a run folder' "$bin" run "$work/..json" --work "$work/W/runs"
check run-left-outside keep "$(cat "$work/W/keep")"
exit $fail
