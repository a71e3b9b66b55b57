#!/usr/bin/env bash
# Runs the whole suite through ctest, then names every skipped test with the
# reason it printed (a GoogleTest skip's message, or the last lines a script
# test wrote before exiting 77), so that nothing is skipped silently. Exits
# with ctest's status; ctest's summary line is repeated last.
# Usage: run-tests.sh BUILD_DIR [JOBS [CTEST_ARGS...]]  (e.g. -R cli_ to run part of the suite)
set -uo pipefail
build="${1:-build}"
jobs="${2:-$(nproc)}"
shift $(( $# < 2 ? $# : 2 ))
cd "$build" || exit 2
out=$(mktemp)
trap 'rm -f "$out"' EXIT

ctest --output-on-failure -j "$jobs" "$@" 2>&1 | tee "$out"
status=${PIPESTATUS[0]}

# "  12 - Suite.Name (Skipped)" in the list of tests that did not run.
mapfile -t skipped < <(sed -n 's/^[[:space:]]*[0-9][0-9]* - \(.*\) (Skipped)$/\1/p' "$out")
if [ ${#skipped[@]} -gt 0 ]; then
  echo
  echo "Skipped, with the reason each gave:"
  for name in "${skipped[@]}"; do
    reason=$(awk -v name="$name" '
      $0 ~ /^[0-9]+\/[0-9]+ Test: / { sub(/^[0-9]+\/[0-9]+ Test: /, ""); current = $0; inside = 0; next }
      current == name && /^Output:/ { inside = 1; getline; n = 0; next }
      current == name && inside && /^<end of output>/ { inside = 0; current = ""; next }
      current == name && inside { lines[n++] = $0 }
      END {
        # A GoogleTest skip: the message follows the "file:line: Skipped" line.
        for (i = 0; i < n; i++)
          if (lines[i] ~ /: Skipped$/) {
            msg = ""
            for (j = i + 1; j < n && lines[j] !~ /^\[  SKIPPED \]/; j++)
              if (lines[j] != "") msg = msg (msg == "" ? "" : " ") lines[j]
            print msg; exit
          }
        # Anything else: its last words.
        msg = ""; k = 0
        for (i = n - 1; i >= 0 && k < 2; i--)
          if (lines[i] != "") { msg = lines[i] (msg == "" ? "" : " / " msg); k++ }
        print msg
      }' Testing/Temporary/LastTest.log)
    echo "  $name: ${reason:-(no reason printed)}"
  done
fi
summary=$(grep -E '^[0-9]+% tests passed' "$out" | tail -1)
[ -n "$summary" ] && { echo; echo "$summary"; }
exit "$status"
