#!/usr/bin/env bash
# Builds the benchmark programs in release mode (in build-bench/, apart from the test build), runs
# them all, and prints one table: each work, tqkit's figure, its baseline's, the ratio, the target
# and whether it is met. The programs' own output and JSON are kept in build-bench/results/.
set -euo pipefail

usage() {
  cat <<'USAGE'
Usage: scripts/bench.sh [--json] [--skip-build] [--filter REGEX] [--min-time SECONDS]

Builds every program under bench/ with CMAKE_BUILD_TYPE=Release into build-bench/, runs each one
(each measures tqkit beside its baseline in the same run) and prints one table of ratios.

  --json          print the table as JSON instead
  --skip-build    run what build-bench/ already holds
  --filter REGEX  passed to every program as --benchmark_filter
  --min-time S    passed as --benchmark_min_time (default: the library's own)
  -h, --help      this text

Environment: TQ_ISA=plain|avx2|avx512 limits the code paths every program starts on (the per-path
rows name their path themselves). TQ_CORPUS_DIR names the shared corpus of interface files (default:
../shared/corpus beside this checkout); without it the interface rows are left out, said in one
line. Pin to one core with taskset for steadier figures.
The peer rows compare with Qt 6, GTK 4 (run under xvfb-run when no display is set), xxd, basenc,
sha1sum, grep and ip where they are installed, and say so where they are not.
A program that fails is reported in its rows; the script then exits 1.
USAGE
}

json=0 build=1 filter="" min_time=""
while [[ $# -gt 0 ]]; do
  case "$1" in
    --json) json=1 ;;
    --skip-build) build=0 ;;
    --filter) filter="${2:?--filter needs a value}"; shift ;;
    --min-time) min_time="${2:?--min-time needs a value}"; shift ;;
    -h|--help) usage; exit 0 ;;
    *) echo "bench.sh: unknown argument: $1" >&2; usage >&2; exit 2 ;;
  esac
  shift
done

cd "$(dirname "$0")/.."
programs=()
for src in bench/*_bench.cpp; do programs+=("$(basename "$src" .cpp)"); done

if [[ $build -eq 1 ]]; then
  echo "building ${#programs[@]} benchmark programs and the tqkit command (release) in build-bench/ ..." >&2
  log=$(mktemp)
  cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DTQ_BUILD_TESTS=OFF -DTQ_BUILD_TOOLS=ON \
    >"$log" 2>&1 || { cat "$log" >&2; rm -f "$log"; exit 1; }
  cmake --build build-bench -j2 --target "${programs[@]}" tqkit >>"$log" 2>&1 \
    || { tail -30 "$log" >&2; rm -f "$log"; exit 1; }
  mv "$log" build-bench/build.log
fi

# The corpus, found now: from the environment, else beside this checkout. Without it the programs
# skip their interface rows as "corpus absent", which the table says in one line.
export TQ_CORPUS_DIR=${TQ_CORPUS_DIR:-$(cd .. && pwd)/shared/corpus}
[[ -d $TQ_CORPUS_DIR ]] || echo "bench.sh: no corpus at $TQ_CORPUS_DIR (set TQ_CORPUS_DIR)" >&2

results=build-bench/results
rm -rf "$results"
mkdir -p "$results"
failed=0
for p in "${programs[@]}"; do
  args=(--benchmark_out="$results/$p.json" --benchmark_out_format=json)
  [[ -n $filter ]] && args+=(--benchmark_filter="$filter")
  [[ -n $min_time ]] && args+=(--benchmark_min_time="$min_time")
  echo "running $p ..." >&2
  run=()
  # GTK needs a display: a virtual one when none is set.
  if [[ $p == peers_bench && -z ${DISPLAY:-} && -z ${WAYLAND_DISPLAY:-} ]] && command -v xvfb-run >/dev/null; then
    run=(xvfb-run -a)
  fi
  if ! "${run[@]}" "build-bench/bench/$p" "${args[@]}" >"$results/$p.txt" 2>&1; then
    echo "bench.sh: $p failed; its output is in $results/$p.txt" >&2
    failed=1
  fi
done

table_args=("$results")
[[ $json -eq 1 ]] && table_args=(--json "$results")
echo "load average while measuring: $(cut -d' ' -f1-3 /proc/loadavg); CPU: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'); TQ_ISA=${TQ_ISA:-unset}" >&2
python3 scripts/bench_table.py "${table_args[@]}"
exit $failed
