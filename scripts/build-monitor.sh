#!/usr/bin/env bash
# Builds the network monitor example as a host builds it: the Debian packages, tqkit built and
# installed into build-monitor/_install, then the monitor built against that installation into
# build-monitor/monitor/NetworkMonitor.app.
#   bash scripts/build-monitor.sh
#   build-monitor/monitor/NetworkMonitor.app/network_monitor
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = "-h" ] || [ "${1:-}" = "--help" ]; then
  sed -n '2,6p' "$0" | sed 's/^# \{0,1\}//'
  exit 0
fi
bash scripts/install-deps.sh
dir=build-monitor
cmake -S . -B "$dir/tqkit" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTQ_BUILD_TESTS=OFF -DTQ_BUILD_BENCH=OFF > /dev/null
cmake --build "$dir/tqkit" -j "$(nproc)"
cmake --install "$dir/tqkit" --prefix "$PWD/$dir/_install" > /dev/null
cmake -S examples/network_monitor -B "$dir/monitor" -G Ninja -DCMAKE_PREFIX_PATH="$PWD/$dir/_install" > /dev/null
cmake --build "$dir/monitor"
echo "built: $dir/monitor/NetworkMonitor.app/network_monitor"
