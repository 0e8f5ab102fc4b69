# Sourced by the benchmark scripts that run a virtual projector, from the project root:
#   lab_name=NAME; . bench/vprojector_lab.sh
# gives a temporary folder $work (removed at exit, with the projector whose pid is in $pid
# stopped first) and wait_ready.

work="$(mktemp -d "${TMPDIR:-/tmp}/$lab_name-XXXXXX")"
pid=""
cleanup() {
    if [ -n "$pid" ]; then
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# wait_ready OUT ERR SECONDS: waits until the projector ($pid) has written its ready line
# to the file OUT; exits, showing the file ERR, when it ends or SECONDS pass first.
wait_ready() {
    tries=0
    until grep -q '^ready ' "$1"; do
        if ! kill -0 "$pid" 2>/dev/null || [ "$tries" -ge $(($3 * 10)) ]; then
            echo "vprojector did not get ready:" >&2
            cat "$2" >&2
            exit 1
        fi
        tries=$((tries + 1))
        sleep 0.1
    done
}
