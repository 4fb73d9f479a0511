#!/bin/sh
# Installs the build into a scratch prefix and uses only what was installed:
# the file layout, a report from the installed simulator and
# profile, a support capture through the installed script, and the installed
# event watcher. When the build directory holds a Debian package, its control
# data and contents are checked too.
#   install_test.sh <cmake> <build dir> <source dir>
set -u
[ $# -eq 3 ] || { echo "usage: install_test.sh <cmake> <build dir> <source dir>" >&2; exit 2; }
cmake=$1
build=$(cd "$2" && pwd) && source=$(cd "$3" && pwd) || exit 2

scratch=$(mktemp -d "${TMPDIR:-/tmp}/zentrix-install-XXXXXX") || exit 1
prefix=$scratch/usr
# Every fixed path of the installed programs (sockets, trace directory, ...)
# lands under this root, never on the machine itself.
root=$scratch/root
export ZENTRIX_ROOT=$root
sim="" watcher=""
cleanup() {
  for pid in $watcher $sim; do kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
  rm -rf "$scratch"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# wait_for <tenths of a second> <command...>: polls until the command succeeds.
wait_for() {
  n=$1; shift
  until "$@"; do n=$((n - 1)); [ "$n" -gt 0 ] || return 1; sleep 0.1; done
}

# --- layout ---------------------------------------------------------------
"$cmake" --install "$build" --prefix "$prefix" >"$scratch/install.log" 2>&1 ||
  { cat "$scratch/install.log"; fail "cmake --install failed"; exit 1; }

# The exact set: anything missing is a broken install, anything extra (a test
# or benchmark binary, say) does not belong on a server.
expected=$scratch/expected
{
  printf '%s\n' bin/Zentrix bin/zentrix-agent-sim bin/zentrix-capture bin/zentrix-event-watch bin/zentrix-fleet-index \
    share/doc/zentrix/agent-sim.md share/man/man1/Zentrix.1.gz \
    share/zentrix/fleet-index/fleet_index.py share/zentrix/fleet-index/zentrix_report.py
  (cd "$source/contrib" && find ansible -type f | sed 's|^|share/doc/zentrix/|')
  (cd "$source/docs" && printf 'share/man/man1/%s.gz\n' *.1)
  (cd "$source/tools/agent-sim/profiles" && printf 'share/zentrix/profiles/%s\n' *.json)
} | sort >"$expected"
(cd "$prefix" && find . ! -type d | sed 's|^\./||' | sort) >"$scratch/actual"
diff -u "$expected" "$scratch/actual" || fail "installed layout differs (- expected, + installed)"

for page in "$source"/docs/*.1; do
  gzip -dc "$prefix/share/man/man1/${page##*/}.gz" | cmp -s - "$page" || fail "installed ${page##*/} is not $page"
done
[ "$(readlink "$prefix/share/man/man1/Zentrix.1.gz")" = zentrix.1.gz ] || fail "Zentrix.1.gz does not lead to zentrix.1.gz"

# --- a report from the installed simulator and profile ----------------------
mkdir -p "$scratch/work"
cd "$scratch/work" || exit 1
profile=$prefix/share/zentrix/profiles/typical.json
"$prefix/bin/zentrix-agent-sim" --root "$root" --profile "$profile" --event-interval 100 \
  >"$scratch/sim.log" 2>&1 &
sim=$!
# The pid file appears once every socket accepts connections.
wait_for 100 test -e "$root/var/run/omad.pid" ||
  { cat "$scratch/sim.log"; fail "installed simulator did not start with $profile"; exit 1; }

"$prefix/bin/Zentrix" -output report.html >"$scratch/zentrix.log" 2>&1; status=$?
[ "$status" -eq 0 ] || { cat "$scratch/zentrix.log"; fail "Zentrix -output exited with $status"; }
model=$(sed -n 's/.*"model": *"\([^"]*\)".*/\1/p' "$profile" | head -n 1)
[ -n "$model" ] || fail "no model in $profile"
grep -qF "$model" report.html || fail "report does not show the profile's model \"$model\""
grep -qi '</html>' report.html || fail "report is not a complete HTML document"
# The installed fleet index finds its installed modules and reads the report.
if [ -x /usr/bin/python3 ]; then
  mkdir -p fleet/host1 && cp report.html fleet/host1/Zentrix_20260101000000.html
  "$prefix/bin/zentrix-fleet-index" fleet >"$scratch/fleet.log" 2>&1 || { cat "$scratch/fleet.log"; fail "zentrix-fleet-index failed"; }
  tr -d '\n' <fleet/index.html | grep -q '<tr data-host="host1"> *<td class="status-normal icon status">Normal<' ||
    fail "fleet index does not list host1 as normal"
fi

# --- a support capture: the script in front of the simulator as the agent ---
# capture_with <bin dir> <report>: ZENTRIX_ROOT leads the script to that
# "agent"; it runs the Zentrix and simulator installed beside it.
serial=$(sed -n 's/.*"serialNumber": *"\([^"]*\)".*/\1/p' "$profile")
capture_with() {
  "$1/zentrix-capture" -output "$2" >"$scratch/capture.log" 2>&1; status=$?
  [ "$status" -eq 0 ] || { cat "$scratch/capture.log"; fail "$1/zentrix-capture exited with $status"; return; }
  grep -qF "$model" "$2" || fail "$2 does not show \"$model\""
  "$1/zentrix-agent-sim" --check --profile "$2.capture.json" || fail "$2.capture.json does not load"
  grep -qF "\"$serial\"" "$2.capture.json" || fail "$2.capture.json lacks the serial number $serial"
  if grep -qF "$serial" "$2.capture.redacted.json"; then fail "$2.capture.redacted.json shows $serial"; fi
}
capture_with "$prefix/bin" support.html

# --- the installed event watcher ---------------------------------------------
"$prefix/bin/zentrix-event-watch" >"$scratch/events.log" 2>"$scratch/watch.log" &
watcher=$!
wait_for 100 grep -q '^OC=' "$scratch/events.log" || fail "installed event watcher printed no event"
kill -TERM "$watcher"; wait "$watcher"; status=$?; watcher=""
[ "$status" -eq 0 ] || { cat "$scratch/watch.log"; fail "event watcher exited with $status after SIGTERM"; }

# --- the Debian package, when one was built here -----------------------------
for deb in "$build"/zentrix_*.deb; do
  [ -e "$deb" ] || break
  command -v dpkg-deb >/dev/null || break
  info=$(dpkg-deb --field "$deb" Package Section Depends)
  case "$info" in
    *"Package: zentrix"*"Section: admin"*"Depends: "*libpugixml*) ;;
    *) fail "${deb##*/}: unexpected control data: $info" ;;
  esac
  # Same files as the install above, under /usr.
  dpkg-deb --contents "$deb" | awk '$1 !~ /^d/ {print $6}' | sed 's|^\./usr/||' | sort >"$scratch/deb"
  diff -u "$expected" "$scratch/deb" || fail "${deb##*/} holds other files than an install (- expected, + package)"
  # The package's own files work together.
  dpkg-deb -x "$deb" "$scratch/deb-root" && capture_with "$scratch/deb-root/usr/bin" deb-support.html
done

[ "$failures" -eq 0 ] && echo "install test passed"
exit "$failures"
