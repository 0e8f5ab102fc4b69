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
#   set_alone    a "control:set" of "BRI" over JSON-RPC, alternately 40 and 60, with
#                nobody listening (the controller)
#   set_json50   the same set, announced to 50 JSON-RPC clients that added a listener
#                for "BRI" (the controller; the TCP port serves at most 64 clients)
#   set_ipc100   the same set, announced to 100 IPC listeners (vprojctl listen BRI, run
#                on this machine's side; the controller)
# Each set waits until every listener has the change before the next, so no listener
# lags and the controller never waits for a full receive queue.
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

# announce LISTENERS KIND: $requests changes of "BRI", each set over a JSON-RPC connection
# and answered, then awaited at every listener (KIND json: clients of the JSON-RPC port,
# connected and registered here; ipc: the vprojctl processes writing to $work/listen.N).
# The listeners are made ready before the count starts.
announce() {
    python3 - "$json" "$1" "$2" "$requests" "$counter" "$rate" "$work" <<'PY'
import os, socket, struct, sys, time
port, listeners, kind, count, counter, rate, work = sys.argv[1:]
port, listeners, count, rate = int(port), int(listeners), int(count), float(rate)

def mark():
    with open(counter, "rb") as f:
        return struct.unpack("=Q", f.read(8))[0]

pending = {}
def message(s):  # reads from s until one NUL-ended message has come, and drops it
    while b"\0" not in pending.get(s, b""):
        data = s.recv(65536)
        if not data:
            sys.exit("connection closed")
        pending[s] = pending.get(s, b"") + data
    pending[s] = pending[s].split(b"\0", 1)[1]

def connect():
    s = socket.create_connection(("127.0.0.1", port))
    s.settimeout(600)
    return s

def call(s, text):
    s.sendall(text.encode() + b"\0")
    message(s)

setter = connect()
def set_to(value):
    call(setter, '{"jsonrpc":"2.0","id":1,"method":"control:set","params":{"code":"BRI","value":%d}}' % value)
values = [40, 60]
def change():  # a real change every time: alternately 40 and 60, after 45
    values.reverse()
    set_to(values[0])
set_to(45)

clients = []
if kind == "json":
    for _ in range(listeners):
        clients.append(connect())
        call(clients[-1], '{"jsonrpc":"2.0","id":2,"method":"control:addListener","params":{"code":"BRI","sendNow":false}}')

def sizes():
    return [os.path.getsize(os.path.join(work, "listen.%d" % n)) for n in range(listeners)]

def reached_all(before):  # waits until every listener has one change more than before
    if kind == "json":
        for c in clients:
            message(c)
        return None
    deadline = time.time() + 600
    while True:
        now = sizes()
        if all(a > b for a, b in zip(now, before)):
            return now
        if time.time() > deadline:
            sys.exit("a change reached not every listener")
        time.sleep(0.0005)

if kind == "ipc":  # a change that reached every listener shows them all registered
    before = sizes()
    deadline = time.time() + 600
    while not all(a > b for a, b in zip(sizes(), before)):
        if time.time() > deadline:
            sys.exit("the listeners did not register")
        change()
        time.sleep(0.2)
    time.sleep(1)
else:
    change()
    reached_all(None)

begin, first = time.time(), mark()
seen = sizes() if kind == "ipc" else None
for _ in range(count):
    change()
    seen = reached_all(seen)
end, second = time.time(), mark()
print("%-12s %12.0f instructions per change" % (
    "set_alone" if listeners == 0 else "set_%s%d" % (kind, listeners),
    (second - first - rate * (end - begin)) / count))
PY
}

announce 0 json
announce 50 json
listeners=""
trap 'kill -9 $listeners 2>/dev/null || true; cleanup' EXIT
n=0
while [ "$n" -lt 100 ]; do
    "$host/bin/vprojctl" --root "$root" listen BRI >"$work/listen.$n" 2>&1 &
    listeners="$listeners $!"
    n=$((n + 1))
done
announce 100 ipc
kill $listeners
wait $listeners 2>/dev/null || true
listeners=""
