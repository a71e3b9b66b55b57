#!/usr/bin/env bash
# Checks that every folder includes only folders below it (and never one of
# the same level sideways): the order of docs/ARCHITECTURE.md, bottom first.
# Usage: check-layers.sh [SOURCE_DIR]
set -uo pipefail
cd "${1:-$(dirname "$0")/..}"
declare -A level=(
  [velqor]=0 [host]=1 [imaging]=2 [imaging/metadata]=3 [imaging/jpeg]=4 [imaging/codecs]=5
  [platform]=6 [platform/sim]=7 [platform/linux]=8 [media]=9 [core]=9
  [capture]=10 [files]=10 [prompts]=11 [results]=11 [plugin]=12 [session]=13 [embed]=14 [web]=14 [cli]=15
)
folderOf() {  # the deepest known folder of a path
  case $1 in
    include/velqor/*|velqor/*) echo velqor ;;
    imaging/metadata/*) echo imaging/metadata ;;
    imaging/jpeg/*) echo imaging/jpeg ;;
    imaging/codecs/*) echo imaging/codecs ;;
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
# Every folder that holds code says what it owns in a README.md.
while IFS= read -r folder; do
  checked=$((checked + 1))
  if [ ! -f "$folder/README.md" ]; then
    echo "FAIL $folder holds code but no README.md"
    bad=$((bad + 1))
  fi
done < <(git ls-files '*.h' '*.cpp' '*.js' '*.mjs' '*.ts' '*.sh' '*.cmake' '*.py' 2>/dev/null | grep -v -E '(^|/)node_modules/' |
         xargs -r -n1 dirname | sort -u | grep -v '^\.$' | grep -v '^\.ci$')
# Every top-level folder is a row of docs/ARCHITECTURE.md's folder table.
for folder in */; do
  folder=${folder%/}
  [ "$folder" = node_modules ] && continue
  case $folder in build*) continue ;; esac
  git ls-files --error-unmatch "$folder" >/dev/null 2>&1 || continue
  checked=$((checked + 1))
  if ! grep -q "^| \`$folder/" docs/ARCHITECTURE.md; then
    echo "FAIL $folder/ is not in docs/ARCHITECTURE.md's folder table"
    bad=$((bad + 1))
  fi
done
echo "check-layers: $((checked - bad)) passed, $bad failed"
[ "$bad" -eq 0 ]
