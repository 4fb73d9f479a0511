#!/bin/sh
# zentrix-capture: a report for a support case. Zentrix runs through the
# agent simulator in capture mode, which relays it to the real agent and keeps
# every answer; beside the report it leaves <report>.capture.json (replays the
# report exactly) and <report>.capture.redacted.json (the same without serial
# numbers, host name or addresses). Exits with Zentrix's status.
#   ZENTRIX_ROOT       system root of the real agent (default /)
#   ZENTRIX_BIN        the Zentrix program (default: the one beside this script)
#   ZENTRIX_AGENT_SIM  the simulator (default: zentrix-agent-sim beside this script)
set -u
me=${0##*/}
usage() {
  echo "usage: $me [-output FILE] [-clearstatus]" >&2
  exit 2
}

report="" clear=""
while [ $# -gt 0 ]; do
  case "$1" in
    -output) [ $# -ge 2 ] || usage; report=$2; shift 2 ;;
    -clearstatus) [ -z "$clear" ] || usage; clear=-clearstatus; shift ;;
    *) usage ;;
  esac
done
# Zentrix's own default name, settled here to know where the captures go.
[ -n "$report" ] || report=Zentrix_$(date +%Y%m%d%H%M%S).html
capture=$report.capture.json
redacted=$report.capture.redacted.json

here=$(cd "$(dirname "$0")" && pwd)
zentrix=${ZENTRIX_BIN:-$here/Zentrix}
sim=${ZENTRIX_AGENT_SIM:-$here/zentrix-agent-sim}
upstream=${ZENTRIX_ROOT:-/}

# Short: the socket paths below it must fit a socket address.
root=$(mktemp -d /tmp/zentrix-capture-XXXXXX) || exit 1
pid=""
stop_capture() {
  [ -n "$pid" ] || return 0
  kill -TERM "$pid" 2>/dev/null
  wait "$pid"
  sim_status=$?
  pid=""
  return $sim_status
}
trap 'stop_capture; rm -rf "$root"' EXIT
trap 'exit 130' INT TERM

"$sim" --root "$root" --capture "$capture" --upstream "$upstream" &
pid=$!
# The pid file appears once every socket accepts connections.
tries=0
while [ ! -e "$root/var/run/omad.pid" ]; do
  tries=$((tries + 1))
  if ! kill -0 "$pid" 2>/dev/null || [ $tries -gt 100 ]; then
    stop_capture
    status=$?
    echo "$me: the capture could not start" >&2
    [ $status -ne 0 ] || status=1
    exit $status
  fi
  sleep 0.1
done

status=0
ZENTRIX_ROOT=$root "$zentrix" -output "$report" $clear || status=$?
if ! stop_capture; then
  echo "$me: the capture was not saved" >&2
elif "$sim" --redact "$capture" "$redacted"; then
  printf '\nCapture of the agent: "%s"\nThe same without serial numbers, host name and addresses: "%s"\n' \
    "$capture" "$redacted"
fi
exit $status
