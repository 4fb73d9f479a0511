#!/bin/sh
# Builds the libFuzzer targets with clang and runs each one, one after the
# other, for the given number of seconds. Exits non-zero when a target finds
# a crash, a leak, a time-out or undefined behaviour; the reproducer lands in
# $ZX_FUZZ_BUILD/findings/<target>/.
#
#   tools/run-fuzzers.sh [seconds-per-target] [target ...]
#
# Environment: ZX_FUZZ_BUILD (build directory, default build-fuzz),
# ZX_JOBS (parallel build jobs, default 2).
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ $# -gt 0 ] && shift
build=${ZX_FUZZ_BUILD:-build-fuzz}
jobs=${ZX_JOBS:-2}

# Configure every time: which targets exist depends on the sources present.
CC=clang-14 CXX=clang++-14 cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DZENTRIX_FUZZ=ON -DZENTRIX_BENCHMARKS=OFF >/dev/null
targets="$*"
if [ -n "$targets" ]; then
  # shellcheck disable=SC2086
  nice -n 19 cmake --build "$build" --target $targets -j"$jobs"
else
  nice -n 19 cmake --build "$build" --target fuzz -j"$jobs"
  for src in fuzz/*_fuzzer.cpp; do
    [ -e "$src" ] || continue
    targets="$targets $(basename "$src" .cpp)"
  done
fi

summary="$build/fuzz-summary.txt"
: >"$summary"
failed=""
for t in $targets; do
  bin="$build/fuzz/$t"
  if [ ! -x "$bin" ]; then
    echo "run-fuzzers: $t was not built" >&2
    failed="$failed $t"
    continue
  fi
  # The checked-in seeds stay untouched; new inputs go to a scratch corpus.
  work="$build/corpus/$t"
  findings="$build/findings/$t"
  mkdir -p "$work" "$findings"
  seeds="fuzz/corpus/$t"
  [ -d "$seeds" ] || seeds=""
  dict=""
  [ -f "fuzz/$t.dict" ] && dict="-dict=fuzz/$t.dict"
  log="$build/$t.log"
  echo "== $t: ${seconds}s"
  set +e
  # shellcheck disable=SC2086
  nice -n 19 "$bin" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$findings/" $dict "$work" $seeds >"$log" 2>&1
  rc=$?
  set -e
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  echo "$t: exit $rc, ${execs:-?} executions (budget ${seconds}s)" | tee -a "$summary"
  if [ "$rc" != 0 ]; then
    failed="$failed $t"
    grep -E "ERROR|SUMMARY|runtime error|Test unit written" "$log" | head -n 20 >&2
  fi
done

if [ -n "$failed" ]; then
  echo "run-fuzzers: findings in:$failed (see $build/findings and $build/*.log)" >&2
  exit 1
fi
echo "run-fuzzers: no findings"
