#!/usr/bin/env bash
# run.sh [SECONDS] [TARGET...] - builds the fuzz targets (clang, libFuzzer,
# AddressSanitizer, UBSan) and runs each for SECONDS (default 60) on a copy of
# its seed corpus. Findings are written to fuzz/findings/; the script fails
# when any target finds something.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in fuzz/*_fuzzer.cpp; do f=${f##*/}; targets+=("${f%_fuzzer.cpp}"); done
fi
log=$(mktemp)
cmake --preset fuzz >"$log" 2>&1 || { cat "$log"; exit 1; }
# Only the fuzz targets: with clang the sanitizer runtime is linked into
# executables, so the shared library of this configuration cannot link.
cmake --build --preset fuzz -j2 --target "${targets[@]/#/fuzz_}" >"$log" 2>&1 || { tail -60 "$log"; exit 1; }
rm -f "$log"
mkdir -p fuzz/findings
status=0
for t in "${targets[@]}"; do
  work=$(mktemp -d)
  [ -d "fuzz/corpus/$t" ] && cp -r "fuzz/corpus/$t/." "$work/"
  echo "fuzz_$t: ${seconds}s"
  if ! "build-fuzz/fuzz/fuzz_$t" "$work" -max_total_time="$seconds" -max_len=4096 \
       -rss_limit_mb=4096 -timeout=10 -print_final_stats=1 \
       -artifact_prefix="fuzz/findings/$t-" 2>"$work.log"; then
    echo "fuzz_$t FOUND A PROBLEM:"; tail -40 "$work.log"; status=1
  fi
  grep -E '^stat::number_of_executed_units|^stat::peak_rss_mb' "$work.log" | sed "s/^/  /" || true
  rm -rf "$work" "$work.log"
done
exit $status
