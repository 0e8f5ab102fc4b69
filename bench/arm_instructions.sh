#!/bin/sh
# Instructions the projector's 32-bit ARM programs execute per request, counted under
# qemu-arm by a plugin (bench/QemuInstructionCounter.cpp) that adds every guest
# instruction executed to a counter in a file. The count does not depend on the machine's
# load, and it is the ARM code's, so it carries over to the projector's computer.
#
# One virtual projector (the controller and its ASCII front-end, both counted) runs on a
# temporary runtime root. After it is ready, the count over an idle spell gives the
# programs' idle rate (their periodic tasks); then each kind of request is sent REQUESTS
# times in a row from this machine's side, and the figure printed is
#   (instructions during the requests - idle rate x their duration) / REQUESTS
# for:
#   json_get     "control:get" of "BRI" over one JSON-RPC TCP connection (the controller)
#   ascii_query  "(BRI?)" over one TCP connection to the ASCII front-end, which asks the
#                controller over IPC (both processes)
#   ipc_get      an IPC request for "BRI" with its reply (the controller); vprojctl get
#                makes two (the control's type, then its value), so its count is halved
#
# It builds nothing: the cross build (scripts/test.sh --armhf makes build-armhf) and, in
# the benchmark build (scripts/bench.sh makes build-bench), vprojctl and the plugin.
#   bench/arm_instructions.sh [ARMHF_BUILD_DIR] [HOST_BUILD_DIR]   (build-armhf, build-bench)
# Environment: REQUESTS (default 200), IDLE_SECONDS (default 5), PROFILE (a path: each
# process also writes where its instructions went to PROFILE.<pid> when it ends, for
# bench/arm_profile.py).
set -eu
cd "$(dirname "$0")/.."

armhf="${1:-build-armhf}"
host="${2:-build-bench}"
requests="${REQUESTS:-200}"
idle="${IDLE_SECONDS:-5}"
plugin="$(pwd)/$host/lib/libqemu_instruction_counter.so"
for program in "$armhf/bin/vprojector" "$armhf/bin/serial_frontend" "$host/bin/vprojctl" "$plugin"; do
    if [ ! -e "$program" ]; then
        echo "no $program: build it first (see the head of $0)" >&2
        exit 1
    fi
done

lab_name=arm-instructions
. bench/vprojector_lab.sh

counter="$work/counter"
head -c 8 /dev/zero > "$counter"
# mark: the instructions counted so far.
mark() { od -An -t u8 "$counter" | tr -d ' '; }
now() { date +%s.%N; }

root="$work/root"
mkdir -p "$root/etc"
cp config/menu.json "$root/etc/menu.json"
export VPROJECTOR_EMULATOR="$(pwd)/scripts/qemu-armhf"
QEMU_PLUGIN="file=$plugin,counter=$counter${PROFILE:+,profile=$PROFILE}" \
    "$VPROJECTOR_EMULATOR" "$armhf/bin/vprojector" --root "$root" --config config/vprojector.json \
    --ascii-port 0 --jsonrpc-port 0 --no-pjlink --log-level 3 >"$work/out" 2>"$work/err" &
pid=$!
wait_ready "$work/out" "$work/err" 60
ascii=$(sed -n 's/^ready ascii=\([0-9]*\) jsonrpc=\([0-9]*\) .*/\1/p' "$work/out")
json=$(sed -n 's/^ready ascii=\([0-9]*\) jsonrpc=\([0-9]*\) .*/\2/p' "$work/out")
sleep "$idle"

start=$(now)
first=$(mark)
sleep "$idle"
second=$(mark)
rate=$(echo "$first $second $start $(now)" | awk '{ print ($2 - $1) / ($4 - $3) }')

# measure NAME PER COMMAND...: runs the command, which sends $requests x PER requests,
# and prints the instructions per request.
measure() {
    name=$1
    per=$2
    shift 2
    begin=$(now)
    a=$(mark)
    "$@"
    b=$(mark)
    echo "$a $b $begin $(now) $rate $((requests * per))" |
        awk -v name="$name" '{ printf "%-12s %12.0f instructions per request\n", name, ($2 - $1 - $5 * ($4 - $3)) / $6 }'
}

# exchange PORT TERMINATOR REQUEST: $requests requests on one connection, each answer
# read up to its terminator.
exchange() {
    python3 - "$1" "$2" "$3" "$requests" <<'PY'
import socket, sys
port, end, request, count = int(sys.argv[1]), sys.argv[2].encode().decode("unicode_escape").encode(), sys.argv[3], int(sys.argv[4])
s = socket.create_connection(("127.0.0.1", port))
s.settimeout(600)
payload = request.encode().decode("unicode_escape").encode()
for _ in range(count):
    s.sendall(payload)
    answer = b""
    while not answer.endswith(end):
        data = s.recv(65536)
        if not data:
            sys.exit("connection closed")
        answer += data
s.close()
PY
}
ipc_gets() {
    i=0
    while [ "$i" -lt "$requests" ]; do
        "$host/bin/vprojctl" --root "$root" get BRI >/dev/null
        i=$((i + 1))
    done
}

echo "32-bit ARM (qemu-arm), $requests requests each; idle rate $(printf '%.0f' "$rate") instructions/s"
measure json_get 1 exchange "$json" '\x00' '{"jsonrpc": "2.0", "method": "control:get", "params": {"code": "BRI"}, "id": 1}\x00'
measure ascii_query 1 exchange "$ascii" ')' '(BRI?)'
measure ipc_get 2 ipc_gets
