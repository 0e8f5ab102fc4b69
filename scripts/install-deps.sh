#!/bin/bash
# Installs the Debian 12 packages the project builds against. Idempotent: when
# everything is already present it does nothing and needs no network.
#
#   scripts/install-deps.sh           the host (amd64) build, tests, benchmarks, fuzzing
#   scripts/install-deps.sh --armhf   also the cross build for the projector (32-bit ARM
#                                     hard-float) and its tests under qemu-arm
set -eu

PACKAGES="
build-essential cmake pkg-config
libjsoncpp-dev
clearsilver-dev
libminizip-dev zlib1g-dev
libssl-dev
libboost-dev
qtbase5-dev qttools5-dev-tools
libgtest-dev libgmock-dev libbenchmark-dev
clang libclang-rt-14-dev
iproute2
"
# The cross build for the projector (--armhf): the cross compiler and the emulator are
# the build machine's own packages; the armhf libraries are never installed into the
# system (their versions would have to match the host's copies of the same libraries,
# which a workstation or a mirror in the middle of a sync cannot promise). They are
# unpacked into a private prefix instead, chosen by scripts/select-armhf.awk from what apt
# offers for armhf:
ARMHF_TOOLS="g++-arm-linux-gnueabihf qemu-user"
# headers, static libraries and CMake or pkg-config files, taken as they are;
ARMHF_DEV="zlib1g-dev libssl-dev libboost1.74-dev libjsoncpp-dev libminizip-dev libgtest-dev libgmock-dev
qtbase5-dev qt5-qmake clearsilver-dev libsnmp-dev"
# the shared libraries the build links, taken with the libraries they need;
ARMHF_RUNTIME="zlib1g libssl3 libjsoncpp25 libminizip1 libqt5core5a libsnmp40"
# the C and C++ runtime, which the cross toolchain brings (/usr/arm-linux-gnueabihf).
ARMHF_TOOLCHAIN="libc6 libgcc-s1 libstdc++6 gcc-12-base"
# cmake/toolchain-armhf.cmake and scripts/qemu-armhf look here; the selection it holds is
# recorded in its "packages" file.
ARMHF_PREFIX=/opt/projector-armhf

armhf=0
for arg in "$@"; do
    case "$arg" in
        --armhf) armhf=1 ;;
        *) echo "usage: $0 [--armhf]" >&2; exit 2 ;;
    esac
done

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive

installed() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

missing_of() {
    local missing=""
    for p in "$@"; do
        installed "$p" || missing="$missing $p"
    done
    echo "$missing"
}

# Fetches the package indexes once per run. A mirror in the middle of a sync serves an
# index of the wrong size ("Mirror sync in progress?"): the update is tried a few times,
# then what could not be fetched is named and the indexes apt has are used.
updated=0
update_index() {
    local attempt out
    [ "$updated" -eq 0 ] || return 0
    updated=1
    for attempt in 1 2 3; do
        if out=$($SUDO apt-get update -q 2>&1) && ! echo "$out" | grep -q "^E: "; then
            return 0
        fi
        [ "$attempt" -eq 3 ] || sleep "${INSTALL_DEPS_RETRY_SECONDS:-10}"
    done
    echo "install-deps: after 3 attempts apt could not fetch:" >&2
    echo "$out" | grep -E "^(Err|E):" | sed 's/^/    /' >&2
    echo "install-deps: going on with the package indexes apt already has" >&2
}

missing=$(missing_of $PACKAGES)
if [ -n "$missing" ]; then
    echo "installing:$missing"
    update_index
    # shellcheck disable=SC2086
    $SUDO apt-get install -y -q --no-install-recommends $missing
fi

# The web page: Node.js and npm build it (Debian's only when no node is on the PATH, so a
# Node.js of the developer's own is kept), and Debian's Chromium runs its browser tests
# (they never download a browser of their own). Then the page is built; its npm packages
# are fetched only when web/node_modules is missing or older than the lockfile.
if ! command -v node >/dev/null 2>&1; then
    missing=$(missing_of nodejs npm)
    if [ -n "$missing" ]; then
        echo "installing:$missing"
        update_index
        # shellcheck disable=SC2086
        $SUDO apt-get install -y -q --no-install-recommends $missing
    fi
fi
if ! installed chromium; then
    echo "installing: chromium"
    update_index
    $SUDO apt-get install -y -q --no-install-recommends chromium
