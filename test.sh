#!/usr/bin/env bash
# Sets up what is missing, builds, runs every test.  ./test.sh [PRESET], default release
set -euo pipefail
cd "$(dirname "$0")"
preset=${1:-release}
tools/setup.sh test
tools/build.sh "$preset"
ctest --test-dir "build/$preset" --output-on-failure --no-tests=error -j 2
