#!/usr/bin/env bash
# Runs a command in a QEMU guest that boots Debian's kernel package (which has
# MPLS forwarding: mpls_router, mpls_iptunnel) over this host's own root
# filesystem, shared read-only, and exits with the command's status. The
# command runs as root in the current directory, with tmpfs on /tmp and /run;
# what it prints comes back on standard output.
#
#   tools/guest.sh [--timeout SECONDS] COMMAND [ARGS...]
#
# Needs qemu-system-x86, linux-image-amd64 and busybox-static (.ci/run installs
# them); without them, or without a kernel that has MPLS modules, it says why
# and exits 77.
set -euo pipefail

timeout=900
if [ "${1:-}" = --timeout ]; then
   timeout=$2
   shift 2
fi
[ $# -gt 0 ] || { echo "usage: $0 [--timeout SECONDS] COMMAND [ARGS...]" >&2; exit 2; }

skip() {
   echo "guest: $*" >&2
   exit 77
}

command -v qemu-system-x86_64 > /dev/null || skip "no qemu-system-x86_64 (apt-get install qemu-system-x86)"
busybox=/bin/busybox
case "$(ldd "$busybox" 2>&1)" in
   *"not a dynamic"*) ;;
   *) skip "no static busybox (apt-get install busybox-static)" ;;
esac

# The newest installed kernel whose modules include MPLS forwarding.
kver=""
for d in /lib/modules/*/; do
   v=$(basename "$d")
   [ -f "/boot/vmlinuz-$v" ] && [ -n "$(ls "$d"kernel/net/mpls/mpls_router.ko* 2> /dev/null)" ] &&
      kver=$(printf '%s\n%s\n' "$kver" "$v" | sed '/^$/d' | sort -V | tail -n 1)
done
[ -n "$kver" ] || skip "no kernel with MPLS modules in /boot and /lib/modules (apt-get install linux-image-amd64)"
moddir=/lib/modules/$kver

cache=${LDP_GUEST_CACHE:-/var/tmp/ldp-guest}
mkdir -p "$cache"
initrd=$cache/initrd-$kver.cpio.gz

# The modules that mount the shared root, each after what it depends on.
order=()
add_module() {
   local path=$1 dep
   for seen in "${order[@]:-}"; do [ "$seen" = "$path" ] && return 0; done
   for dep in $(grep -E "^$path:" "$moddir/modules.dep" | cut -d: -f2); do add_module "$dep"; done
   order+=("$path")
}

if [ ! -s "$initrd" ] || [ "$0" -nt "$initrd" ]; then
   for m in virtio_pci 9pnet_virtio 9p; do
      path=$(grep -oE "^[^:]*/$m\.ko[^:]*" "$moddir/modules.dep" | head -n 1)
      [ -n "$path" ] || skip "module $m missing from $moddir"
      add_module "$path"
   done
   root=$(mktemp -d)
   trap 'rm -rf "$root"' EXIT
   mkdir -p "$root"/{bin,dev,proc,sys,mods,host}
   cp "$busybox" "$root/bin/busybox"
   : > "$root/mods/order"
   for p in "${order[@]}"; do
      cp "$moddir/$p" "$root/mods/"
      basename "$p" >> "$root/mods/order"
   done
   cat > "$root/init" << 'EOF'
#!/bin/busybox sh
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
for m in $(cat /mods/order); do insmod /mods/$m || echo "guest: insmod $m failed"; done
run=$(sed -n 's/.*ldp\.run=\([^ ]*\).*/\1/p' /proc/cmdline)
if mount -t 9p -o trans=virtio,version=9p2000.L,ro,msize=262144 hostroot /host; then
   mount -t proc proc /host/proc
   mount -t sysfs sys /host/sys
   mount -t devtmpfs dev /host/dev
   mkdir -p /host/dev/pts /host/dev/shm
   mount -t devpts devpts /host/dev/pts
   mount -t tmpfs tmp /host/dev/shm
   mount -t tmpfs tmp /host/tmp
   mount -t tmpfs run /host/run
   mount -t tmpfs varlib /host/var/lib
   # The shared root becomes the guest's root, so that the kernel's own
   # module loading (a veth pair, MPLS) finds the modules and modprobe.
   exec switch_root /host /bin/sh -c \
      "/bin/sh $run/cmd; echo LDP-GUEST-EXIT=\$?; echo o > /proc/sysrq-trigger; while :; do :; done"
fi
echo "guest: can't mount the host's root filesystem"
echo "LDP-GUEST-EXIT=1"
echo o > /proc/sysrq-trigger
sleep 10
EOF
   chmod +x "$root/init"
   (cd "$root" && find . | cpio -o -H newc --quiet | gzip -1) > "$initrd.new"
   mv "$initrd.new" "$initrd"
   rm -rf "$root"
   trap - EXIT
fi

# The command, for the guest to read through the shared root.
run=$(mktemp -d "$cache/run.XXXXXX")
trap 'rm -rf "$run"' EXIT
{
   echo "export HOME=/tmp PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
   [ -n "${CI:-}" ] && echo "export CI=$CI"
   printf 'cd %q || exit 1\n' "$PWD"
   printf '%q ' "$@"
   echo
} > "$run/cmd"

# QEMU's emulation: KVM inside the development machines' own virtual
# machines fails (nested virtualisation); LDP_GUEST_ACCEL=kvm asks for it.
accel=${LDP_GUEST_ACCEL:-tcg}
log=$run/console
set +e
timeout "$timeout" qemu-system-x86_64 -machine q35,accel=$accel -cpu max -m 2048 \
   -smp "$(nproc)" -nodefaults -no-reboot -display none -serial stdio -monitor none \
   -kernel "/boot/vmlinuz-$kver" -initrd "$initrd" \
   -append "console=ttyS0 panic=-1 quiet loglevel=1 ldp.run=$run" \
   -virtfs local,path=/,mount_tag=hostroot,security_model=none,readonly=on,multidevs=remap \
   < /dev/null | tr -d '\r' | tee "$log" | grep -Ev '^LDP-GUEST-EXIT=|^\[ *[0-9.]+\] (sysrq|reboot): '
rc=${PIPESTATUS[0]}
set -e
status=$(sed -n 's/^LDP-GUEST-EXIT=\([0-9]*\).*/\1/p' "$log" | tail -n 1)
if [ -z "$status" ]; then
   echo "guest: no exit status from the guest (qemu exited $rc)" >&2
   exit 1
fi
exit "$status"
