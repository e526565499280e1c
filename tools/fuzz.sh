#!/usr/bin/env bash
# Builds the fuzz targets and gives each some seconds over its corpus.
#
#   tools/fuzz.sh SECONDS [TARGET...]     TARGET without _fuzz; default: all
#
# FUZZ_SEED=N tries the same inputs each time; without it they are others each time.
# What a target finds is left in build/fuzz/findings; new inputs go to build/fuzz/corpus, not into the tree.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=$1
shift
tools/build.sh fuzz fuzz_targets
mkdir -p build/fuzz/findings
targets=("$@")
if [ ${#targets[@]} = 0 ]; then
    for file in fuzz/*_fuzz.cpp; do targets+=("$(basename "$file" _fuzz.cpp)"); done
fi
export ASAN_OPTIONS=allocator_may_return_null=1 QT_ENABLE_REGEXP_JIT=0
for target in "${targets[@]}"; do
    mkdir -p "build/fuzz/corpus/$target" "fuzz/corpus/$target"
    log=build/fuzz/findings/$target.log
    if ! "build/fuzz/fuzz/${target}_fuzz" -max_total_time="$seconds" -seed="${FUZZ_SEED:-0}" -timeout=20 -rss_limit_mb=2048 -verbosity=1 \
        -artifact_prefix="build/fuzz/findings/$target-" \
        "build/fuzz/corpus/$target" "fuzz/corpus/$target" >"$log" 2>&1; then
        tail -n 40 "$log"
        echo "fuzz: $target failed; the input is in build/fuzz/findings" >&2
        exit 1
    fi
    echo "fuzz: $target, $(grep -o 'Done [0-9]* runs' "$log" || echo 'no runs')"
done
