#!/bin/busybox sh
# The first process of the Wi-Fi test's virtual machine: mounts the kernel's file systems, loads the
# wireless stack's modules (the radios themselves are made by the scenario) and runs the scenario.
/bin/busybox --install -s /bin
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
export LSAN_OPTIONS=suppressions=/etc/lsan.supp
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
mkdir -p /run /tmp
echo "guest: started after $(cut -d' ' -f1 /proc/uptime) s"
for m in $(cat /lib/modules/load-order); do insmod "/lib/modules/$m.ko" || echo "guest: cannot load $m"; done
ip link set lo up
cd /tmp
wifi_scenario
echo "wifi-scenario: exit $?"
poweroff -f
