#!/usr/bin/env bash
# Installs the Debian packages a target needs, and nothing more:
#   install-deps.sh            what the CLI, the library and the media module build with (make demo, make build)
#   install-deps.sh --test     that, plus what the test programs and their helpers need (make test)
#   install-deps.sh --package  that, plus what cpack's Debian generator calls (make package)
# Safe to run again: packages already present are skipped, and `apt-get update`
# runs at most once per call, only when something is missing. Recommended
# packages are never pulled in (the gpsd daemon would bring udev with them).
set -euo pipefail

build=(
  build-essential cmake ninja-build pkg-config
  libturbojpeg0-dev libjpeg62-turbo-dev libspng-dev libheif-dev
  libgif-dev libwebp-dev libtiff-dev libstb-dev liblcms2-dev
  libexiv2-dev
  libavformat-dev libavcodec-dev libavutil-dev
  libsqlite3-dev libicu-dev liburiparser-dev
  libgps-dev
  nlohmann-json3-dev libcli11-dev libspdlog-dev libfmt-dev libcpp-httplib-dev
  libmicrohttpd-dev libre2-dev
)
# netbase stands first so that gpsd's "netbase | systemd-sysv" takes it: no
# systemd and no socket unit for a test that starts its own gpsd.
test=(
  libgtest-dev libgmock-dev libbenchmark-dev
  netbase gpsd gpsd-clients python3-gps
  python3 jq nodejs chromium
)
package=(file dpkg-dev)

packages=("${build[@]}")
for arg in "$@"; do
  case "$arg" in
    --test) packages+=("${test[@]}") ;;
    --package) packages+=("${package[@]}") ;;
    *) echo "install-deps: unknown option $arg (use --test or --package)" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  SUDO=sudo
else
  SUDO=
fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
