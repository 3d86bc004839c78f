# SPDX-License-Identifier: Apache-2.0
# Sourced by scripts that test the installed packages: adds a queue to a simulated printer as an administrator does. The
# scripts source tests/support/private_scheduler.sh, define inside and become_inside as in tests/support/debian_root.sh,
# and set the folders $root and $own.
# shellcheck shell=bash disable=SC2154

# add_queue: adds "booth" for a printer with a half-used ribbon and an error, with the PPD that the scheduler lists.
add_queue() {
  local model said
  start_printer become_inside brenvellis-simulator --total 400 --remaining 200 --code 0x2660
  model=$(inside lpinfo -m | grep -i brenvellis | cut -d ' ' -f 1)
  [ -n "$model" ] || fail "the scheduler does not offer the PPD"
  said=$(inside lpadmin -p booth -E -v "$uri" -m "$model" 2>&1) ||
    fail "the scheduler refused the queue: $said"
}

# tell_printer COMMANDS
tell_printer() { inside brenvellis-simulator --tell "$own/printer" "$1" >/dev/null; }

# shows EXPECTED...: checks that the monitor's output for the queue contains each text.
shows() {
  local seen text status=0
  seen=$(inside brenvellis-monitor booth) || status=$?
  for text in "$@"; do
    [[ $seen == *"$text"* ]] || fail "the monitor (exit status $status) does not show \"$text\" but:"$'\n'"$seen"
  done
  say "$seen"
}
