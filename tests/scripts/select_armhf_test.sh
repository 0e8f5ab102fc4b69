#!/bin/sh
# The cross build's package selection, fed canned apt records: only what the build needs
# is chosen, at the armhf index's own versions, and what cannot be met is named.
#
#   select_armhf_test.sh PATH/TO/select-armhf.awk
set -u
awk_program=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

check() {  # name expected actual
    if [ "$2" != "$3" ]; then
        printf 'FAIL %s\n--- expected\n%s\n--- got\n%s\n' "$1" "$2" "$3"
        failures=$((failures + 1))
    fi
}

# The amd64 copies have other versions (a security index the armhf side lacks); the
# development package depends on a desktop library the build does not link; libfoo1 is
# offered twice (only the candidate, the first, counts).
cat > "$work/offers" <<'OFFERS'
Package: libfoo1
Version: 2.0-1+deb12u9
Architecture: amd64
Depends: libc6 (>= 2.36)

Package: libfoo1
Version: 2.0-1
Architecture: armhf
Multi-Arch: same
Pre-Depends: libc6 (>= 2.36)
Depends: libfoo-data, libfoo-helper, libzip9 | libzip8, libqux-abi-1:any (>= 3), libgcc-s1

Package: libfoo1
Version: 1.9-1
Architecture: armhf
Depends: libold1

Package: libfoo-dev
Version: 2.0-1
Architecture: armhf
Depends: libfoo1 (= 2.0-1), libgui5

Package: libfoo-data
Version: 2.0-1
Architecture: all

Package: libfoo-helper
Version: 2.0-1
Architecture: armhf
Multi-Arch: foreign
Depends: libperl5

Package: libzip8
Version: 8.1-1
Architecture: armhf
Depends: libc6

Package: libqux3
Version: 3.2-1
Architecture: armhf
Provides: libqux-abi-1 (= 3.2)

Package: libgui5
Version: 5.0-1
Architecture: armhf
Depends: libmesa1

Package: libc6
Version: 2.36-9
Architecture: armhf
OFFERS

selected=$(awk -v dev="libfoo-dev" -v runtime="libfoo1" -v toolchain="libc6 libgcc-s1" \
    -f "$awk_program" "$work/offers" 2> "$work/errors")
check "selection" "libfoo-dev:armhf=2.0-1
libfoo1:armhf=2.0-1
libqux3:armhf=3.2-1
libzip8:armhf=8.1-1" "$selected"
check "no complaint" "" "$(cat "$work/errors")"

awk -v dev="libfoo-dev libmissing-dev" -v runtime="libfoo1 libzip9" -v toolchain="libc6" \
    -f "$awk_program" "$work/offers" > "$work/out" 2> "$work/errors"
check "refused" "1" "$?"
check "nothing printed when refused" "" "$(cat "$work/out")"
check "reasons" "select-armhf: no armhf package libmissing-dev (wanted)
select-armhf: no armhf package libzip9 (wanted)
select-armhf: nothing offered for armhf meets \"libgcc-s1\" (needed by libfoo1)" "$(cat "$work/errors")"

[ "$failures" -eq 0 ] && echo "select-armhf: all cases pass"
exit "$failures"
