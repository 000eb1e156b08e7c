#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz preset, clang) and runs each for the given number of
# seconds (default 60) from its committed seeds in tests/fuzz/corpus/<name>. New inputs are
# kept in build/fuzz/corpus/<name>, crashing inputs in build/fuzz/artifacts/. Prints one line
# per target (executions, rate, coverage) and exits non-zero when any target fails.
#   scripts/fuzz.sh [seconds] [target...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
targets=("$@")
[ "${#targets[@]}" -gt 0 ] || targets=(url xml names adlist vast tracking frequency endcard store html)

cmake --preset fuzz >/dev/null
if ! cmake --build build/fuzz --target fuzz_all -j"$(nproc 2>/dev/null || echo 2)" \
  >build/fuzz/build.log 2>&1; then
  tail -n 40 build/fuzz/build.log
  exit 1
fi

options() {
  case $1 in
    xml | vast) echo "-dict=tests/fuzz/xml.dict -max_len=16384" ;;
    html) echo "-dict=tests/fuzz/html.dict -max_len=16384" ;;
    adlist) echo "-dict=tests/fuzz/json.dict -max_len=65536" ;;
    store) echo "-max_len=65536" ;;
    frequency) echo "-max_len=512" ;;
    *) echo "-dict=tests/fuzz/url.dict -max_len=4096" ;;
  esac
}

# Temporary documents folders are made and removed for every input: keep them in memory.
export TMPDIR=${TMPDIR:-/dev/shm}
mkdir -p build/fuzz/artifacts
status=0
for t in "${targets[@]}"; do
  mkdir -p "build/fuzz/corpus/$t"
  log="build/fuzz/fuzz_$t.log"
  # The rate per second of processor time says what the target costs whatever else runs on
  # the machine; the wall-clock rate is what a campaign of that length gets here and now.
  TIMEFORMAT='%U %S'
  # shellcheck disable=SC2046
  if { time build/fuzz/tests/fuzz/fuzz_$t $(options "$t") -max_total_time="$seconds" \
    -print_final_stats=1 -artifact_prefix="build/fuzz/artifacts/$t-" \
    "build/fuzz/corpus/$t" "tests/fuzz/corpus/$t" >"$log" 2>&1; } 2>"$log.cpu"; then
    result=ok
  else
    result=FAILED
    status=1
  fi
  cpu=$(awk '{ print $1 + $2 }' "$log.cpu")
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
  cov=$(grep -Eo 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+' "$log" | tail -n 1)
  cpu_rate=$(awk -v r="${runs:-0}" -v c="${cpu:-0}" 'BEGIN { if (c > 0) printf "%.0f", r / c; else print "?" }')
  printf 'fuzz_%-10s %-6s %10s runs %7s/s wall %7s/s cpu  %s\n' "$t" "$result" "${runs:-?}" \
    "${rate:-?}" "$cpu_rate" "${cov:-}"
  [ "$result" = ok ] || tail -n 30 "$log"
done
exit "$status"
