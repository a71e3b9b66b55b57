#!/usr/bin/env bash
# Checks that every folder includes only folders below it (and never one of
# the same level sideways): the order of docs/ARCHITECTURE.md, bottom first.
# Usage: check-layers.sh [SOURCE_DIR]
set -uo pipefail
cd "${1:-$(dirname "$0")/..}"
declare -A level=(
  [velqor]=0 [host]=1 [platform]=2 [platform/sim]=3 [platform/linux]=4 [media]=5 [core]=5
  [capture]=6 [files]=6 [prompts]=7 [results]=7 [plugin]=8 [session]=9 [embed]=10 [web]=10 [cli]=11
)
folderOf() {  # the deepest known folder of a path
  case $1 in
    include/velqor/*|velqor/*) echo velqor ;;
    platform/sim/*) echo platform/sim ;;
    platform/linux/*) echo platform/linux ;;
    *) echo "${1%%/*}" ;;
  esac
}
checked=0
bad=0
while IFS= read -r file; do
  from=$(folderOf "$file")
  [ -n "${level[$from]+x}" ] || continue
  while IFS= read -r included; do
    to=$(folderOf "$included")
    [ -n "${level[$to]+x}" ] || continue
    checked=$((checked + 1))
    if [ "$to" = media ] && [ "$from" != media ]; then
      # The media module is loaded at run time through MediaStack, never included.
      echo "FAIL $file includes $included: media/ is reached only through platform/linux/MediaStack.h"
      bad=$((bad + 1))
    elif [ "$to" != "$from" ] && [ "${level[$to]}" -ge "${level[$from]}" ]; then
      echo "FAIL $file includes $included: $to is not below $from"
      bad=$((bad + 1))
    fi
  done < <(sed -n 's/^#include [<"]\([^">]*\)[">].*/\1/p' "$file")
done < <(git ls-files '*.h' '*.cpp' 2>/dev/null || find . -name '*.h' -o -name '*.cpp' | sed 's|^\./||')
echo "check-layers: $((checked - bad)) passed, $bad failed"
[ "$bad" -eq 0 ]
