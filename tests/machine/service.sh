# What the cases share: the service put into a known state, what is seen of it, and the run of a table of cases.

log=/var/log/brumecpd
unit=/etc/systemd/system/brumecpd.service
scripted=/etc/brumecpd/scripted.json
three_starts=$'[Unit]\nStartLimitBurst=3\n[Service]\nRestartSec=1'

# --- a known state ------------------------------------------------------------------------------------------

options() { echo "BRUMECPD_OPTIONS=\"$*\"" >/etc/default/brumecpd; }
# The text on stdin, as a drop-in of the unit; a later one counts.
drop_in() {
    mkdir -p "$unit.d"
    cat >"$unit.d/z$(find "$unit.d" -type f | wc -l).conf"
    systemctl daemon-reload
}
start() {
    options "$@"
    systemctl start brumecpd
    eventually brumectl ping
}
start_in_vain() {
    options "$@"
    systemctl start brumecpd || true
    eventually setting_is ActiveState failed
}
crash_once() {
    start -a
    kill_server SEGV
    eventually evidence_has 1 cvdump.json
}
# An engine that does what the given lines say.
scripted() {
    echo "$1" >/run/script
    drop_in <<<$'[Service]\nEnvironment=TEST_ENGINE_SCRIPT=/run/script'
    cat >"$scripted" <<JSON
[{"jsonrpc":"2.0","id":1,"method":"load","params":{"path":"$here/engine"}},
 {"jsonrpc":"2.0","id":2,"method":"activate","params":{"resources":{"max_flows":10}}}]
JSON
}
# The shipped example, and an engine for it.
kernel_mode() {
    install -D -m 644 "/usr/share/doc/brumecpd/examples/kernel-mode.conf" "$unit.d/kernel-mode.conf"
    install -m 644 "$here/engine/libcvcp_u.so" /usr/lib/brumecpd/lib/libcvcp_k.so
    install -m 644 "$here/cvdp.ko" /usr/lib/brumecpd/modules/
    systemctl daemon-reload
}
module_is_in() { grep "^cvdp " /proc/modules; }
late_interface() {
    mkdir -p "$unit.d"
    sed 's/eth1/late0/g' /usr/share/doc/brumecpd/examples/late-interface.conf >"$unit.d/late.conf"
    options -a --attach late0
    systemctl daemon-reload
    systemctl reenable brumecpd
}
add_interface() {
    ip link add late0 type dummy
    ip link set late0 up
}
reset_service() {
    [ -e /lib/systemd/system/brumecpd.service ] || return 0
    systemctl stop brumecpd
    ip link del late0 2>/dev/null
    rmmod cvdp stranger 2>/dev/null
    rm -rf "$unit.d" "$log"/cvevents/* /run/script /run/cvdp-is-slow /etc/brumecpd/*.json \
        /usr/lib/brumecpd/lib/libcvcp_k.so /usr/lib/brumecpd/modules/cvdp.ko
    systemctl daemon-reload
    systemctl reenable brumecpd
    systemctl reset-failed brumecpd
    options -a
} >/dev/null 2>&1

# --- what is seen -------------------------------------------------------------------------------------------

fail() {
    echo "FAILURE: $*"
    exit 1
}
equal() { [ "$1" = "$2" ] || fail "$3: '$1' instead of '$2'"; }
# The command fails with the text.
refused() {
    local text=$1 output
    shift
    output=$("$@" 2>&1) && fail "not refused: $*"
    grep -F -- "$text" <<<"$output" || fail "'$output' instead of '$text'"
}
# The emulated machine is slow.
eventually() {
    local end=$((SECONDS + ${deadline:-180}))
    until ("$@") >/dev/null 2>&1; do
        [ $SECONDS -lt $end ] || fail "never came true: $*"
        sleep 0.3
    done
}
setting() { systemctl show -P "$1" brumecpd; }
setting_is() { [ "$(setting "$1")" = "$2" ]; }
restarted() { [ "$(setting NRestarts)" -eq "$1" ] || fail "restarted $(setting NRestarts) times instead of $1"; }
server_pid() { pgrep -P "$(setting MainPID)" -x brumecpd; }
kill_server() { kill "-$1" "$(server_pid)" || fail "there is no server"; }
another_server_than() { [ -n "$(server_pid)" ] && [ "$(server_pid)" != "$1" ] && brumectl ping; }
state_is() { brumectl --json status | tr -d '\n' | grep "\"state\": *\"$1\""; }
journal() { journalctl -u brumecpd -o cat --since "@$began"; }
logged() { journal | grep -- "$1" || fail "not in the journal: $1"; }
# So many folders of evidence have this file.
evidence_has() { [ "$(find "$log"/cvevents/*/ -name "$2" 2>/dev/null | wc -l)" -eq "$1" ]; }

# --- the run ------------------------------------------------------------------------------------------------

wanted() {
    local word
    [ -z "$words" ] || [ "$1" = the_packages_install_and_start_the_service ] || {
        for word in $words; do [[ $1 == *$word* ]] && return 0; done
        return 1
    }
}
try_all() {
    local name passed=0 failed=0 output=$here/output began words
    words=$(cat "$here/words" 2>/dev/null)
    for name in $(sed -n 's/^\([a-z_0-9]*\)() {$/\1/p' "$here/cases"); do
        wanted "$name" || continue
        reset_service
        began=$(date +%s)
        (set -e && "$name") >"$output" 2>&1
        # shellcheck disable=SC2181 # in a condition the case wouldn't end at what fails
        if [ $? -eq 0 ]; then
            passed=$((passed + 1))
            echo "ok $name"
        else
            failed=$((failed + 1))
            echo "FAILED $name: $(grep -m 1 '^FAILURE: ' "$output" || tail -1 "$output")"
            { tail -30 "$output"; systemctl status brumecpd --no-pager -n 0; journal | tail -40; } 2>&1 | sed 's/^/    /'
        fi
    done
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}
