# shellcheck shell=bash
# Several desk cameras under one supervising run. Sourced by run, whose functions and settings it uses. Camera N uses
# the folder N inside the fleet's folder and the Nth of the consecutive ports.
: "${root:?}" "${state:?}" "${build:?}" "${port:?}" "${trap_port:?}" "${console_port:?}" "${fleet?}" "${config?}"

console_port_of() {
    ((console_port == 0)) && echo 0 || echo $((console_port + $1 - 1))
}

check_fleet_files() {
    local n
    check_files "$state"/{lock,pids,ready,run.log,fleet{,.new}}
    for ((n = 1; n <= fleet; n++)); do
        check_folders "$state/$n"
        check_camera_files "$state/$n"
    done
}

# Makes a folder for each camera; a new folder gets its own serial number.
prepare_fleet() {
    local n
    [[ ! -e $state/lock ]] || take_lock
    own_folder "$state" fleet "fleet's folder"
    take_lock
    state=$(realpath "$state")
    write_whole "$state/fleet" 644 <<<"$fleet"
    for ((n = 1; n <= fleet; n++)); do (prepare_fleet_camera "$n") || exit 1; done
}

# Runs in a subshell, whose end releases the camera's lock.
prepare_fleet_camera() {
    local n=$1 new
    state=$state/$n port=$((port + n - 1)) console_port=$(console_port_of "$n")
    new=$([[ -e $state/settings.db ]] || echo yes)
    prepare_camera
    [[ ! $new ]] || "$build/bin/tavos-settings" --store "$state/settings.db" \
        set "[Device/ReadOnly]SerialNumber" "$(printf 'OD20-%06d' "$n")"
}

declare -A fleet_pids=() # by the camera's number

start_fleet_camera() {
    local n=$1 camera=$state/$1
    (
        exec 9>>"$camera/lock"
        flock -n 9 || fail "a camera runs in $camera already"
        exec setsid setpriv --pdeathsig TERM "$root/run" --supervise --state "$camera" --port $((port + n - 1)) \
            --trap-port "$trap_port" --console-port "$(console_port_of "$n")" ${config:+--config "$config"}
    ) </dev/null >"$camera/run.log" 2>&1 &
    fleet_pids[$n]=$!
}

await_fleet_camera() {
    local n=$1 deadline=$(($(now) + 6000))
    until [[ -f $state/$n/ready ]]; do
        if [[ ! $(started_at "${fleet_pids[$n]}") ]]; then
            cat "$state/$n/run.log" >&2
            fail "camera $n does not start"
        fi
        (($(now) < deadline)) || fail "camera $n is not ready after 60 seconds; see the logs in $state/$n"
        sleep 0.05
    done
}

start_fleet() {
    local n first at_once=4
    rm -f "$state/ready" "$state/pids"
    note_process run $$
    for ((first = 1; first <= fleet; first += at_once)); do
        for ((n = first; n < first + at_once && n <= fleet; n++)); do
            rm -f "$state/$n/ready"
            start_fleet_camera "$n"
        done
        for ((n = first; n < first + at_once && n <= fleet; n++)); do await_fleet_camera "$n"; done
    done
    printf 'port=%s\ntrap_port=%s\nconsole_port=%s\nfleet=%s\n' "$port" "$trap_port" "$console_port" "$fleet" \
        >"$state/ready"
}

# Returns when the last camera has ended; reports each camera that ends by itself.
watch_fleet() {
    local ended n
    while ((${#fleet_pids[@]})); do
        wait -n -p ended "${fleet_pids[@]}" || true
        for n in "${!fleet_pids[@]}"; do
            [[ ${fleet_pids[$n]} == "${ended:-}" ]] || continue
            unset "fleet_pids[$n]"
            echo "${0##*/}: camera $n has ended; see $state/$n/run.log" >&2
        done
    done
}

end_fleet() {
    local pid
    for pid in "${fleet_pids[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
    for pid in "${fleet_pids[@]}"; do wait "$pid" || true; done
    rm -f "$state/pids" "$state/ready"
}

what_next_of_fleet() {
    cat <<END
$fleet desk cameras answer on 127.0.0.1, ports $port to $((port + fleet - 1)) (SNMPv2c: public reads, private reads and
writes); their traps go to UDP port $trap_port. Try, in another shell:

  for p in \$(seq $port $((port + fleet - 1))); do snmpget -v2c -c public -On 127.0.0.1:\$p 1.3.6.1.2.1.1.3.0; done
  $(shown "$build/bin/domectl") --state $shown_state/1 state    # the first of them

$([[ $console_port == 0 ]] || echo "Watch them at http://127.0.0.1:$console_port to :$((console_port + fleet - 1))")
Logs: in $shown_state/1 to $shown_state/$fleet.
END
}
