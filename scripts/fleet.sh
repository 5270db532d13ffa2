# shellcheck shell=bash
# shellcheck disable=SC2154  # shown_state is set after this file is sourced
# Several desk cameras under one supervising run. Sourced by run, whose functions and settings it uses. Camera N uses
# the folder N inside the fleet's folder, and the Nth of the consecutive ports or addresses.
: "${root:?}" "${state:?}" "${build:?}" "${port:?}" "${trap_port:?}" "${console_port:?}" "${fleet?}" "${config?}"
: "${address:?}" "${first_address?}" "${chosen_trap_port?}" "${open_console?}"

address_of() {
    [[ $first_address ]] && nth_address "$first_address" "$1" || echo "$address"
}

port_of() {
    [[ $first_address ]] && echo "$port" || echo $((port + $1 - 1))
}

console_port_of() {
    ((console_port == 0)) || pages_share_a_port && echo "$console_port" || echo $((console_port + $1 - 1))
}

# True when each camera's page has an address of its own.
pages_share_a_port() {
    [[ $first_address && $(console_address) == "$address" ]]
}

# Checks the choices for a fleet; chooses the traps' port unless it is given.
check_fleet() {
    local last watches number
    [[ $fleet =~ ^[1-9][0-9]{0,3}$ ]] || bad_usage "--fleet requires a number from 1 to 9999, not '$fleet'"
    for number in "${!configs[@]}"; do
        ((number <= fleet)) || bad_usage "--config $number=${configs[$number]}: there are only $fleet cameras"
    done
    [[ $first_address ]] || ((port + fleet - 1 <= 65535)) || bad_usage "--port $port leaves no room for $fleet cameras"
    pages_share_a_port || ((console_port + fleet - 1 <= 65535)) ||
        bad_usage "--console-port $console_port leaves no room for $fleet cameras"
    watches=$(cat /proc/sys/fs/inotify/max_user_instances 2>/dev/null) || watches=$((2 * fleet))
    ((2 * fleet <= watches)) ||
        echo "${0##*/}: fs.inotify.max_user_instances is $watches, and each camera uses 2: the others look for changed" \
            "settings once a second (sysctl -w fs.inotify.max_user_instances=$((2 * fleet + 128)))" >&2
    # Many cameras share the machine's memory: the trace of each keeps less of the past than one camera's.
    export ORVEX_TRACE_KIB=${ORVEX_TRACE_KIB:-512}
    if [[ $first_address ]]; then
        last=$(nth_address "$first_address" "$fleet")
        for last in "$first_address" "$last"; do
            if ! is_address "$last" || ! is_address_of_machine "$last"; then
                bad_usage "--first-address $first_address: $last is not an address of this machine"
            fi
        done
        return
    fi
    [[ $chosen_trap_port ]] || trap_port=$((port + fleet <= 65535 ? port + fleet : port - 1))
    # An agent's port would get the traps, and no receiver could bind it.
    ((trap_port < port || trap_port >= port + fleet)) ||
        bad_usage "--trap-port $trap_port is the port of one of the agents"
}

check_fleet_files() {
    local n
    check_files "$state"/{lock,pids,ready,run.log,fleet{,.new},progress{,.new}}
    for ((n = 1; n <= fleet; n++)); do
        check_folders "$state/$n"
        check_camera_files "$state/$n"
    done
}

readonly at_once=8 # cameras that are prepared, or started, at the same time

# Makes a folder for each camera.
prepare_fleet() {
    local n
    [[ ! -e $state/lock ]] || take_lock
    own_folder "$state" fleet "fleet's folder"
    take_lock
    state=$(realpath "$state")
    write_whole "$state/fleet" 644 <<<"$fleet"
    for ((n = 1; n <= fleet; n++)); do
        ((n <= at_once)) || wait -n || prepare_no_more
        (prepare_fleet_camera "$n") &
        ((n % 100)) || echo "preparing camera $n of $fleet" >&2
    done
    for ((n = 1; n <= at_once && n <= fleet; n++)); do wait -n || prepare_no_more; done
}

# One camera cannot be prepared, and has said why.
prepare_no_more() {
    wait
    exit 1
}

# Runs in a subshell, whose end releases the camera's lock.
prepare_fleet_camera() {
    local n=$1 serial
    use_settings_of "$n"
    # shellcheck disable=SC2034  # prepare_camera uses it
    serial=$(printf 'OD20-%06d' "$n") # of a new folder
    prepare_camera
}

# Makes the settings of camera N this shell's.
use_settings_of() {
    local n=$1 port_of_n address_of_n console_port_of_n
    port_of_n=$(port_of "$n") address_of_n=$(address_of "$n") console_port_of_n=$(console_port_of "$n")
    config=${configs[$n]:-$config}
    state=$state/$n port=$port_of_n address=$address_of_n console_port=$console_port_of_n
}

# Prints how many cameras the fleet in the state folder has; fails when there is no fleet.
fleet_size() {
    local count=''
    [[ -f $state/fleet ]] || return
    read -r count <"$state/fleet" || true
    [[ $count =~ ^[1-9][0-9]{0,3}$ ]] && echo "$count"
}

declare -A fleet_pids=() # by the camera's number