fi
"$(dirname "$0")/build-web.sh"

# SNMP: net-snmp's agent library for the SNMP front-end; the master agent, the trap
# receiver and the tools its tests run; smilint for the MIB. Their system services are
# neither started by the installation nor left enabled: the tests run a master agent of
# their own on private ports and sockets, and a projector's own snmpd is its owner's
# choice. The IETF base modules the MIB imports come from an npm package (Debian's are
# non-free), fetched from its lockfile when software/bp/snmp/mibs/node_modules is
# missing or older than the lockfile.
SNMP_PACKAGES="libsnmp-dev snmp snmpd snmptrapd smitools"
# shellcheck disable=SC2086
missing=$(missing_of $SNMP_PACKAGES)
if [ -n "$missing" ]; then
    echo "installing:$missing"
    update_index
    policy=/usr/sbin/policy-rc.d
    made_policy=0
    if [ ! -e "$policy" ]; then
        printf '#!/bin/sh\nexit 101\n' | $SUDO tee "$policy" >/dev/null
        $SUDO chmod 755 "$policy"
        made_policy=1
    fi
    # shellcheck disable=SC2086
    $SUDO apt-get install -y -q --no-install-recommends $missing || status=$?
    [ "$made_policy" -eq 0 ] || $SUDO rm -f "$policy"
    [ "${status:-0}" -eq 0 ] || exit "$status"
    if [ -d /run/systemd/system ]; then
        $SUDO systemctl disable --now snmpd.service snmptrapd.service snmptrapd.socket 2>/dev/null || true
    fi
fi
snmp_mibs="$(dirname "$0")/../software/bp/snmp/mibs"
if [ ! -d "$snmp_mibs/node_modules" ] || [ "$snmp_mibs/package-lock.json" -nt "$snmp_mibs/node_modules" ]; then
    (cd "$snmp_mibs" && npm ci --ignore-scripts --no-audit --no-fund)
    touch "$snmp_mibs/node_modules"
fi

if [ "$armhf" -eq 0 ]; then
    exit 0
fi

# shellcheck disable=SC2086
missing=$(missing_of $ARMHF_TOOLS)
if [ -n "$missing" ]; then
    echo "installing:$missing"
    update_index
    # shellcheck disable=SC2086
    $SUDO apt-get install -y -q --no-install-recommends $missing
fi

# apt offers armhf packages only once the architecture is known to it; adding it
# installs nothing.
if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    $SUDO dpkg --add-architecture armhf
    updated=0
    update_index
fi
select_armhf() {
    apt-cache dumpavail | awk -v dev="$ARMHF_DEV" -v runtime="$ARMHF_RUNTIME" \
        -v toolchain="$ARMHF_TOOLCHAIN" -f "$(dirname "$0")/select-armhf.awk"
}
if ! selection=$(select_armhf 2>/dev/null); then
    update_index
    if ! selection=$(select_armhf); then
        echo "install-deps: apt offers no complete set of armhf packages for the cross build" >&2
        exit 1
    fi
fi
if [ "$selection" = "$(cat "$ARMHF_PREFIX/packages" 2>/dev/null)" ]; then
    exit 0
fi

echo "unpacking into $ARMHF_PREFIX:" $selection
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# shellcheck disable=SC2086
(cd "$scratch" && apt-get download -q -o APT::Sandbox::User=root $selection)
mkdir "$scratch/prefix"
for deb in "$scratch"/*.deb; do
    dpkg-deb -x "$deb" "$scratch/prefix"
done
# Qt's CMake files ask for its build tools beside its libraries: they are the host's.
for tool in lib/qt5/bin/moc lib/qt5/bin/rcc lib/arm-linux-gnueabihf/qt5/bin/qmake; do
    mkdir -p "$scratch/prefix/usr/$(dirname "$tool")"
    ln -sfn "/usr/lib/qt5/bin/$(basename "$tool")" "$scratch/prefix/usr/$tool"
done
echo "$selection" > "$scratch/prefix/packages"
# The new prefix replaces the old one whole, so an interrupted run leaves the old intact.
$SUDO rm -rf "$ARMHF_PREFIX.new"
$SUDO mv "$scratch/prefix" "$ARMHF_PREFIX.new"
$SUDO rm -rf "$ARMHF_PREFIX"
$SUDO mv "$ARMHF_PREFIX.new" "$ARMHF_PREFIX"
