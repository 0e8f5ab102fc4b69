#!/bin/bash
# The SNMP front-end end to end, with real parts only: Debian's snmpd as the master agent
# on a loopback port and a private AgentX socket, snmptrapd as the trap sink, the virtual
# projector with its SNMP front-end, and snmpget, snmpwalk, snmpset and snmpbulkwalk as
# the manager. Nothing needs root: high ports and files under a temporary folder.
#
#   snmp_agent_test.sh VPROJECTOR VPROJCTL SOURCE_DIR
#
# Exit status: 0 passed, 1 failed, 77 skipped (with the reason) when a tool is missing.
set -u

VPROJECTOR=$1
VPROJCTL=$2
SOURCE=$3

. "$(dirname "$0")/snmp_lab.sh"

failures=0
passes=0
check() {  # check NAME COMMAND...: one case
    local name=$1
    shift
    if "$@"; then
        echo "ok: $name"
        passes=$((passes + 1))
    else
        echo "FAILED: $name"
        failures=$((failures + 1))
    fi
}

get() { snmpget "${MIBOPTS[@]}" -Oqv -c public "${TARGET[@]}" "$@" 2>&1; }
set_() { snmpset "${MIBOPTS[@]}" -Oqv -c private "${TARGET[@]}" "$@" 2>&1; }
set_as() { local community=$1; shift; snmpset "${MIBOPTS[@]}" -c "$community" "${TARGET[@]}" "$@" 2>&1; }
rpc() { "$VPROJCTL" --jsonrpc-port "$json_port" --login service:service rpc "$@" 2>&1; }
rpc_value() { rpc control:get "{\"code\": \"$1\"}" | sed -n 's/.*"value" *: *"\{0,1\}\([^",]*\)"\{0,1\}.*/\1/p' | head -1; }

check "the ready line names the AgentX socket once registered" start_projector "$SOURCE/config/vprojector.json"
if [ -z "${json_port:-}" ]; then
    echo "vprojector did not start:"; tail -20 "$tmp/vprojector.err"; exit 1
fi

# The whole module walks, with the identity, power, lamps, status and every control.
walk=$(snmpwalk "${MIBOPTS[@]}" -c public "${TARGET[@]}" "$ENTERPRISE" 2>&1)
check "a walk of the module shows the projector's name" grep -q 'projName.0 = STRING: Virtual Projector' <<<"$walk"
for expected in 'projSerialNumber.0 = STRING: VP-000001' 'projPowerState.0 = INTEGER: standby(1)' \
    'projLampHours.1 = INTEGER' 'projStatusGroup.1 = STRING: SYST' 'projControlKind."NAM" = INTEGER: text(3)' \
    'projControlText."NAM" = STRING: Virtual Projector' 'projControlReadOnly."SER" = INTEGER: true(1)'; do
    check "a walk shows $expected" grep -qF "$expected" <<<"$walk"
done
check "a walk lists every control" [ "$(grep -c projControlKind <<<"$walk")" -ge 87 ]

# Power and input set over SNMP are seen over JSON-RPC.
check "projInput set to 2 answers 2" [ "$(set_ PROJECTOR-CONTROL-MIB::projInput.0 i 2)" = 2 ]
check "... and is seen over JSON-RPC" [ "$(rpc_value INP)" = 2 ]
set_ PROJECTOR-CONTROL-MIB::projPowerState.0 i 2 >/dev/null
check "projPowerState set to on is seen over JSON-RPC" [ "$(rpc_value POW)" = 1 ]
check "a control's value set through the control table answers it" \
    [ "$(set_ 'PROJECTOR-CONTROL-MIB::projControlValue."BRI"' i 61)" = 61 ]
check "... and is seen over JSON-RPC" [ "$(rpc_value BRI)" = 61 ]

# Refusals: by the control, by the list, a read-only control, the read-only community.
check "a name the control refuses answers inconsistentValue" \
    grep -q inconsistentValue <<<"$(set_as private PROJECTOR-CONTROL-MIB::projName.0 s forbidden)"
check "... and the name stands" [ "$(get PROJECTOR-CONTROL-MIB::projName.0)" = 'Virtual Projector' ]
check "an input the list does not hold answers wrongValue" \
    grep -q wrongValue <<<"$(set_as private PROJECTOR-CONTROL-MIB::projInput.0 i 99)"
