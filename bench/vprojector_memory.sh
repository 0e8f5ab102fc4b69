#!/bin/sh
# The resident memory of the virtual projector's controller: VmRSS and VmHWM of the
# vprojector process (from /proc/<pid>/status, once it printed its ready line and settled),
# with the shipped configuration and with 2,000 persistent integer controls added to it
# ("T00+0000".."T01+0999"), and what one added control costs in bytes.
#
# It builds nothing; build first:
#   cmake --build build --target vprojector serial_frontend
#   bench/vprojector_memory.sh [BUILD_DIR]        (default: build)
# Each case runs under its own temporary runtime root with --no-serial (the controller
# alone), on free ports. Environment: SETTLE_SECONDS (default 2).
set -eu
cd "$(dirname "$0")/.."

build="${1:-build}"
vprojector="$build/bin/vprojector"
settle="${SETTLE_SECONDS:-2}"
added=2000
if [ ! -x "$vprojector" ]; then
    echo "no $vprojector: run 'cmake --build $build --target vprojector serial_frontend' first" >&2
    exit 1
fi

lab_name=vprojector-memory
. bench/vprojector_lab.sh

# The shipped configuration plus $added integer controls.
python3 - config/vprojector.json "$work/added.json" "$added" <<'PY'
import json, sys
source, target, count = sys.argv[1], sys.argv[2], int(sys.argv[3])
with open(source) as f:
    config = json.load(f)
for i in range(count):
    config["controls"].append({"code": "T%02d+%04d" % (i // 1000, i % 1000), "type": 200, "min": 0,
                               "max": 1000, "default": 0, "persistent": True})
with open(target, "w") as f:
    json.dump(config, f)
PY

controls() {
    python3 -c 'import json, sys; print(len(json.load(open(sys.argv[1]))["controls"]))' "$1"
}

# measure NAME CONFIG: prints "VmRSS VmHWM" in kB.
measure() {
    root="$work/$1"
    mkdir -p "$root/etc"
    cp config/menu.json "$root/etc/menu.json"
    "$vprojector" --root "$root" --config "$2" --ascii-port 0 --jsonrpc-port 0 --no-serial --log-level 3 \
        >"$root/out" 2>"$root/err" &
    pid=$!
    wait_ready "$root/out" "$root/err" 15
    sleep "$settle"
    awk '/^VmRSS:/ { rss = $2 } /^VmHWM:/ { hwm = $2 } END { print rss, hwm }' "/proc/$pid/status"
    kill -TERM "$pid"
    wait "$pid" || true
    pid=""
}

shipped_controls="$(controls config/vprojector.json)"
added_controls="$(controls "$work/added.json")"
shipped="$(measure shipped config/vprojector.json)"
large="$(measure added "$work/added.json")"

# The last two columns: the difference from the shipped case per added control, in bytes.
echo "$shipped_controls $shipped $added_controls $large" | awk -v added="$added" '{
    fmt = "%-22s %9s %9s %9s %13s %13s\n"
    printf fmt, "configuration", "controls", "VmRSS kB", "VmHWM kB", "RSS B/added", "HWM B/added"
    printf fmt, "shipped", $1, $2, $3, "-", "-"
    printf fmt, "shipped + " added " int", $4, $5, $6, sprintf("%.0f", ($5 - $2) * 1024 / added),
        sprintf("%.0f", ($6 - $3) * 1024 / added)
}'
