#!/bin/sh
# Installs the build into a scratch prefix and uses only what was installed:
# the file layout, the tool's help, a report from the installed simulator and
# profile, and the installed event watcher. When the build directory holds a
# Debian package, its control data and contents are checked too.
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
if ! "$cmake" --install "$build" --prefix "$prefix" >"$scratch/install.log" 2>&1; then
  cat "$scratch/install.log"
  fail "cmake --install failed"
  exit 1
fi

# The exact set: anything missing is a broken install, anything extra (a test
# or benchmark binary, say) does not belong on a server.
expected=$scratch/expected
{
  printf '%s\n' bin/Zentrix bin/zentrix-agent-sim bin/zentrix-event-watch \
    share/doc/zentrix/agent-sim.md share/man/man1/Zentrix.1.gz
  for page in "$source"/docs/*.1; do
    echo "share/man/man1/${page##*/}.gz"
  done
  for p in "$source"/tools/agent-sim/profiles/*.json; do
    echo "share/zentrix/profiles/${p##*/}"
  done
} | sort >"$expected"
(cd "$prefix" && find . ! -type d | sed 's|^\./||' | sort) >"$scratch/actual"
if ! diff -u "$expected" "$scratch/actual"; then
  fail "installed files differ from the expected layout (- expected, + installed)"
fi

for page in "$source"/docs/*.1; do
  name=${page##*/}
  gzip -dc "$prefix/share/man/man1/$name.gz" | cmp -s - "$page" || fail "installed $name is not docs/$name"
done
[ "$(readlink "$prefix/share/man/man1/Zentrix.1.gz")" = zentrix.1.gz ] || fail "Zentrix.1.gz does not lead to zentrix.1.gz"

# --- the installed tool -----------------------------------------------------
mkdir -p "$scratch/work"
cd "$scratch/work" || exit 1
help=$("$prefix/bin/Zentrix" -? 2>&1) || fail "Zentrix -? exited with $?"
case "$help" in
  *"Syntax:"*"-output [file name]   generates HTML output file [file name]"*"-?                    shows this help"*) ;;
  *) fail "Zentrix -? did not print the help: $help" ;;
esac

# --- a report from the installed simulator and profile ----------------------
profile=$prefix/share/zentrix/profiles/typical.json
"$prefix/bin/zentrix-agent-sim" --root "$root" --profile "$profile" --event-interval 100 \
  >"$scratch/sim.log" 2>&1 &
sim=$!
# The pid file appears once every socket accepts connections.
if ! wait_for 100 test -e "$root/var/run/omad.pid"; then
  cat "$scratch/sim.log"
  fail "installed simulator did not start with $profile"
  exit 1
fi

"$prefix/bin/Zentrix" -output report.html >"$scratch/zentrix.log" 2>&1; status=$?
[ "$status" -eq 0 ] || { cat "$scratch/zentrix.log"; fail "Zentrix -output exited with $status"; }
model=$(sed -n 's/.*"model": *"\([^"]*\)".*/\1/p' "$profile" | head -n 1)
[ -n "$model" ] || fail "no model in $profile"
grep -qF "$model" report.html || fail "report does not show the profile's model \"$model\""
grep -qi '</html>' report.html || fail "report is not a complete HTML document"

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
done

[ "$failures" -eq 0 ] && echo "install test passed"
exit "$failures"
