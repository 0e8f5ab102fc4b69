#!/bin/bash
# SNMP: a bulk walk of the control table of a projector with 2,087 controls (the shipped
# configuration and 2,000 integer controls added) through snmpd and the AgentX subagent,
# beside bulk walks that snmpd answers alone, in the same run against the same snmpd: its
# system group (a few dozen rows: the walk's fixed cost, the tool's start and a round
# trip) and all of its MIB-2 (thousands of rows). Each walk is made kRuns times and the
# median taken. The RATIO is a row of ours against a row of MIB-2: what the subagent's
# AgentX exchange adds per row.
#
# It builds nothing: scripts/bench.sh builds build-bench first.
#   bench/snmp_walk_bench.sh [BUILD_DIR]          (default: build-bench)
set -u
cd "$(dirname "$0")/.."

build="${1:-build-bench}"
VPROJECTOR="$build/bin/vprojector"
SOURCE="$(pwd)"
kRuns=7
if [ ! -x "$VPROJECTOR" ]; then
    echo "no $VPROJECTOR: build it first" >&2
    exit 1
fi
. tests/snmp/snmp_lab.sh

write_big_config "$tmp/big.json"
if ! start_projector "$tmp/big.json"; then
    echo "the projector did not register with snmpd:" >&2
    tail -20 "$tmp/vprojector.err" >&2
    exit 1
fi

# "<median microseconds of a walk> <rows>" of kRuns bulk walks of the subtree given.
walk_us() {
    local times=() start end rows=0
    for _ in $(seq 1 "$kRuns"); do
        start=$(date +%s%N)
        rows=$(snmpbulkwalk -Cr50 -On -c public "${TARGET[@]}" "$1" 2>/dev/null | grep -c .)
        end=$(date +%s%N)
        [ "$rows" -gt 0 ] || { echo "no rows under $1" >&2; exit 1; }
        times+=($(((end - start) / 1000)))
    done
    echo "$(printf '%s\n' "${times[@]}" | sort -n | sed -n "$(((kRuns + 1) / 2))p") $rows"
}
read -r ours ourRows <<<"$(walk_us .1.3.6.1.4.1.64000.1.1.5.1.3)"
read -r system systemRows <<<"$(walk_us .1.3.6.1.2.1.1)"
read -r mib2 mib2Rows <<<"$(walk_us .1.3.6.1.2.1)"
stop_projector >/dev/null
report() {  # report NAME MICROSECONDS ROWS
    awk -v n="$1" -v t="$2" -v r="$3" 'BEGIN { printf "%-40s %6d rows %9.1f ms %7.1f us per row\n", n, r, t / 1000, t / r }'
}
report "projControlValue (through AgentX)" "$ours" "$ourRows"
report "snmpd's system group" "$system" "$systemRows"
report "snmpd's MIB-2" "$mib2" "$mib2Rows"
awk -v a="$ours" -v ar="$ourRows" -v b="$mib2" -v br="$mib2Rows" \
    'BEGIN { printf "RATIO projControlValue row / MIB-2 row = %.3f\n", (a / ar) / (b / br) }'