start_fleet_camera() {
    local n=$1 camera=$state/$1
    rm -f "$camera/ready" "$camera/restart"
    (
        exec 9>>"$camera/lock"
        flock -n 9 || fail "a camera runs in $camera already"
        use_settings_of "$n"
        mapfile -t reach < <(reach_words)
        exec setsid setpriv --pdeathsig TERM "$root/run" --supervise --state "$state" --port "$port" \
            --trap-port "$trap_port" --console-port "$console_port" "${reach[@]}" ${open_console:+--open-console} \
            "${console_names[@]/#/--console-name=}" ${config:+--config "$config"}
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
    echo "$n" >"$state/progress.new" && mv "$state/progress.new" "$state/progress"
    [[ $mode == supervise ]] || show_progress
}

start_fleet() {
    local n
    trap : USR1 # restart_of_fleet sends it; it ends the wait of watch_fleet
    rm -f "$state/ready" "$state/pids" "$state/progress"
    note_process run $$
    for ((n = 1; n < fleet + at_once; n++)); do
        ((n > fleet)) || start_fleet_camera "$n"
        ((n < at_once)) || await_fleet_camera $((n - at_once + 1))
    done
    printf 'port=%s\ntrap_port=%s\nconsole_port=%s\nfleet=%s\n' "$port" "$trap_port" "$console_port" "$fleet" \
        >"$state/ready"
}

# Says on standard error how many cameras answer: at most once a second, and only when it takes longer.
show_progress() {
    local seconds=$(($(now) / 100)) count
    ((seconds > last_progress)) || return 0
    ((last_progress)) && count=$(cat "$state/progress" 2>/dev/null) && echo "$count of $fleet cameras answer" >&2
    last_progress=$seconds
}
last_progress=0

# A camera whose folder has the empty file restart is started again, from new settings. The file is not empty when that
# has failed.
restart_cameras() {
    local n camera
    for ((n = 1; n <= fleet; n++)); do
        camera=$state/$n
        [[ -f $camera/restart && ! -s $camera/restart && ! ${fleet_pids[$n]:-} ]] || continue
        if (prepare_fleet_camera "$n"); then start_fleet_camera "$n"; else echo failed >"$camera/restart"; fi
    done
}

# Restarts the Nth camera of the running fleet; returns when it answers.
restart_of_fleet() {
    local n=$1 camera=$state/$1 cameras supervisor before tries
    cameras=$(fleet_size) || fail "there is no fleet in $state"
    [[ $n =~ ^[1-9][0-9]{0,3}$ && -d $camera && n -le cameras ]] || fail "$state has no camera '$n'"
    state=$(realpath "$state") camera=$(realpath "$camera")
    supervisor=$(noted_pid run)
    [[ $supervisor ]] || fail "no fleet runs in $state"
    # A camera that ends before it has answered once ends the fleet.
    [[ -f $state/ready ]] || fail "the fleet in $state still starts; restart camera $n when all answer"
    check_files "$camera/restart"
    before=$(camera_supervisor "$camera")
    : >"$camera/restart"
    [[ ! $before ]] || kill -TERM "$before" 2>/dev/null || true
    for ((tries = 0; tries < 1200; tries++)); do
        if [[ -s $camera/restart ]]; then break; fi
        [[ ! -e $camera/restart ]] || kill -USR1 "$supervisor" 2>/dev/null || break
        [[ -e $camera/restart || ! -f $camera/ready || $(camera_supervisor "$camera") == "$before" ]] || return 0
        sleep 0.05
    done
    rm -f "$camera/restart"
    [[ $(started_at "$supervisor") ]] || fail "the fleet in $state has ended"
    fail "camera $n does not start; see $state/run.log and the logs in $camera"
}

camera_supervisor() {
    local state=$1
    noted_pid run
}

# Returns when the last camera has ended; reports each camera that ends by itself.
watch_fleet() {
    local ended n
    while ((${#fleet_pids[@]})); do
        ended=
        wait -n -p ended "${fleet_pids[@]}" || true
        for n in "${!fleet_pids[@]}"; do
            # When a signal ends the wait, bash may forget that a process has ended meanwhile.
            [[ ${fleet_pids[$n]} == "${ended:-}" ]] || ! kill -0 "${fleet_pids[$n]}" 2>/dev/null || continue
            unset "fleet_pids[$n]"
            [[ -f $state/$n/restart ]] || echo "${0##*/}: camera $n has ended; see $state/$n/run.log" >&2
        done
        restart_cameras
    done
}

end_fleet() {
    local pid
    for pid in "${fleet_pids[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
    for pid in "${fleet_pids[@]}"; do wait "$pid" || true; done
    rm -f "$state/pids" "$state/ready"
}

what_next_of_fleet() {
    local last_port on each host n
    last_port=$(port_of "$fleet")
    on="on $address, ports $port to $last_port" each="for p in \$(seq $port $last_port)" host=$(here "$address"):\$p
    if [[ $first_address ]]; then
        on="on $first_address to $(address_of "$fleet"), port $port" host="\$a:$port"
        each="for a in $(for n in 1 2 3; do ((n > fleet)) || address_of "$n"; done | paste -sd ' ')"
    fi
    cat <<END
$fleet desk cameras answer $on ($(who_may));
their traps go to $(where_traps_go). Try, in another shell:

  $each; do snmpget $(access_words read) -On $host 1.3.6.1.2.1.1.3.0; done
  $(shown "$build/bin/domectl") --state $shown_state/1 state    # the first of them

$(where_pages_are)
Logs: in $shown_state/1 to $shown_state/$fleet.
$(what_others_reach)
END
}

where_pages_are() {
    ((console_port)) || return 0
    if pages_share_a_port; then
        echo "Watch them at http://$first_address:$console_port to http://$(address_of "$fleet"):$console_port"
    else
        echo "Watch them at http://$(here "$(console_address)"):$console_port to :$(console_port_of "$fleet")"
    fi
}
