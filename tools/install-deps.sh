#!/bin/sh
# Installs the Debian packages a task needs, only when one is missing (a
# minimal Debian 12 has no compiler, no cmake and no python3).
#   install-deps.sh [group...]
# Groups: product (the program alone, -DBUILD_TESTING=OFF), test (GoogleTest
# and GoogleMock), benchmark (Google Benchmark), fuzz (clang and libFuzzer),
# build (default: product, test and benchmark, what a developer build
# configures), browser (the browser test), bench (bench/run's plots), package
# (cpack), python, fleet (ansible-core for the fleet test).
set -e
[ $# -eq 0 ] && set -- build
product="cmake make g++ rapidjson-dev libpugixml-dev"
test="libgtest-dev libgmock-dev"
benchmark="libbenchmark-dev"
packages=""
for group in "$@"; do
  case "$group" in
    product) packages="$packages $product" ;;
    test) packages="$packages $test" ;;
    benchmark) packages="$packages $benchmark" ;;
    build) packages="$packages $product $test $benchmark" ;;
    fuzz) packages="$packages clang-14 libclang-rt-14-dev" ;;
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
