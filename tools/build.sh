#!/usr/bin/env bash
# Configures a preset when it isn't yet and builds it:  tools/build.sh PRESET [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
shift
[ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >"/dev/null"
ninja -C "build/$preset" --quiet "$@"
