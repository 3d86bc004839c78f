# SPDX-License-Identifier: Apache-2.0
# Sourced by ./demo, ./check and ./bench: installs dependencies and builds. It sets the EXIT trap; scripts with their own
# trap must call clean_up in it.
# shellcheck shell=bash

# Debian package names; INSTALL.md lists those of other systems.
BUILD_PACKAGES="g++ cmake ninja-build libcups2-dev libcupsimage2-dev nlohmann-json3-dev libasio-dev
  libutf8proc-dev cups-ppdc cups-common"
SCHEDULER_PACKAGES="cups cups-client"
CHECK_PACKAGES="libgtest-dev libgmock-dev ghostscript cups-filters binutils strace mandoc pkg-config libumockdev-dev
  umockdev python3 python3-jsonschema"
FUZZ_PACKAGES="clang libclang-rt-14-dev"
BENCH_PACKAGES="libbenchmark-dev valgrind strace gnuplot-nox"
MUTATION_PACKAGES="python3-clang-14 lld"
CHECK_ALL_PACKAGES="clang-format clang-tidy valgrind systemd chromium prometheus prometheus-alertmanager
  prometheus-node-exporter nagios4-core nagios-nrpe-server nagios-nrpe-plugin fish zsh system-config-printer python3-cups
  python3-gi-cairo xvfb xdotool imagemagick dbus fonts-dejavu-core $FUZZ_PACKAGES"

# The folder for temporary files of this run, removed at its end. It is not in TMPDIR because a scheduler's socket needs a
# short path. If root runs the script, the private scheduler's user lp must be able to reach its folder in this one.
scratch=$(mktemp -d /tmp/brv.XXXXXX)
[ "$(id -u)" != 0 ] || chmod 711 "$scratch"

# processes_left: prints the ids of processes with a path in $scratch in their environment, as program or as working folder.
processes_left() {
  {
    env -i PATH="$PATH" grep -lsF "$scratch/" /proc/[0-9]*/environ || true
    env -i PATH="$PATH" find /proc/[0-9]*/exe /proc/[0-9]*/cwd -maxdepth 0 -lname "$scratch/*" 2>/dev/null || true
  } | cut -d / -f 3 | sort -un
}

# clean_up: stops remaining processes of this run and removes $scratch.
clean_up() {
  local left i
  # Shells that run functions in the background do not have the path.
  left=$(jobs -p; processes_left)
  # shellcheck disable=SC2086
  [ -z "$left" ] || kill $left 2>/dev/null || true
  for ((i = 0; i < 40; ++i)); do
    [ -n "$left" ] || break
    sleep 0.05
    left=$(processes_left)
  done
  # shellcheck disable=SC2086
  [ -z "$left" ] || kill -KILL $left 2>/dev/null || true
  rm -rf "$scratch"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

say() { printf '%s\n' "$*" >&2; }
fail() {
  say "$(basename "$0"): $*"
  exit 1
}

# Compilers and CUPS put temporary files there.
if [ -n "${TMPDIR:-}" ] && ! { [ -d "$TMPDIR" ] && [ -w "$TMPDIR" ] && [ -x "$TMPDIR" ]; }; then
  say "$(basename "$0"): TMPDIR: '$TMPDIR' is not a folder that you can write to; using /tmp"
  export TMPDIR=/tmp
fi

# need PACKAGE...: installs missing packages. On systems other than Debian and its derivatives, prints their names.
need() {
  if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    local tool
    for tool in c++ cmake ninja ppdc cupsd lp; do
      PATH=$PATH:/usr/sbin:/sbin command -v $tool >/dev/null ||
        fail "$tool is missing, and this system has no apt-get to install it. Install what these Debian packages" \
          "contain (see INSTALL.md for the names on other systems):" "$@"
    done
    return
  fi
  local package missing=()
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0

  local root=()
  if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null ||
      fail "missing packages (install them as root): ${missing[*]}"
    root=(sudo)
  fi
  say "Installing ${#missing[@]} packages: ${missing[*]}"
  local log=$scratch/apt
  # Keep $scratch out of the environment of services that the installation starts.
  if ! { "${root[@]}" env -u TMPDIR apt-get -qq update &&
    "${root[@]}" env -u TMPDIR DEBIAN_FRONTEND=noninteractive apt-get -qq install --no-install-recommends "${missing[@]}"; } \
    >"$log" 2>&1 </dev/null; then
    tail -n 20 "$log" >&2
    fail "apt-get failed; its last messages are above"
  fi
}

# build PRESET [TARGET...]: configures and builds everything, or the targets, in build/PRESET. Prints nothing if it is up to
# date. Without a terminal, prints one line if the folder does not exist yet.
build() {
  [ -w . ] || fail "no write permission in this folder (clone the project as the user who builds it)"
  local preset=$1
  shift
  [ -e "build/$preset" ] || [ -t 2 ] || say "Building build/$preset, which takes some minutes"
  cmake --preset "$preset" --log-level=WARNING >/dev/null || fail "cmake --preset $preset failed"
  set -- --preset "$preset" ${*:+--target "$@"}
  if [ -t 2 ]; then
    cmake --build "$@" >&2 || fail "cmake --build --preset $preset failed"
  else
    local log=$scratch/build
    cmake --build "$@" >"$log" 2>&1 || { cat "$log" >&2; fail "cmake --build --preset $preset failed"; }
  fi
}
