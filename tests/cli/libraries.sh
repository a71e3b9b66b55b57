#!/usr/bin/env bash
# Which shared libraries a run maps: a photo never loads the movie and HEIF
# stacks; a movie or a HEIF image loads them, and works.
set -u
bin="$1"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
fail=0
check() {  # name, expected, actual
  if [ "$2" != "$3" ]; then echo "FAIL $1: expected [$2] got [$3]"; fail=1; else echo "ok $1"; fi
}
# How many distinct libraries matching the pattern the dynamic loader opened
# during the command.
opened() {  # pattern, command...
  local pattern="$1"; shift
  LD_DEBUG=files "$@" 2>&1 >/dev/null | grep -o 'file=[^ ]*' | sort -u | grep -c -E "$pattern"
}
heavy='libavcodec|libavformat|libheif|libx265|libvelqor_media'
"$bin" sample camera-jpeg -o "$work/photo.jpg" >/dev/null
"$bin" sample png --width 400 --height 300 -o "$work/scene.png" >/dev/null
check photo-fit-maps-no-movie-stack 0 "$(opened "$heavy" "$bin" image-fit "$work/photo.jpg" --width 0 --height 0 -o "$work/out.jpg")"
check png-fit-maps-no-movie-stack 0 "$(opened "$heavy" "$bin" image-fit "$work/scene.png" --width 100 --height 100 -o "$work/out2.jpg")"
check photo-capture-maps-no-movie-stack 0 "$(opened "$heavy" "$bin" take-picture --args '[50, 1, 1]' --photo "$work/photo.jpg" \
  --temp-dir "$work/tmp" --library "$work/lib")"
[ -s "$work/out.jpg" ] && [ -n "$(ls "$work/tmp")" ]; check photo-outputs-written 0 $?
# A movie loads the module, once, and the capture answers with the movie.
check movie-loads-the-module 1 "$(opened 'libvelqor_media' "$bin" sample movie --seconds 1 -o "$work/clip.mov")"
"$bin" take-picture --args '[50, 1, 1, null, null, 0, 1]' --video "$work/clip.mov" --temp-dir "$work/vtmp" \
  --library "$work/lib" | grep -q '"status":"OK"'
check movie-capture-answers 0 $?
ls "$work/vtmp"/*.mp4 >/dev/null 2>&1; check movie-written 0 $?
exit $fail
