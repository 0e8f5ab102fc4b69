#!/bin/sh
# Installs the Debian 12 packages the project builds against. Idempotent: when
# every package is already present it does nothing and needs no network.
set -eu

PACKAGES="
build-essential cmake pkg-config
libjsoncpp-dev
libboost1.74-dev libboost-filesystem1.74-dev libboost-thread1.74-dev libboost-system1.74-dev
clearsilver-dev
libminizip-dev zlib1g-dev
libxml2-dev libpng-dev libssl-dev
qtbase5-dev qttools5-dev-tools
libgtest-dev libgmock-dev libbenchmark-dev
clang libclang-rt-14-dev
"

missing=""
for p in $PACKAGES; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $p"
    fi
done

if [ -z "$missing" ]; then
    exit 0
fi

echo "installing:$missing"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
# shellcheck disable=SC2086
$SUDO apt-get install -y -q --no-install-recommends $missing
