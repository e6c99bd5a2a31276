#!/usr/bin/env bash
# The Wi-Fi test: boots Debian's kernel under QEMU with three simulated radios (mac80211_hwsim),
# hostapd, wpa_supplicant and iw in a small initramfs, and runs the scenario program
# (tests/wifi/wifi_scenario.cpp) there, printing each notification, each check and the stream of
# `tqkit net watch --json`.
set -euo pipefail

usage() {
  cat <<'USAGE'
Usage: scripts/test-wifi.sh [--build-dir DIR] [--no-build] [--keep-log]

Builds the tqkit tool and the scenario program in DIR (default: build), packs them with the kernel's
wireless modules, hostapd, wpa_supplicant, iw, ip and a static busybox into DIR/wifi-guest/ (packed
again only when one of them changed), boots it under QEMU (software emulation) and prints what the
guest prints. The scenario joins an open network, roams to a second access point of the same SSID,
is left by the access point, joins a second SSID and loses its interface.

  --build-dir DIR  the CMake build folder (configured already, or configured here)
  --no-build       use what DIR holds (ctest runs the script so)
  --keep-log       keep the guest's console in DIR/wifi-guest/console.log (always kept on failure)
  -h, --help       this text

Exit status: 0 when the scenario passed, 1 when it failed, 77 when QEMU or the kernel is missing
or QEMU cannot start (the test is then skipped). The packages come from scripts/install-deps.sh.
USAGE
}

build_dir=build build=1 keep=0
while [[ $# -gt 0 ]]; do
  case "$1" in
    --build-dir) build_dir="${2:?--build-dir needs a value}"; shift ;;
    --no-build) build=0 ;;
    --keep-log) keep=1 ;;
    -h|--help) usage; exit 0 ;;
    *) echo "test-wifi.sh: unknown argument: $1" >&2; usage >&2; exit 2 ;;
  esac
  shift
done

cd "$(dirname "$0")/.."
root_dir=$PWD
skip() { echo "test-wifi.sh: SKIPPED: $*"; exit 77; }
die() { echo "test-wifi.sh: $*" >&2; exit 1; }

