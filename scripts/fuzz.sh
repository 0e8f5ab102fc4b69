#!/bin/sh
# Builds the libFuzzer targets with clang (in build-fuzz/) and runs each one for
# FUZZ_SECONDS seconds (default 30; 0 skips) on a scratch copy of its seed corpus in
# fuzz/corpus/<name without _fuzz>/. A crash, leak or sanitizer report fails the run and
# leaves the reproducer in build-fuzz/.
set -eu
cd "$(dirname "$0")/.."

seconds="${FUZZ_SECONDS:-30}"
if [ "$seconds" -eq 0 ]; then
    exit 0
fi

CC=clang CXX=clang++ cmake -S . -B build-fuzz -DPROJ_FUZZ=ON -DPROJ_WERROR=ON
cmake --build build-fuzz -j "${JOBS:-2}" --target fuzz_all

for fuzzer in build-fuzz/bin/fuzz/*_fuzz; do
    name=$(basename "$fuzzer" _fuzz)
    scratch="build-fuzz/corpus-$name"
    rm -rf "$scratch"
    mkdir -p "$scratch"
    echo "fuzzing $name for $seconds s"
    (cd build-fuzz && "../$fuzzer" -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 \
        "corpus-$name" "../fuzz/corpus/$name") > "build-fuzz/$name.log" 2>&1 || {
        tail -50 "build-fuzz/$name.log"
        echo "fuzzer $name FAILED" >&2
        exit 1
    }
    grep -E "^(Done|stat::number_of_executed_units)" "build-fuzz/$name.log" || true
done
