#!/bin/sh
# Installs the Debian packages a task needs, only when one is missing (a
# minimal Debian 12 has no compiler, no cmake and no python3).
#   install-deps.sh [group...]   groups: build (default), browser, bench, package, python, fleet
set -e
[ $# -eq 0 ] && set -- build
packages=""
for group in "$@"; do
  case "$group" in
    build) packages="$packages cmake make g++ rapidjson-dev libpugixml-dev libgtest-dev libgmock-dev libbenchmark-dev clang-14 libclang-rt-14-dev" ;;
    browser) packages="$packages chromium chromium-driver python3-selenium python3-pil" ;;
    bench) packages="$packages python3 python3-matplotlib" ;;
    package) packages="$packages dpkg-dev file" ;;
    python) packages="$packages python3" ;;
    fleet) packages="$packages python3 ansible-core" ;;
    *) echo "install-deps.sh: unknown group $group" >&2; exit 2 ;;
  esac
done
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
if [ "$(id -u)" != 0 ]; then
  echo "Missing Debian packages:$missing (run as root to install them)" >&2
  exit 1
fi
echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
apt-get update -q
apt-get install -y -q --no-install-recommends $missing
