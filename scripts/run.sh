#!/bin/sh
# Installs what is missing, builds, and runs the virtual projector under a runtime root
# inside the working copy (run/ by default; never the real system paths).
#
#   scripts/run.sh [--root DIR] [vprojector options...]
# e.g. scripts/run.sh --log-level 7 --ascii-port 4002
set -eu
cd "$(dirname "$0")/.."

root="$(pwd)/run"
if [ "${1:-}" = "--root" ]; then
    root="$2"
    shift 2
fi

./scripts/install-deps.sh
cmake -S . -B build -DPROJ_WERROR=ON
cmake --build build -j "${JOBS:-2}" --target vprojector serial_frontend vprojctl translations demo_sequence

mkdir -p "$root/etc" "$root/usr/bin/translations" "$root/usr/lib/firmware/seq"
cp build/translations/*.qm "$root/usr/bin/translations/"
[ -f "$root/etc/menu.json" ] || cp config/menu.json "$root/etc/menu.json"
[ -f "$root/usr/lib/firmware/seq/demo.zip" ] || cp build/seq/demo.zip "$root/usr/lib/firmware/seq/demo.zip"

cat <<INFO
Starting the virtual projector under $root
  ASCII commands:  build/bin/vprojctl ascii "(BRI?)"        (TCP port 3002 unless --ascii-port)
  JSON-RPC:        build/bin/vprojctl rpc control:get '["BRI"]'   (TCP port 3003 unless --jsonrpc-port)
  IPC:             build/bin/vprojctl --root $root get BRI
  Web page:        http://127.0.0.1:8080/ and https://127.0.0.1:8443/ unless --http-port, --https-port
Stop it with Ctrl-C.
INFO
exec build/bin/vprojector --root "$root" --http-port 8080 --https-port 8443 "$@"
