#!/bin/sh
# Installs what is missing, builds, and runs the main job under a runtime root inside
# the working copy (run/ by default; never the real system paths).
# Until the virtual projector exists, the main job is the foundation demo.
#
#   scripts/run.sh [--root DIR] [--log-level 3..7]
set -eu
cd "$(dirname "$0")/.."

root="$(pwd)/run"
level=6
while [ $# -gt 0 ]; do
    case "$1" in
        --root) root="$2"; shift 2 ;;
        --log-level) level="$2"; shift 2 ;;
        *) echo "usage: $0 [--root DIR] [--log-level 3..7]" >&2; exit 2 ;;
    esac
done

./scripts/install-deps.sh
cmake -S . -B build -DPROJ_WERROR=ON
cmake --build build -j "${JOBS:-2}" --target foundation_demo translations

mkdir -p "$root/usr/bin/translations"
cp build/translations/*.qm "$root/usr/bin/translations/"
exec build/bin/foundation_demo --root "$root" --log-level "$level"
