#!/usr/bin/env bash
# Mutation check: plants each deliberate fault listed in scripts/mutants.txt,
# one at a time (one exact literal replacement in one source file), rebuilds
# only the test binary, runs the suite and puts the file back. A mutant is
# killed when the suite fails (or hangs past the timeout); it survives when the
# suite passes. Every listed mutant must be killed: the script exits 1 when one
# survives, cannot be applied (its text is not found exactly once) or does not
# build.
#
# Usage: scripts/mutants.sh [build-dir] [number...]
#        scripts/mutants.sh --check   (only checks that every mutant applies)
#   MUTANTS_LIST     the list (default scripts/mutants.txt)
#   MUTANT_TIMEOUT   seconds one suite run may take (default 900)
#
# The list holds blocks of four lines, separated by blank lines; "#" starts a
# comment line. Each value follows its label and one space, exactly:
#   file: capture/TakePictureFlow.cpp
#   from: the exact original text (one line, found exactly once in the file)
#   to: its replacement (may be empty: the code is dropped)
#   why: what a user would suffer
# An optional fifth line "ctest: <regex>" also runs those ctest tests (after a
# full build) when the test binary alone passes.
set -uo pipefail
shopt -u patsub_replacement 2>/dev/null || true  # "&" in a replacement stays literal

root=$(cd "$(dirname "$0")/.." && pwd)
check_only=false
if [[ ${1:-} == --check ]]; then
  check_only=true
  shift
fi
build=${1:-build}
shift || true
[[ $build = /* ]] || build=$root/$build
list=${MUTANTS_LIST:-$root/scripts/mutants.txt}
limit=${MUTANT_TIMEOUT:-900}
selected=("$@")
tests=$build/tests/velqor_tests
logs=$build/mutants
$check_only || mkdir -p "$logs"

backup=""
target=""
restore() {
  if [[ -n $backup && -f $backup ]]; then
    cat "$backup" >"$target"  # a fresh time stamp: the next build recompiles it
    rm -f "$backup"
    backup=""
  fi
}
trap 'restore; echo "mutants: interrupted; $target restored" >&2; exit 130' INT TERM
trap restore EXIT

# Counts the exact occurrences of $2 in the text $1.
occurrences() {
  local rest=$1 n=0
  while [[ $rest == *"$2"* ]]; do
    rest=${rest#*"$2"}
    n=$((n + 1))
  done
  echo "$n"
}

# Reads the list into parallel arrays.
files=() froms=() tos=() whys=() ctests=()
flush() {
  if [[ -n ${m_file:-} ]]; then
    files+=("$m_file") froms+=("$m_from") tos+=("$m_to") whys+=("$m_why") ctests+=("$m_ctest")
  fi
  m_file="" m_from="" m_to="" m_why="" m_ctest=""
}
flush
while IFS= read -r line || [[ -n $line ]]; do
  case $line in
    "#"*) ;;
    "") flush ;;
    "file: "*) m_file=${line#file: } ;;
    "from: "*) m_from=${line#from: } ;;
    "to: "* | "to:") m_to=${line#to:}; m_to=${m_to# } ;;
    "why: "*) m_why=${line#why: } ;;
    "ctest: "*) m_ctest=${line#ctest: } ;;
    *) echo "mutants: cannot read this line of $list: $line" >&2; exit 2 ;;
  esac
done <"$list"
flush

if $check_only; then
  bad=0
  for i in "${!files[@]}"; do
    count=0
    if [[ -f $root/${files[i]} ]]; then
      content=$(cat "$root/${files[i]}"; printf x)
      count=$(occurrences "${content%x}" "${froms[i]}")
    fi
    if [[ $count -ne 1 ]]; then
      bad=$((bad + 1))
      printf '%3d  %-34s  found %d times: %s\n' $((i + 1)) "${files[i]}" "$count" "${froms[i]}"
    fi
  done
  echo "mutants: ${#files[@]} listed, $bad cannot be applied"
  ((bad == 0))
  exit
fi

echo "mutants: ${#files[@]} in $list; build $build"
if ! cmake --build "$build" --target velqor_tests >"$logs/baseline-build.log" 2>&1; then
  echo "mutants: the unmutated test binary does not build (see $logs/baseline-build.log)" >&2
  exit 2
fi

results=()
failed=0
for i in "${!files[@]}"; do
  n=$((i + 1))
  if ((${#selected[@]})) && [[ " ${selected[*]} " != *" $n "* ]]; then continue; fi
  target=$root/${files[i]}
  start=$SECONDS
  outcome=""
  if [[ ! -f $target ]]; then
    outcome="NO FILE"
  else
    content=$(cat "$target"; printf x)
    content=${content%x}
    count=$(occurrences "$content" "${froms[i]}")
    if [[ $count -ne 1 ]]; then
      outcome="NOT APPLIED (text found $count times)"
    fi
  fi
  if [[ -z $outcome ]]; then
    backup=$(mktemp "$logs/original.XXXXXX")
    cat "$target" >"$backup"
    printf '%s' "${content/"${froms[i]}"/"${tos[i]}"}" >"$target"
    log=$logs/mutant-$n.log
    if ! cmake --build "$build" --target velqor_tests >"$log" 2>&1; then
      outcome="NO BUILD"
    else
      (cd "$build" && timeout "$limit" "$tests" --gtest_brief=1 --gtest_fail_fast >>"$log" 2>&1) 2>>"$log"
      rc=$?
      if [[ $rc -eq 124 ]]; then
        outcome="killed (timeout)"
      elif [[ $rc -gt 128 ]]; then
        outcome="killed (crash)"
      elif [[ $rc -ne 0 ]]; then
        outcome="killed"
      elif [[ -n ${ctests[i]} ]]; then
        if ! cmake --build "$build" >>"$log" 2>&1; then
          outcome="NO BUILD"
        elif (cd "$build" && timeout "$limit" ctest -R "${ctests[i]}" --output-on-failure >>"$log" 2>&1); then
          outcome="SURVIVED"
        else
          outcome="killed (ctest)"
        fi
      else
        outcome="SURVIVED"
      fi
    fi
    restore
  fi
  [[ $outcome == killed* ]] || failed=$((failed + 1))
  row=$(printf '%3d  %-34s  %-18s  %4ds  %s' "$n" "${files[i]}" "$outcome" $((SECONDS - start)) "${whys[i]}")
  results+=("$row")
  echo "$row"
done

# The restored sources, built again, leave the build as it was.
cmake --build "$build" --target velqor_tests >"$logs/final-build.log" 2>&1

echo
printf '%3s  %-34s  %-18s  %5s  %s\n' "#" "file" "result" "time" "fault"
printf '%s\n' "${results[@]}"
echo
if ((failed)); then
  echo "mutants: $failed of ${#results[@]} not killed (logs in $logs)"
  exit 1
fi
echo "mutants: all ${#results[@]} killed"
