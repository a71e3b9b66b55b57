#!/usr/bin/env bash
# The spine's CLI as a user runs it: parsed options, version, usage errors.
set -u
bin="$1"
fail=0
check() {  # name, expected, actual
  if [ "$2" != "$3" ]; then echo "FAIL $1: expected [$2] got [$3]"; fail=1; else echo "ok $1"; fi
}
check defaults \
  '{"quality":50,"destinationType":2,"sourceType":1,"targetSize":null,"encodingType":0,"mediaType":0,"cameraDirection":0,"allowsEditing":false,"correctOrientation":false,"saveToPhotoAlbum":false,"usesGeolocation":false,"cropToSize":false,"useLocationService":false}' \
  "$("$bin" options --args '[]')"
check every-flag \
  '{"quality":150,"destinationType":null,"sourceType":1,"targetSize":[1024.0,768.0],"encodingType":null,"mediaType":1,"cameraDirection":1,"allowsEditing":true,"correctOrientation":true,"saveToPhotoAlbum":true,"usesGeolocation":true,"cropToSize":false,"useLocationService":true}' \
  "$("$bin" options --args '[150, 3, 0, 1024, 768, 2, 1, true, true, true, null, true, true]')"
check geolocation-default "false" "$("$bin" uses-geolocation)"
check geolocation-after-parse "true" \
  "$("$bin" uses-geolocation --args '[50,1,1,null,null,0,0,false,false,false,null,false,true]')"
"$bin" version | grep -q '9.2.1.0'; check version 0 $?
for bad in '{' '{"a":1}' '"x"' ''; do
  "$bin" options --args "$bad" >/dev/null 2>&1; check "malformed:$bad" 2 $?
done
"$bin" no-such-command >/dev/null 2>&1; check unknown-subcommand 2 $?
"$bin" >/dev/null 2>&1; check no-subcommand 2 $?
exit $fail
