# SPDX-License-Identifier: Apache-2.0
# Sourced by scripts that run a simulated printer and a scheduler. The scripts set $own to an existing private folder for the
# output of the programs, define fail MESSAGE, and call end_processes at the end. If the programs run in another
# system's root (see debian_root.sh), $root is its path and $own is a path in it.
# shellcheck shell=bash disable=SC2034,SC2154

support=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
root=${root:-}
processes=()

end_processes() {
  local i
  for ((i = ${#processes[@]} - 1; i >= 0; --i)); do
    kill "${processes[i]}" 2>/dev/null || true
    wait "${processes[i]}" 2>/dev/null || true
  done
  processes=()
}

# plain_text: copies its input, with "?" for each character that could control a terminal or the direction of the text.
plain_text() {
  local directions=$'\u061c\u200e\u200f\u202a\u202b\u202c\u202d\u202e\u2066\u2067\u2068\u2069'
  iconv -cf UTF-8 -t UTF-8 | LC_ALL=C.UTF-8 sed "s/\t/ /g; s/[[:cntrl:]$directions]/?/g"
}

# await WHAT COMMAND...: waits until the command succeeds, for two minutes at most and as long as all processes run.
await() {
  local what=$1 i process
  shift
  for ((i = 0; i < 2400; ++i)); do
    if "$@" >/dev/null 2>&1; then return 0; fi
    for process in "${processes[@]}"; do kill -0 "$process" 2>/dev/null || break 2; done
    sleep 0.05
  done
  local log=${CUPS_SERVER:-/}
  tail -n 20 "$root$own"/*.err "${log%/sock}/error_log" 2>/dev/null | plain_text >&2 || true
  fail "timed out waiting for $what; the last messages of the programs are above"
}

# free_port: prints a port of 127.0.0.1 on which nothing listens.
free_port() {
  local port
  while port=$((20000 + RANDOM % 10000)); (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do :; done
  echo $port
}

# start_printer SIMULATOR [OPTION...]: starts it with the control socket $own/printer and sets $uri to its device URI.
start_printer() {
  "$@" --control "$own/printer" </dev/null >"$root$own/uri" 2>"$root$own/printer.err" &
  processes+=($!)
  await "the simulated printer's start" test -s "$root$own/uri"
  uri=$(cat "$root$own/uri")
}

scheduler_answers() { lpstat -r | grep -q 'is running'; }

# start_scheduler [OPTION...] FOLDER FILTER: starts private-scheduler and sets $CUPS_SERVER. It does not receive signals of
# the terminal.
start_scheduler() {
  export CUPS_SERVER=${*: -2:1}/sock
  setsid "$support/private-scheduler" "$@" </dev/null >"$own/scheduler.err" 2>&1 &
  processes+=($!)
  await "the private scheduler's start" scheduler_answers
}

# start_usb_printer FOLDER PROGRAM [COMMAND...]: connects the simulated printer to the scheduler's usb backend and sets $uri;
# see tests/usb/start-usb-printer.
start_usb_printer() {
  local folder=$1 program=$2
  shift 2
  setsid "$support/../usb/start-usb-printer" "$folder" "$program" "${uri##*:}" "$@" \
    </dev/null >"$own/usb" 2>"$own/usb.err" &
  processes+=($!)
  await "the simulated USB printer's start" test -s "$own/usb"
  uri='usb://Brenvellis/Photo%20Printer?serial=SIMULATED'
}
