# SPDX-License-Identifier: Apache-2.0
# Sourced by scripts that need a Debian of their own, in the folder $root.
# shellcheck shell=bash

# The process id of the systemd that boot_debian started, and that of its parent.
machine='' machine_parent=''

# become_inside COMMAND...: this shell becomes it, in $root and with nothing of this system's environment. For "&":
# $! is then the command itself, or, after boot_debian, a process that waits for it.
become_inside() {
  # shellcheck disable=SC2154
  local enter=(chroot "$root")
  [ -z "$machine" ] || enter=(nsenter --target "$machine" --mount --pid --ipc --uts --cgroup --root --wd)
  exec "${enter[@]}" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@"
}

# inside COMMAND...: runs the command in $root.
inside() (become_inside "$@")

# this_release: prints the code name of this system's release.
this_release() { sed -n 's/^VERSION_CODENAME=//p' /etc/os-release; }

# make_debian RELEASE: creates a minimal system in $root from this system's package server. Packages installed there do not
# start services.
make_debian() {
  local server
  [ "$(id -u)" = 0 ] || fail "creating a Debian system requires root"
  server=$(apt-get indextargets --format '$(SITE)' "Codename: $(this_release)" | sort -u | head -n 1)
  rm -rf "$root"
  debootstrap --variant=minbase "$1" "$root" "$server"
  printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
  chmod 755 "$root/usr/sbin/policy-rc.d"
}

# copy_tree: copies the committed tree to /src in $root.
copy_tree() {
  rm -rf "$root/src"
  mkdir "$root/src"
  git archive HEAD | tar -x -C "$root/src"
}

# mount_proc: /proc in $root, until this script ends; some tests look there.
mount_proc() {
  mount -t proc proc "$root/proc"
  # shellcheck disable=SC2154
  trap 'umount "$root/proc"; clean_up' EXIT
}

# boot_debian: starts the systemd of $root, in namespaces of its own but on this network, until shut_down. $root/run is
# not its /run.
boot_debian() {
  local unit i control_groups=$scratch/control_groups
  # These would look after this machine's kernel, disks and packages.
  for unit in systemd-modules-load.service systemd-sysctl.service e2scrub_all.timer apt-daily.timer \
    apt-daily-upgrade.timer; do
    ln -sf /dev/null "$root/etc/systemd/system/$unit"
  done
  mkdir -p "$control_groups"
  mount -t cgroup2 none "$control_groups" ||
    fail "systemd needs control groups, and this system does not let root mount them"
  mkdir "$control_groups/brv-$$"
  (
    echo "$BASHPID" >"$control_groups/brv-$$/cgroup.procs"
    # shellcheck disable=SC2016
    exec unshare --mount --pid --cgroup --ipc --uts --fork --kill-child sh -ec '
      mount --make-rprivate /
      mount --bind "$1" "$1"
      mount -t proc proc "$1/proc"
      mount --bind "$1/proc/sys" "$1/proc/sys"
      mount -o remount,bind,ro "$1/proc/sys"
      mount -t sysfs -o ro sysfs "$1/sys"
      mount -t tmpfs tmpfs "$1/sys/fs/cgroup"
      mount -t cgroup2 cgroup2 "$1/sys/fs/cgroup"
      mount -t tmpfs tmpfs "$1/run"
      # Not chroot, below which the kernel refuses the user namespaces of services.
      cd "$1"
      pivot_root . .
      umount -l .
      exec /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin container=other /lib/systemd/systemd --unit=timers.target
    ' sh "$root"
  ) >"$scratch/systemd" 2>&1 </dev/null &
  machine_parent=$!
  for ((i = 0; i < 600; ++i)); do
    machine=$(cat "/proc/$machine_parent/task/$machine_parent/children" 2>/dev/null | tr -d ' ') || machine=
    if [ -n "$machine" ] && inside systemctl is-active --quiet timers.target 2>/dev/null; then return 0; fi
    sleep 0.1
  done
  cat "$scratch/systemd" >&2
  fail "systemd did not start in the clean Debian"
}

# shut_down: ends what boot_debian started, with everything in it.
shut_down() {
  [ -n "$machine_parent" ] || return 0
  kill -KILL "${machine:-$machine_parent}" 2>/dev/null || true
  wait "$machine_parent" 2>/dev/null || true
  machine='' machine_parent=''
  # A killed process is in its control group until it is reaped.
  local i
  for ((i = 0; i < 100; ++i)); do
    find "$scratch/control_groups/brv-$$" -depth -type d -exec rmdir {} + 2>/dev/null && break
    sleep 0.1
  done
  umount "$scratch/control_groups"
}
