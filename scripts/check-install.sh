#!/bin/sh
# Checks the build as firmware teams consume it: installs it into a staging root, builds
# examples/control_client against the installed package alone (find_package(projector)),
# runs it against the staged virtual projector, then makes the Debian packages.
#
#   scripts/check-install.sh BUILD_DIR [armhf | sanitize]
set -eu
cd "$(dirname "$0")/.."

build=$1
mode=${2:-}
stage="$(pwd)/$build/stage"
example="$build/example"
root="$(pwd)/$build/example-root"

rm -rf "$stage" "$example" "$root"
cmake --install "$build" --prefix "$stage" > /dev/null
if [ -f web/dist/index.html ] && ! cmp -s web/dist/index.html "$stage/usr/share/projector/www/index.html"; then
    echo "check-install: the web page is not installed in usr/share/projector/www" >&2
    exit 1
fi
config=$(find "$stage/usr/lib" -name projectorConfig.cmake | head -n 1)
libdir=$(dirname "$(dirname "$(dirname "$config")")")

options=""
emulator=""
case "$mode" in
    armhf)
        options="-DCMAKE_TOOLCHAIN_FILE=$(pwd)/cmake/toolchain-armhf.cmake"
        emulator="$(pwd)/scripts/qemu-armhf"
        export VPROJECTOR_EMULATOR="$emulator"
        ;;
    sanitize)
        options="-DCMAKE_CXX_FLAGS=-fsanitize=address,undefined"
        ;;
esac
# shellcheck disable=SC2086
cmake -S examples/control_client -B "$example" -DCMAKE_PREFIX_PATH="$stage/usr" $options > /dev/null
cmake --build "$example" > /dev/null

mkdir -p "$root"
LD_LIBRARY_PATH="$libdir" $emulator "$stage/usr/bin/vprojector" --root "$root" --ascii-port 0 --jsonrpc-port 0 \
    --unicast-port 0 --pjlink-port 0 --no-serial > "$root/ready" 2> "$root/vprojector.log" &
projector=$!
waited=0
until grep -q "^ready" "$root/ready" 2>/dev/null; do
    waited=$((waited + 1))
    if [ "$waited" -gt 300 ] || ! kill -0 "$projector" 2>/dev/null; then
        cat "$root/vprojector.log" >&2
        echo "check-install: the staged vprojector did not start" >&2
        kill "$projector" 2>/dev/null || true
        exit 1
    fi
    sleep 0.1
done
status=0
answer=$(LD_LIBRARY_PATH="$libdir" $emulator "$example/control_client" "$root" BRI 66) || status=$?
kill "$projector"
wait "$projector" || true
if [ "$status" -ne 0 ] || [ "$answer" != "BRI 50 -> 66" ]; then
    echo "check-install: control_client answered \"$answer\" (status $status)" >&2
    exit 1
fi
echo "check-install: control_client built against the installed package: $answer"

(cd "$build" && cpack -G DEB > /dev/null)
for package in "$build"/*.deb; do
    dpkg-deb --field "$package" Package Architecture Version | tr '\n' ' '
    echo "($(dpkg-deb --contents "$package" | wc -l) entries)"
done
