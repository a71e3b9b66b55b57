#!/usr/bin/env bash
# Installs the build into a fresh prefix, checks what a packager expects to
# find there, builds examples/embed against it with find_package and with
# pkg-config, and runs embed_capture on a sample photo.
# Usage: embed-check.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
src=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >/dev/null
for wanted in "lib*/libvelqor_camera.so.[0-9]*" "lib*/cmake/VelqorCamera/VelqorCameraConfig.cmake" \
              "lib*/pkgconfig/velqor-camera.pc" "include/velqor/CameraSession.h" "bin/velqor-camera" \
              "lib*/libvelqor_media.so" "share/velqor-camera/Velqor.bundle" "share/velqor-camera/page/index.html" \
              "share/man/man1/velqor-camera.1" "share/bash-completion/completions/velqor-camera"; do
  # shellcheck disable=SC2086
  if ! ls -d "$prefix"/$wanted >/dev/null 2>&1; then echo "embed-check: missing $wanted"; exit 1; fi
done

# The public headers stand alone: nothing of the source tree is reachable.
for header in "$prefix"/include/velqor/*.h; do
  echo "#include <velqor/$(basename "$header")>" | c++ -std=c++17 -fsyntax-only -I"$prefix/include" -x c++ - \
    || { echo "embed-check: $(basename "$header") does not compile on its own"; exit 1; }
done

cmake -S "$src/examples/embed" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
PKG_CONFIG_PATH=$(dirname "$(ls -d "$prefix"/lib*/pkgconfig/velqor-camera.pc)") \
  sh -c 'c++ -std=c++20 "$0" -o "$1" $(pkg-config --cflags --libs velqor-camera) -Wl,-rpath,$(pkg-config --variable=libdir velqor-camera)' \
  "$src/examples/embed/embed_capture.cpp" "$work/embed_capture_pc"

"$prefix/bin/velqor-camera" sample camera-jpeg --width 1200 --height 900 -o "$work/photo.jpg" >/dev/null
for program in "$work/cmake-build/embed_capture" "$work/embed_capture_pc"; do
  line=$("$program" "$work/photo.jpg")
  echo "${line:0:100}..."
  case $line in
    *'"payload":{"callbackURI":"data:image/jpeg;base64,'*'"status":"OK"}') ;;
    *) echo "embed-check: unexpected answer from $program"; exit 1 ;;
  esac
done
# Movies go through the media module: the installed program and the installed
# library each load it from the prefix, not from the build tree.
moduleFrom() {  # the libvelqor_media.so the dynamic loader opened for the command
  LD_DEBUG=files "$@" 2>&1 >/dev/null | grep -o 'file=[^ ]*libvelqor_media.so' | head -1 | sed 's/^file=//'
}
module=$(moduleFrom "$prefix/bin/velqor-camera" sample movie --seconds 1 -o "$work/clip.mov")
case $module in
  "$prefix"/lib*/libvelqor_media.so) ;;
  *) echo "embed-check: the installed program loaded the media module from [${module}]"; exit 1 ;;
esac
module=$(moduleFrom "$work/cmake-build/embed_capture" "$work/clip.mov")
case $module in
  "$prefix"/lib*/libvelqor_media.so) ;;
  *) echo "embed-check: the installed library loaded the media module from [${module}]"; exit 1 ;;
esac
line=$("$work/cmake-build/embed_capture" "$work/clip.mov")
case $line in
  *'"payload":{"callbackURI":"file://'*'.mp4"'*'"status":"OK"}') echo "${line:0:100}..." ;;
  *) echo "embed-check: unexpected answer for a movie: $line"; exit 1 ;;
esac
# The installed program finds its bundle through the prefix, also when copied elsewhere.
cp "$prefix/bin/velqor-camera" "$work/copied"
[ "$(VELQOR_CAMERA_DATA_DIR="$prefix/share/velqor-camera" "$work/copied" localize CANCEL --lang de)" = Abbrechen ] \
  || { echo "embed-check: the environment override does not find the bundle"; exit 1; }
[ "$("$prefix/bin/velqor-camera" localize CANCEL --lang fr)" = Annuler ] \
  || { echo "embed-check: the installed program does not find its bundle"; exit 1; }
echo "embed-check: 5 passed, 0 failed"
