#!/bin/sh
# Installs what is missing, builds everything and runs every test: the unit and
# integration tests under CTest, the installed package with an example built against it
# and the Debian packages (scripts/check-install.sh), then each libFuzzer target for a
# bounded time.
#
#   scripts/test.sh              plain build in build/
#   scripts/test.sh --sanitize   AddressSanitizer + UndefinedBehaviorSanitizer build in
#                                build-asan/; any sanitizer report fails the run
#   scripts/test.sh --thread     ThreadSanitizer build in build-tsan/; any data race (or
#                                other ThreadSanitizer report) fails the run
#   scripts/test.sh --armhf      cross build for the projector (32-bit ARM hard-float) in
#                                build-armhf/, every test run under qemu-arm (the end-to-end
#                                tests start the ARM programs the same way)
# Environment: FUZZ_SECONDS (per target, default 30, 5 for --armhf, whose fuzzers are the
# host's; 0 skips fuzzing), JOBS (default 2).
set -eu
cd "$(dirname "$0")/.."

sanitize=0
thread=0
armhf=0
for arg in "$@"; do
    case "$arg" in
        --sanitize) sanitize=1 ;;
        --thread) thread=1 ;;
        --armhf) armhf=1 ;;
        *) echo "usage: $0 [--sanitize | --thread | --armhf]" >&2; exit 2 ;;
    esac
done

if [ "$armhf" -eq 1 ]; then
    ./scripts/install-deps.sh --armhf
else
    ./scripts/install-deps.sh
fi

jobs="${JOBS:-2}"
if [ "$armhf" -eq 1 ]; then
    build=build-armhf
    options="-DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake -DPROJ_WERROR=ON -DPROJ_BENCH=OFF"
    export FUZZ_SECONDS="${FUZZ_SECONDS:-5}"
elif [ "$sanitize" -eq 1 ]; then
    build=build-asan
    options="-DPROJ_SANITIZE=ON -DPROJ_WERROR=ON -DPROJ_BENCH=OFF"
    export ASAN_OPTIONS="abort_on_error=1:detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1"
    export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
elif [ "$thread" -eq 1 ]; then
    build=build-tsan
    options="-DPROJ_THREAD_SANITIZE=ON -DPROJ_WERROR=ON -DPROJ_BENCH=OFF"
    # Races are the subject; the fuzzers (clang, libFuzzer) have no threads to race. Every
    # process writes its reports to a file of its own, so those of the programs the
    # end-to-end tests start (whose output goes to their logs) are found too.
    reports="$(pwd)/$build/tsan-reports"
    rm -rf "$reports"
    mkdir -p "$reports"
    export TSAN_OPTIONS="second_deadlock_stack=1:log_path=$reports/report"
    export FUZZ_SECONDS=0
else
    build=build
    options="-DPROJ_WERROR=ON"
fi

# shellcheck disable=SC2086
cmake -S . -B "$build" $options
cmake --build "$build" -j "$jobs"

log="$build/ctest-output.log"
status=0
(cd "$build" && ctest --output-on-failure -j "$jobs") > "$log" 2>&1 || status=$?
cat "$log"
if grep -Eq "runtime error:|ERROR: (Address|Leak|UndefinedBehavior)Sanitizer" "$log"; then
    echo "sanitizer report found in the test output" >&2
    status=1
fi
if [ "$thread" -eq 1 ] && [ -n "$(ls -A "$reports")" ]; then
    cat "$reports"/*
    echo "ThreadSanitizer reports found (above, one file per process in $reports)" >&2
    status=1
fi
if [ "$status" -ne 0 ]; then
    echo "tests FAILED" >&2
    exit "$status"
fi

if [ "$armhf" -eq 1 ]; then
    ./scripts/check-install.sh "$build" armhf
elif [ "$sanitize" -eq 1 ]; then
    ./scripts/check-install.sh "$build" sanitize
elif [ "$thread" -eq 1 ]; then
    :  # the installation is checked by the other runs
else
    ./scripts/check-install.sh "$build"
fi
./scripts/fuzz.sh
echo "all tests passed"
