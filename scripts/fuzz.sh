#!/usr/bin/env bash
# Builds the libFuzzer programs with clang (ASan + UBSan) in build-fuzz and runs
# each for SECONDS, starting from seeds made by the project's own code and the
# regression inputs. Findings are written to build-fuzz/fuzz-findings/.
#   scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-30}"
shift || true
build=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DVELQOR_FUZZ=ON >/dev/null
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(take_picture_arguments image_pipeline image_metadata strings_file scenario_file movie_export json_readers
           http_request library_file)
fi
cmake --build "$build" -j "$(nproc)" --target fuzz_replay $(printf 'fuzz_%s ' "${targets[@]}")
"$build/fuzz/fuzz_replay" --seeds "$build/fuzz-seeds"
mkdir -p "$build/fuzz-findings"
status=0
for t in "${targets[@]}"; do
  corpus="$build/fuzz-corpus/$t"
  mkdir -p "$corpus" "fuzz/regressions/$t"
  echo "== $t (${seconds} s)"
  if ! ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 "$build/fuzz/fuzz_$t" "$corpus" "$build/fuzz-seeds/$t" \
       "fuzz/regressions/$t" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=3072 -max_len=1048576 \
       -artifact_prefix="$build/fuzz-findings/$t-" -print_final_stats=1 2>"$build/fuzz-findings/$t.log"; then
    echo "   FINDING: see $build/fuzz-findings/$t.log; copy the input to fuzz/regressions/$t/"
    status=1
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "$build/fuzz-findings/$t.log" | sed 's/^/   /'
done
exit $status