check "a read-only control answers notWritable" \
    grep -q notWritable <<<"$(set_as private 'PROJECTOR-CONTROL-MIB::projControlText."SER"' s X)"
check "the read-only community may not set" \
    grep -q noAccess <<<"$(set_as public PROJECTOR-CONTROL-MIB::projInput.0 i 1)"
check "a control above the front-end's access level answers noAccess" \
    grep -q noAccess <<<"$(set_as private 'PROJECTOR-CONTROL-MIB::projControlValue."FAC"' i 1)"

# A change made over ASCII is seen by the next get.
"$VPROJCTL" --ascii-port "$ascii_port" ascii "(BRI 42)" >/dev/null 2>&1
sleep 0.2
check "a change over ASCII is seen by the next get" \
    [ "$(get 'PROJECTOR-CONTROL-MIB::projControlValue."BRI"')" = 42 ]

# An alarm raised and cleared through the simulator arrives as two traps within 1 s each.
wait_trap() {  # wait_trap NOTIFICATION-OID COUNT: true when COUNT such traps arrived within 1 s
    local deadline=$(($(date +%s%N) / 1000000 + 1000))
    while [ $(($(date +%s%N) / 1000000)) -le $deadline ]; do
        [ "$(grep -c "$1" "$tmp/traps.log" 2>/dev/null)" -ge "$2" ] && return 0
        sleep 0.05
    done
    return 1
}
rpc sim:setStatus '{"group": "LAMP", "idx": 1, "severity": 2, "value": "Overheated"}' >/dev/null
check "an alarm raised arrives as projAlarmRaised within 1 s" wait_trap "$ENTERPRISE.0.1" 1
check "... with the alarm's text" grep -q '"Overheated"' "$tmp/traps.log"
check "the alarm is listed" [ "$(get PROJECTOR-CONTROL-MIB::projAlarmCount.0)" = 1 ]
rpc sim:setStatus '{"group": "LAMP", "idx": 1, "severity": 0, "value": "Off"}' >/dev/null
check "the alarm cleared arrives as projAlarmCleared within 1 s" wait_trap "$ENTERPRISE.0.2" 1
set_ PROJECTOR-CONTROL-MIB::projPowerState.0 i 1 >/dev/null
check "a power change arrives as projPowerStateChanged" wait_trap "$ENTERPRISE.0.3" 1

# The master agent killed and started again: the subagent registers again.
kill "$snmpd_pid"
wait "$snmpd_pid" 2>/dev/null
check "the controller answers without a master agent" [ "$(rpc_value INP)" = 2 ]
start_snmpd
registered_again() {
    for _ in $(seq 1 100); do
        [ "$(get PROJECTOR-CONTROL-MIB::projInput.0)" = 2 ] && return 0
        sleep 0.1
    done
    return 1
}
check "after snmpd restarts the subagent registers again" registered_again
check "the projector and its front-ends stop cleanly" stop_projector

# 2,000 controls walked with snmpbulkwalk (bench/snmp_walk_bench.sh times it), under an
# enterprise number of the configuration's.
big="$tmp/big.json"
write_big_config "$big"
check "a projector of 2,087 controls starts" start_projector "$big"
rows=$(snmpbulkwalk -Cr50 -On -c public "${TARGET[@]}" .1.3.6.1.4.1.64000.1.1.5.1.3 2>&1 | grep -c INTEGER)
check "snmpbulkwalk lists every control's value" [ "$rows" -ge 2087 ]
check "the large projector and its front-ends stop cleanly" stop_projector

# A bad "snmp" member: vprojector names it and does not start.
bad="$tmp/bad.json"
{ echo '{"snmp": {"enterprise": -1},'; tail -n +2 "$SOURCE/config/vprojector.json"; } >"$bad"
"$VPROJECTOR" --root "$tmp/root" --config "$bad" >/dev/null 2>"$tmp/bad.err"
check "a bad enterprise number stops vprojector with exit status 2" [ $? -eq 2 ]
check "... and a message naming it" grep -q '"enterprise" must be' "$tmp/bad.err"

echo "$passes passed, $failures failed"
[ "$failures" -eq 0 ]
