#!/bin/sh
# Builds (optimised, without sanitizers) and runs every benchmark in bench/ (the SNMP walk's
# too, bench/snmp_walk_bench.sh, and the controller's memory, bench/vprojector_memory.sh;
# with a cross build in build-armhf, from scripts/test.sh --armhf, also the instructions per
# request of the ARM programs, bench/arm_instructions.sh). Each prints
# Google Benchmark's table and, at the end, RATIO lines: a measured figure divided by
# its baseline from the same run, beside the goal.
#   scripts/bench.sh [benchmark options, e.g. --benchmark_min_time=2]
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DPROJ_BENCH=ON
cmake --build build-bench -j "${JOBS:-2}"
for bench in build-bench/bin/bench/*; do
    echo "== $(basename "$bench")"
    "$bench" "$@"
done
echo "== snmp_walk_bench"
status=0
bench/snmp_walk_bench.sh build-bench || status=$?
if [ "$status" -ne 0 ] && [ "$status" -ne 77 ]; then  # 77: the SNMP tools are missing, said why
    exit "$status"
fi
echo "== vprojector_memory"
bench/vprojector_memory.sh build-bench
if [ -x build-armhf/bin/vprojector ]; then
    echo "== arm_instructions"
    bench/arm_instructions.sh build-armhf build-bench
else
    echo "== arm_instructions: skipped, no build-armhf (scripts/test.sh --armhf makes it)"
fi
