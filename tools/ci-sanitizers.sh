#!/bin/sh
# The sanitizer half of the test run:
#   1. ASan+UBSan build, every test;
#   2. TSan build, the tests labelled "threads" (those that start a thread
#      or a peer process; cmake/ZentrixModule.cmake says how a suite gets it);
#   3. every fuzz target for a short time (tools/run-fuzzers.sh).
# Every phase runs even when an earlier one failed, so one run shows all
# findings; the exit status is non-zero when any phase failed. Prints the
# time of each phase.
#
# Environment: ZX_JOBS (default 2), ZX_FUZZ_SECONDS (per target, default 30),
# ZX_SKIP_FUZZ=1 (leave out phase 3, e.g. where clang is missing).
set -u
cd "$(dirname "$0")/.."
jobs=${ZX_JOBS:-2}
fuzz_seconds=${ZX_FUZZ_SECONDS:-30}
asan=${ZX_ASAN_BUILD:-build-hard/asan}
tsan=${ZX_TSAN_BUILD:-build-hard/tsan}

now() { date +%s; }
start=$(now)
failed=""
phase() { echo "== ci-sanitizers: $1 ($(( $(now) - start ))s so far)"; }

# build <dir> <sanitizer>: configure and build everything but the benchmarks.
build() {
  cmake -S . -B "$1" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZENTRIX_SANITIZE="$2" \
    -DBUILD_TESTING=ON -DZENTRIX_BENCHMARKS=OFF -DZENTRIX_WERROR=ON >/dev/null &&
    cmake --build "$1" -j"$jobs"
}

phase "ASan+UBSan build and all tests"
# Leaks count as failures; a report aborts the test that caused it. The
# browser test is left out: sanitizers do not change the report's HTML.
if build "$asan" address; then
  ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1} \
  UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1} \
    ctest --test-dir "$asan" --output-on-failure -j"$jobs" -LE browser || failed="$failed asan-tests"
else
  failed="$failed asan-build"
fi
asan_done=$(now)

phase "TSan build and the tests labelled threads"
if build "$tsan" thread; then
  TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1} \
    ctest --test-dir "$tsan" --output-on-failure -j"$jobs" -L threads --no-tests=error ||
    failed="$failed tsan-tests"
else
  failed="$failed tsan-build"
fi
tsan_done=$(now)

if [ "${ZX_SKIP_FUZZ:-0}" != 1 ]; then
  phase "fuzz targets, ${fuzz_seconds}s each"
  ZX_JOBS=$jobs tools/run-fuzzers.sh "$fuzz_seconds" || failed="$failed fuzz"
fi
end=$(now)
echo "== ci-sanitizers: ASan $((asan_done - start))s, TSan $((tsan_done - asan_done))s," \
  "fuzz $((end - tsan_done))s, total $((end - start))s"
if [ -n "$failed" ]; then
  echo "== ci-sanitizers: FAILED:$failed" >&2
  exit 1
fi
echo "== ci-sanitizers: all phases passed"
