#!/usr/bin/env bash
# Installs the Debian packages that tqkit's build, tests, benchmarks and fuzz targets need.
# Idempotent: packages already present are left alone, and the package lists are refreshed once,
# only when something is missing. Must run as root (or with sudo available).
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  clang libclang-rt-14-dev
  # The sanitizers name functions and lines in their reports through llvm-symbolizer.
  llvm
  libssl-dev uuid-dev libglib2.0-dev libmnl-dev libplist-dev libpugixml-dev
  libcairo2-dev libpango1.0-dev libgdk-pixbuf-2.0-dev libpng-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  fonts-dejavu-core iproute2 ethtool xxd util-linux
  fonts-dejavu-extra
  # Chinese, Japanese and Korean text in localized interfaces (a small font covering all three).
  fonts-wqy-microhei
  # Live windows (tqkit-gtk) and their tests under a display server.
  libgtk-4-dev xvfb xauth xdotool
  # The Wi-Fi test: a stock kernel with its radio simulator, booted under QEMU with the access point
  # and station daemons in a small initramfs.
  qemu-system-x86 linux-image-amd64 hostapd wpasupplicant iw busybox-static cpio xz-utils
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "install-deps: done"
