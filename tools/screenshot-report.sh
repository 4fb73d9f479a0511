#!/bin/sh
# Renders the report of the simulator's "typical" server and takes a headless
# browser screenshot of it with a few sections opened: docs/report.png.
#
#   tools/screenshot-report.sh [build-dir] [output.png]
#
# Needs a built tree (Zentrix and agent-sim) and Debian's chromium.
set -eu
src=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$src/build}" && pwd)
out=$(realpath -m "${2:-$src/docs/report.png}")
browser=$(command -v chromium || command -v chromium-browser || true)
[ -n "$browser" ] || { echo "chromium not found (apt-get install -y chromium)" >&2; exit 1; }
[ -x "$build/Zentrix" ] && [ -x "$build/tools/agent-sim/agent-sim" ] || {
  echo "build $build first (targets Zentrix and agent-sim)" >&2; exit 1; }

work=$(mktemp -d /tmp/zx-shot-XXXXXX)
sim=""
cleanup() {
  [ -n "$sim" ] && kill "$sim" 2>/dev/null && wait "$sim" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT INT TERM

mkdir -p "$work/root" "$work/profile"
ZENTRIX_ROOT="$work/root" "$build/tools/agent-sim/agent-sim" --root "$work/root" \
  --profile "$src/tools/agent-sim/profiles/typical.json" >"$work/sim.log" 2>&1 &
sim=$!
# The daemon is up once its request socket exists.
for _ in $(seq 50); do [ -S "$work/root/dev/omadsj" ] && break; sleep 0.1; done
(cd "$work" && ZENTRIX_ROOT="$work/root" "$build/Zentrix" -output "$work/report.html" >/dev/null)

# Open some sections for the picture: no transition, full height.
sed 's|</body>|<script>document.querySelectorAll(".content").forEach(function(c){c.style.transition="none"});["System","Operating System","Environment","Temperature","Power Supply","Power Supply Units","System Event Log"].forEach(function(t){document.querySelectorAll("button.collapsible").forEach(function(b){if(b.textContent===t){b.classList.add("active");b.nextElementSibling.style.maxHeight="none"}})});</script></body>|' \
  "$work/report.html" >"$work/shot.html"

"$browser" --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
  --disable-background-networking --disable-component-update --disable-sync \
  --user-data-dir="$work/profile" --window-size=1280,1600 --screenshot="$out" \
  "file://$work/shot.html" >"$work/browser.log" 2>&1 || { cat "$work/browser.log" >&2; exit 1; }
echo "wrote $out"