qemu=$(command -v qemu-system-x86_64 || true)
[[ -n $qemu ]] || skip "qemu-system-x86_64 is not installed (scripts/install-deps.sh installs qemu-system-x86)"
# The newest installed kernel that has the radio simulator.
kernel="" modules=""
for k in $(ls -1 /boot/vmlinuz-* 2>/dev/null | sort -V -r); do
  v=${k#/boot/vmlinuz-}
  if [[ -n $(find "/lib/modules/$v" -name 'mac80211_hwsim.ko*' 2>/dev/null | head -1) ]]; then
    kernel=$k modules=/lib/modules/$v
    break
  fi
done
[[ -n $kernel ]] || skip "no kernel with mac80211_hwsim in /boot (scripts/install-deps.sh installs linux-image-amd64)"
for tool in hostapd hostapd_cli wpa_supplicant wpa_cli iw ip modinfo cpio; do
  command -v "$tool" > /dev/null || die "$tool is missing; run scripts/install-deps.sh"
done
busybox=/bin/busybox
# Static: no program interpreter in its headers (readelf comes with the compiler's binutils).
[ -x "$busybox" ] && ! readelf -l "$busybox" 2>/dev/null | grep -q 'program interpreter' || die "$busybox is not static; install busybox-static"

if [[ $build -eq 1 ]]; then
  [[ -f $build_dir/CMakeCache.txt ]] || cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
  cmake --build "$build_dir" -j2 --target tqkit wifi_scenario > /dev/null || die "the build failed"
fi
build_dir=$(cd "$build_dir" && pwd)
scenario=$build_dir/tests/wifi_scenario
tool=$build_dir/tools/tqkit/tqkit
[[ -x $scenario && -x $tool ]] || die "$scenario or $tool is not built"
guest=$build_dir/wifi-guest
mkdir -p "$guest"

# The kernel, uncompressed (its own decompression is slow under emulation): the payload of the
# bzImage, found by its compression's magic bytes. Kept while the kernel is the same.
vmlinux=$guest/vmlinux
if [[ ! -s $vmlinux || $(cat "$guest/vmlinux.from" 2>/dev/null) != "$(stat -c '%n %s %Y' "$kernel")" ]]; then
  unpack() {  # magic (grep pattern), decompressor
    local at
    at=$(LC_ALL=C grep -abo -m1 -P "$1" "$kernel" | head -1 | cut -d: -f1) || return 1
    [[ -n $at ]] || return 1
    tail -c +$((at + 1)) "$kernel" | $2 > "$vmlinux.tmp" 2>/dev/null || true
    readelf -h "$vmlinux.tmp" 2>/dev/null | grep -q 'ELF64'
  }
  unpack '\xfd7zXZ\x00' 'xz -dc --single-stream' || unpack '\x28\xb5\x2f\xfd' 'zstd -dc' ||
    unpack '\x1f\x8b\x08' 'gzip -dc' || die "cannot unpack $kernel"
  mv "$vmlinux.tmp" "$vmlinux"
  stat -c '%n %s %Y' "$kernel" > "$guest/vmlinux.from"
fi

# Everything the guest holds: programs with their libraries, modules, the first process. The tool's
# net commands are in its network module, which it opens from beside itself (none in a static build).
net_module=$build_dir/tools/tqkit/tqkit-network.so
programs=(/usr/sbin/hostapd /usr/sbin/hostapd_cli /usr/sbin/wpa_supplicant /usr/sbin/wpa_cli
  "$(command -v iw)" "$(command -v ip)" "$tool" "$scenario")
[[ -f $net_module ]] && programs+=("$net_module")
libraries() { for p in "$@"; do ldd "$p" | grep -o '/[^ ]*' ; done | sort -u; }
mapfile -t libs < <(libraries "${programs[@]}")
# Modules in load order (each after what it depends on); the radios and the dummy link are made by
# the scenario itself, after the watch has started.
order=()
visit() {
  local m=$1 d
  [[ " ${order[*]} " == *" $m "* ]] && return
  for d in $(modinfo -k "${modules#/lib/modules/}" -F depends "$m" | tr ',' ' '); do visit "$d"; done
  order+=("$m")
}
visit mac80211_hwsim
visit dummy
module_files=()
for m in "${order[@]}"; do module_files+=("$(modinfo -k "${modules#/lib/modules/}" -n "$m")"); done
init=$root_dir/tests/wifi/guest_init.sh
manifest=$(stat -c '%n %s %Y' "${programs[@]}" "${libs[@]}" "${module_files[@]}" "$busybox" "$init" "$0" \
  "$root_dir/scripts/lsan.supp")
# Left uncompressed: the guest would take seconds to unpack it under emulation.
initramfs=$guest/initramfs.cpio
if [[ ! -s $initramfs || $(cat "$guest/manifest" 2>/dev/null) != "$manifest" ]]; then
  tree=$guest/root
  rm -rf "$tree"
  mkdir -p "$tree"/{bin,sbin,usr/bin,usr/sbin,lib/modules,proc,sys,dev,run,tmp,etc}
  cp "$busybox" "$tree/bin/busybox"
  ln -s busybox "$tree/bin/sh"
  cp "$init" "$tree/init"
  chmod 755 "$tree/init"
  cp "$root_dir/scripts/lsan.supp" "$tree/etc/lsan.supp"  # for a sanitizer build
  # The system's tools in /usr/sbin, ours in /usr/bin, wherever the host keeps them. (The busybox
  # shell prefers its own applets, so the scenario names the tools by these paths.)
  for p in "${programs[@]}"; do
    case $p in
      "$tool"|"$scenario"|"$net_module") cp "$p" "$tree/usr/bin/" ;;
      *) cp "$p" "$tree/usr/sbin/" ;;
    esac
  done
  for l in "${libs[@]}"; do
    mkdir -p "$tree$(dirname "$l")"
    cp -L "$l" "$tree$l"
  done
  for f in "${module_files[@]}"; do cp "$f" "$tree/lib/modules/"; done
  printf '%s\n' "${order[@]}" | grep -v -x -e mac80211_hwsim -e dummy > "$tree/lib/modules/load-order"
  # Debug information is of no use in the guest and would triple what the kernel loads.
  find "$tree" -type f \( -name '*.so*' -o -path '*/bin/*' \) ! -name busybox -exec strip --strip-debug {} + 2> /dev/null || true
  (cd "$tree" && find . | cpio -o -H newc --quiet > "$initramfs.tmp")
  mv "$initramfs.tmp" "$initramfs"
  printf '%s\n' "$manifest" > "$guest/manifest"
  rm -rf "$tree"
fi

log=$guest/console.log
echo "test-wifi.sh: booting $(basename "$kernel") under QEMU (software emulation); initramfs $(du -h "$initramfs" | cut -f1)"
start=$(date +%s%N)
set +e
# The guest's console is the serial port; escape sequences of the firmware are taken out.
# The kernel hands parameters it does not know to the first process as its environment: the
# sanitizer options of a sanitizer build go in that way.
cmdline="console=ttyS0 quiet panic=-1 rdinit=/init"
for v in ASAN_OPTIONS UBSAN_OPTIONS; do [[ -n ${!v:-} ]] && cmdline+=" $v=${!v}"; done
timeout 300 "$qemu" -accel tcg -m 1024 -smp 1 -nographic -no-reboot -nic none \
  -kernel "$vmlinux" -initrd "$initramfs" -append "$cmdline" \
  < /dev/null 2>&1 | tr -d '\r' | sed -u 's/\x1b\[[0-9;?]*[a-zA-Z]//g; s/\x1bc//g' | tee "$log"
status=${PIPESTATUS[0]}
set -e
elapsed=$((($(date +%s%N) - start) / 1000000))
printf 'test-wifi.sh: QEMU ran %d.%01d s\n' $((elapsed / 1000)) $((elapsed % 1000 / 100))

if grep -q '^wifi-scenario: PASS' "$log" && grep -q '^wifi-scenario: exit 0' "$log"; then
  [[ $keep -eq 1 ]] || rm -f "$log"
  exit 0
fi
if [[ $status -ne 0 && $status -ne 124 ]] && ! grep -q 'SeaBIOS\|^guest:' "$log"; then
  skip "QEMU could not start (exit status $status); its output is in $log"
fi
[[ $status -eq 124 ]] && echo "test-wifi.sh: the guest did not finish within 300 s"
echo "test-wifi.sh: FAILED; the guest's console is in $log"
exit 1
