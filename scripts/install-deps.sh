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
libboost1.74-dev libboost-filesystem1.74-dev libboost-thread1.74-dev libboost-system1.74-dev
clearsilver-dev
libminizip-dev zlib1g-dev
libxml2-dev libpng-dev libssl-dev
qtbase5-dev qttools5-dev-tools
libgtest-dev libgmock-dev libbenchmark-dev
clang libclang-rt-14-dev
iproute2
"
# The cross toolchain, the emulator and the armhf loader, then the armhf development
# packages of every library the build links.
ARMHF_TOOLS="crossbuild-essential-armhf qemu-user libc6:armhf"
ARMHF_LIBS="zlib1g-dev:armhf libssl-dev:armhf libjsoncpp-dev:armhf libminizip-dev:armhf
libgtest-dev:armhf libgmock-dev:armhf qtbase5-dev:armhf"
# ClearSilver's development package is not multi-arch (its armhf and amd64 packages
# conflict): the armhf one is unpacked here, and cmake/toolchain-armhf.cmake looks here.
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

updated=0
update_index() {
    if [ "$updated" -eq 0 ]; then
        # A mirror in the middle of a sync can fail one index; what was fetched is used.
        $SUDO apt-get update -q || echo "install-deps: some package indexes could not be fetched; going on" >&2
        updated=1
    fi
}

# The highest version that both architectures of a package can have.
common_version() {
    local arm amd
    arm=$(apt-cache madison "$1:armhf" 2>/dev/null | awk -F'|' '{gsub(/ /, "", $2); print $2}' | sort -u)
    amd=$(apt-cache madison "$1:amd64" 2>/dev/null | awk -F'|' '{gsub(/ /, "", $2); print $2}' | sort -u)
    comm -12 <(echo "$arm") <(echo "$amd") | sort -V | tail -n 1
}

# The available versions of a package, highest first.
versions_of() {
    apt-cache madison "$1" 2>/dev/null | awk -F'|' '{gsub(/ /, "", $2); print $2}' | sort -u -V -r
}

# Installs packages so that the armhf and amd64 copies of every "Multi-Arch: same"
# library keep one version. When the indexes disagree (a security index fetched for one
# architecture only), apt gives up or would remove packages; then:
#   - a library it names for armhf is pinned, both architectures to the highest version
#     they share (an armhf library whose amd64 copy is not installed, to its candidate);
#   - an amd64 package it cannot install, or would remove, is pinned to the highest of
#     its versions that fits what is pinned;
# until the installation resolves without removing anything.
install_resolving() {
    local pins="" round out names p v common added
    for round in $(seq 1 30); do
        # shellcheck disable=SC2086
        if out=$(apt-get install -s -q --no-install-recommends --allow-downgrades "$@" $pins 2>&1) &&
            ! echo "$out" | grep -q "^Remv "; then
            # shellcheck disable=SC2086
            $SUDO apt-get install -y -q --no-install-recommends --allow-downgrades "$@" $pins
            return 0
        fi
        added=0
        for name in $(echo "$out" | grep -oE "[a-z0-9][a-z0-9.+-]*:armhf" | sort -u); do
            p=${name%:armhf}
            case " $pins " in *" $p:armhf="*) continue ;; esac
            if installed "$p:amd64"; then
                common=$(common_version "$p")
            else
                common=$(apt-cache policy "$p:armhf" | awk '/Candidate:/ {print $2}')
            fi
            [ -n "$common" ] && [ "$common" != "(none)" ] || continue
            if installed "$p:amd64"; then
                pins="$pins $p:amd64=$common"
            fi
            pins="$pins $p:armhf=$common"
            added=1
        done
        # amd64 packages that cannot be installed as asked or would be removed: the highest
        # older version that resolves.
        for p in $(echo "$out" | sed -n -e 's/^ \([a-z0-9][a-z0-9.+-]*\) : Depends.*/\1/p' -e 's/^Remv \([a-z0-9][a-z0-9.+-]*\) .*/\1/p' | sort -u); do
            case "$p" in *:*) continue ;; esac
            case " $pins " in *" $p="* | *" $p:amd64="*) continue ;; esac
            for v in $(versions_of "$p:amd64"); do
                # shellcheck disable=SC2086
                if apt-get install -s -q --no-install-recommends --allow-downgrades "$p:amd64=$v" $pins >/dev/null 2>&1; then
                    pins="$pins $p:amd64=$v"
                    added=1
                    break
                fi
            done
        done
        if [ "$added" -eq 0 ]; then
            echo "$out" >&2
            echo "install-deps: these packages cannot be installed together: $*" >&2
            return 1
        fi
        echo "install-deps: pinning${pins}" >&2
    done
    return 1
}

missing=$(missing_of $PACKAGES)
if [ -n "$missing" ]; then
    echo "installing:$missing"
    update_index
    # shellcheck disable=SC2086
    install_resolving $missing
fi

if [ "$armhf" -eq 0 ]; then
    exit 0
fi

if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    $SUDO dpkg --add-architecture armhf
    updated=0
fi
# shellcheck disable=SC2086
missing=$(missing_of $ARMHF_TOOLS $ARMHF_LIBS)
if [ -n "$missing" ]; then
    echo "installing:$missing"
    update_index
    # shellcheck disable=SC2086
    install_resolving $missing
fi
if [ ! -f "$ARMHF_PREFIX/usr/lib/arm-linux-gnueabihf/libneo_utl.a" ]; then
    update_index
    scratch=$(mktemp -d)
    chmod 755 "$scratch"  # apt's download user writes here
    (cd "$scratch" && apt-get download clearsilver-dev:armhf)
    $SUDO mkdir -p "$ARMHF_PREFIX"
    $SUDO dpkg-deb -x "$scratch"/clearsilver-dev_*_armhf.deb "$ARMHF_PREFIX"
    rm -rf "$scratch"
fi
