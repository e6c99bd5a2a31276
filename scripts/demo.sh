#!/usr/bin/env bash
# Builds the tqkit tool and runs `tqkit demo`.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j "$(nproc)" --target tqkit
./build/tools/tqkit/tqkit demo
