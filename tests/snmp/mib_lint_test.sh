#!/bin/sh
# PROJECTOR-CONTROL-MIB under smilint at level 4 with the base modules it imports: clean
# means no line at all.   mib_lint_test.sh MIB_FOLDER
mibs=$1
base="$mibs/node_modules/net-snmp/lib/mibs"
command -v smilint >/dev/null || { echo "SKIP: no smilint (smitools; scripts/install-deps.sh)"; exit 77; }
[ -d "$base" ] || { echo "SKIP: no base MIB modules in $base (scripts/install-deps.sh)"; exit 77; }
out=$(SMIPATH="$mibs:$base" smilint -l 4 -s "$mibs/PROJECTOR-CONTROL-MIB.txt" 2>&1)
[ -z "$out" ] || { echo "$out"; exit 1; }
echo "PROJECTOR-CONTROL-MIB is clean at level 4"
