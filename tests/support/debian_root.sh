# Sourced by scripts that need a Debian of their own, in the folder $root.
# shellcheck shell=bash

# become_inside COMMAND...: this shell becomes it, in $root and with nothing of this system's environment. For "&":
# $! is then the command itself.
become_inside() {
  # shellcheck disable=SC2154
  exec chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@"
}

# inside COMMAND...: runs it there.
inside() (become_inside "$@")

# this_release: the code name of the release that this system is.
this_release() { sed -n 's/^VERSION_CODENAME=//p' /etc/os-release; }

# make_debian RELEASE: a minimal one in $root, from the server that this system has its packages from; nothing that
# is installed there starts by itself.
make_debian() {
  local server
  [ "$(id -u)" = 0 ] || fail "only root can make a Debian"
  server=$(apt-get indextargets --format '$(SITE)' "Codename: $(this_release)" | sort -u | head -n 1)
  rm -rf "$root"
  debootstrap --variant=minbase "$1" "$root" "$server"
  printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
  chmod 755 "$root/usr/sbin/policy-rc.d"
}

# copy_tree: the committed tree, to /src in $root.
copy_tree() {
  rm -rf "$root/src"
  mkdir "$root/src"
  git archive HEAD | tar -x -C "$root/src"
}

# mount_proc: /proc in $root, until this script ends; some tests look there.
mount_proc() {
  mount -t proc proc "$root/proc"
  # shellcheck disable=SC2154
  trap 'umount "$root/proc"; rm -rf "$scratch"' EXIT
}
