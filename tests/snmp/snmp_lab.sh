# The SNMP laboratory the SNMP test and benchmark share, sourced by both: Debian's snmpd as
# the master agent on a loopback port and a private AgentX socket under a temporary folder,
# snmptrapd as the trap sink on another, and how to start the virtual projector with its
# SNMP front-end against them. Nothing needs root.
#
# Expects VPROJECTOR and SOURCE (the source tree). Exits 77 with the reason when a tool is
# missing. Leaves: tmp (removed at exit with every process in pids), agent_port, trap_port,
# MIBS, BASE_MIBS, MIBOPTS, TARGET, ENTERPRISE; start_snmpd (snmpd_pid), start_projector
# CONFIG (projector_pid, json_port, ascii_port; true once the ready line names the AgentX
# socket), stop_projector (true when no sanitizer report was logged), write_big_config FILE.

MIBS="$SOURCE/software/bp/snmp/mibs"
BASE_MIBS="$MIBS/node_modules/net-snmp/lib/mibs"

for tool in snmpd snmptrapd snmpget snmpwalk snmpset snmpbulkwalk; do
    if ! command -v "$tool" >/dev/null 2>&1 && [ ! -x "/usr/sbin/$tool" ]; then
        echo "SKIP: $tool is missing (scripts/install-deps.sh installs it)"
        exit 77
    fi
done
PATH="$PATH:/usr/sbin"

tmp=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null
    done
    wait 2>/dev/null
    rm -rf "$tmp"
}
trap cleanup EXIT

free_udp_port() {  # a port no one has bound on 127.0.0.1 (UDP) now
    local port
    while :; do
        port=$((20000 + RANDOM % 40000))
        if ! grep -qi ":$(printf '%04X' "$port") " /proc/net/udp /proc/net/tcp 2>/dev/null; then
            echo "$port"
            return
        fi
    done
}

agent_port=$(free_udp_port)
trap_port=$(free_udp_port)
export SNMP_PERSISTENT_DIR="$tmp/persist"
export SNMPCONFPATH="$tmp/none"
mkdir -p "$SNMP_PERSISTENT_DIR" "$tmp/root"
cat >"$tmp/snmpd.conf" <<EOF
master agentx
agentXSocket $tmp/agentx
agentXTimeout 5
agentaddress udp:127.0.0.1:$agent_port
rocommunity public 127.0.0.1
rwcommunity private 127.0.0.1
trap2sink 127.0.0.1:$trap_port public
EOF
cat >"$tmp/snmptrapd.conf" <<EOF
authCommunity log public
EOF

start_snmpd() {
    snmpd -f -C -c "$tmp/snmpd.conf" -Lf "$tmp/snmpd.log" -p "$tmp/snmpd.pid" >/dev/null 2>&1 &
    snmpd_pid=$!
    pids+=("$snmpd_pid")
}
start_snmpd
snmptrapd -f -C -c "$tmp/snmptrapd.conf" -On -Lf "$tmp/traps.log" "udp:127.0.0.1:$trap_port" >/dev/null 2>&1 &
pids+=($!)

# The module's objects by name, from the project's MIB and the base modules it imports.
ENTERPRISE=.1.3.6.1.4.1.32473.1
MIBOPTS=(-M "$MIBS:$BASE_MIBS" -m SNMPv2-MIB:PROJECTOR-CONTROL-MIB)
if [ ! -d "$BASE_MIBS" ]; then
    MIBOPTS=(-M "$MIBS" -m "")  # numeric OIDs only
fi
TARGET=(-v2c -t 3 -r 0 "127.0.0.1:$agent_port")
# vprojector with its SNMP front-end: its ready line names the socket once registered.
start_projector() {  # start_projector CONFIG
    local config=$1
    "$VPROJECTOR" --root "$tmp/root" --config "$config" --ascii-port 0 --jsonrpc-port 0 --unicast-port 0 \
        --pjlink-port 0 --http-port 0 --https-port 0 --agentx "$tmp/agentx" >"$tmp/vprojector.out" 2>"$tmp/vprojector.err" &
    projector_pid=$!
    pids+=("$projector_pid")
    for _ in $(seq 1 300); do
        if grep -q '^ready ' "$tmp/vprojector.out"; then
            break
        fi
        sleep 0.1
    done
    local line
    line=$(grep '^ready ' "$tmp/vprojector.out")
    json_port=$(echo "$line" | sed -n 's/.* jsonrpc=\([0-9]*\).*/\1/p')
    ascii_port=$(echo "$line" | sed -n 's/.*ascii=\([0-9]*\).*/\1/p')
    [[ "$line" == *" snmp=$tmp/agentx"* ]]
}
stop_projector() {  # and no sanitizer report from the projector or its front-ends
    kill "$projector_pid" 2>/dev/null
    wait "$projector_pid" 2>/dev/null
    ! grep -E "ERROR: (Address|Leak|UndefinedBehavior)Sanitizer|runtime error:" "$tmp/vprojector.err"
}

# Writes the shipped configuration with 2,000 integer controls added ("J00".."Q..") and
# the SNMP front-end under enterprise 64000 to the file named.
write_big_config() {
    {
        echo '{"snmp": {"enterprise": 64000, "accessLevel": 2},'
        sed -n '1,/"controls": *\[/p' "$SOURCE/config/vprojector.json" | tail -n +2
        n=0
        for first in J Q; do
            for second in 0 1 2 3 4 5 6 7 8 9 A B C D E F G H I J K L M N O P Q R S T U V W X Y Z; do
                for third in 0 1 2 3 4 5 6 7 8 9 A B C D E F G H I J K L M N O P Q R S T U V W X Y Z; do
                    [ $n -lt 2000 ] || continue
                    echo "{\"code\": \"$first$second$third\", \"type\": 200, \"min\": 0, \"max\": 100, \"default\": $((n % 100))},"
                    n=$((n + 1))
                done
            done
        done
        sed -n '/"controls": *\[/,$p' "$SOURCE/config/vprojector.json" | tail -n +2
    } >"$1"
}
