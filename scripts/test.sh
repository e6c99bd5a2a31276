#!/usr/bin/env bash
# Builds tqkit and runs the whole test suite.
#   bash scripts/test.sh              release build in build/, then ctest
#   bash scripts/test.sh --sanitize   clang build with AddressSanitizer and UndefinedBehaviorSanitizer
#                                     in build-sanitize/, then ctest, then every libFuzzer target
#                                     for TQ_FUZZ_SECONDS (default 5) seconds each
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh

jobs=$(nproc)
if [ "${1:-}" = "--sanitize" ]; then
  dir=build-sanitize
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DTQ_SANITIZE=ON -DTQ_BUILD_BENCH=OFF -DBUILD_SHARED_LIBS=OFF
  cmake --build "$dir" -j "$jobs"
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  export LSAN_OPTIONS=suppressions=$PWD/scripts/lsan.supp
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure
  seconds=${TQ_FUZZ_SECONDS:-5}
  for fuzzer in "$dir"/fuzz/*_fuzz; do
    [ -x "$fuzzer" ] || continue
    name=$(basename "$fuzzer")
    corpus=$(mktemp -d)
    [ -d "fuzz/corpus/$name" ] && cp -r "fuzz/corpus/$name/." "$corpus/"
    # The interface archive targets also start from the real files of the shared corpus, when present.
    shared=../shared/corpus
    if [ -d "$shared" ]; then
      case $name in
        keyed_archive_fuzz) find "$shared" -name 'keyedobjects*.nib' -exec sh -c 'head -c 8 "$1" | grep -q bplist && cp "$1" "$2/shared-$(echo "$1" | md5sum | cut -c1-8)"' _ {} "$corpus" \; ;;
        nib_archive_fuzz) find "$shared" -name '*.nib' -type f -exec sh -c 'head -c 10 "$1" | grep -q NIBArchive && cp "$1" "$2/shared-$(echo "$1" | md5sum | cut -c1-8)"' _ {} "$corpus" \; ;;
        xml_archive_fuzz) find "$shared" -name '*.xib' -exec sh -c 'grep -q "<archive " "$1" && cp "$1" "$2/shared-$(echo "$1" | md5sum | cut -c1-8)"' _ {} "$corpus" \; ;;
        storyboard_fuzz) find "$shared" -name '*.storyboard' -exec sh -c 'cp "$1" "$2/shared-$(echo "$1" | md5sum | cut -c1-8)"' _ {} "$corpus" \; ;;
        # The compiled keyed archives saved as XML property lists, when Python is at hand to write them.
        keyed_xml_plist_fuzz) if command -v python3 > /dev/null; then find "$shared" -name 'keyedobjects*.nib' -exec python3 -c '
import hashlib, plistlib, sys
def xml(o):
    if isinstance(o, plistlib.UID): return {"CF$UID": o.data}
    if isinstance(o, dict): return {k: xml(v) for k, v in o.items()}
    if isinstance(o, list): return [xml(v) for v in o]
    return o
try:
    text = plistlib.dumps(xml(plistlib.load(open(sys.argv[1], "rb"))))
    open(sys.argv[2] + "/shared-" + hashlib.md5(sys.argv[1].encode()).hexdigest()[:8], "wb").write(text)
except Exception:
    pass
' {} "$corpus" \; ; fi ;;
      esac
    fi
    echo "fuzz: $name for ${seconds}s"
    log=$(mktemp)
    if ! "$fuzzer" -max_total_time="$seconds" -print_final_stats=0 -artifact_prefix="$corpus/" "$corpus" > "$log" 2>&1; then
      tail -n 60 "$log"
      echo "fuzz: $name found a failing input (kept in $corpus)"
      exit 1
    fi
    tail -n 1 "$log"
    rm -rf "$corpus" "$log"
  done
else
  dir=build
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
  cmake --build "$dir" -j "$jobs"
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure
fi
