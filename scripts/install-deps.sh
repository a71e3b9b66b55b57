#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with.
# Safe to run again: packages already present are skipped, and `apt-get update`
# runs at most once per call, only when something is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libturbojpeg0-dev libjpeg62-turbo-dev libspng-dev libheif-dev
  libgif-dev libwebp-dev libtiff-dev libstb-dev liblcms2-dev
  libexiv2-dev
  libavformat-dev libavcodec-dev libavutil-dev
  libsqlite3-dev libicu-dev liburiparser-dev
  libgps-dev gpsd gpsd-clients python3-gps
  nlohmann-json3-dev libcli11-dev libspdlog-dev libfmt-dev libcpp-httplib-dev
  libmicrohttpd-dev libre2-dev
  libgtest-dev libgmock-dev libbenchmark-dev
)

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
