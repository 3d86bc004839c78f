# Sourced by scripts that live with the installed packages: a queue to a simulated printer, as an administrator adds
# it. They say where that is: inside and become_inside as in tests/support/debian_root.sh, the system's folder $root,
# and in it $folder for the printer's files. They end with end_processes.
# shellcheck shell=bash disable=SC2154

processes=()
end_processes() {
  local i
  for ((i = ${#processes[@]} - 1; i >= 0; --i)); do
    kill "${processes[i]}" 2>/dev/null || true
    wait "${processes[i]}" 2>/dev/null || true
  done
  processes=()
}

# await WHAT COMMAND...
await() {
  local what=$1 i
  shift
  for ((i = 0; i < 2400; ++i)); do
    if "$@" >/dev/null 2>&1; then return 0; fi
    sleep 0.05
  done
  fail "$what did not happen within two minutes"
}

# add_queue: "booth", on a printer with a half-used ribbon and an error, with the PPD that the scheduler offers.
add_queue() {
  local model said
  become_inside brenvellis-simulator --control "$folder/printer" --total 400 --remaining 200 --code 0x2660 \
    >"$root$folder/uri" &
  processes+=($!)
  await "the simulated printer's start" test -s "$root$folder/uri"
  model=$(inside lpinfo -m | grep -i brenvellis | cut -d ' ' -f 1)
  [ -n "$model" ] || fail "the scheduler does not offer the PPD"
  said=$(inside lpadmin -p booth -E -v "$(cat "$root$folder/uri")" -m "$model" 2>&1) ||
    fail "the scheduler refused the queue: $said"
}

# tell_printer COMMANDS
tell_printer() { inside brenvellis-simulator --tell "$folder/printer" "$1" >/dev/null; }

# shows EXPECTED...: every text is in what the monitor shows of the queue.
shows() {
  local seen text status=0
  seen=$(inside brenvellis-monitor booth) || status=$?
  for text in "$@"; do
    [[ $seen == *"$text"* ]] || fail "the monitor (exit status $status) does not show \"$text\" but:"$'\n'"$seen"
  done
  say "$seen"
}
