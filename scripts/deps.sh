#!/bin/sh
# Installs the Debian packages the build, the tests and the demo need.
# Idempotent: does nothing when everything is there already.
set -eu
PACKAGES="build-essential cmake ninja-build pkg-config binutils python3
libgtest-dev libgmock-dev libbenchmark-dev
libjson-c-dev libjsoncpp-dev libxml2-dev libsqlite3-dev libcurl4-openssl-dev libarchive-dev libssl-dev
clang clang-tidy libclang-rt-14-dev util-linux
smartmontools hdparm nvme-cli sg3-utils curl"
[ $# -gt 0 ] && PACKAGES="$PACKAGES $*"
missing=""
for p in $PACKAGES; do
	dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
echo "installing:$missing" >&2
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends $missing >/dev/null
