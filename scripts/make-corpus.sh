#!/usr/bin/env bash
# Writes the adversarial corpus (hostile images and movies, made by the
# project's own code) to DIR, for use outside the test suite.
#   scripts/make-corpus.sh [DIR] [BUILD]
set -euo pipefail
dir="${1:-build/adversarial-corpus}"
build="${2:-build}"
"$build/fuzz/corpus_run" --write "$dir"
