# shellcheck shell=bash
# shellcheck disable=SC2154  # some functions use settings of run
# Where a camera's agent listens, who may use it, and where its traps go. Sourced by run and prepare-state; both take
# the same options for it.
: "${root:?}"

# shellcheck disable=SC2034  # for those who source this file
address=127.0.0.1 community=public write_community='' user=desk allow=() trap_to=()
# shellcheck disable=SC2034
open_console='' console_names=() # run's alone

is_address() {
    local octet='(25[0-5]|2[0-4][0-9]|1[0-9][0-9]|[1-9]?[0-9])'
    [[ $1 =~ ^($octet\.){3}$octet$ ]]
}

is_loopback() {
    [[ $1 == 127.* ]]
}

# True for an IPv4 address, alone or with the length of its prefix: 192.0.2.0/24. The agent ignores a network with bits
# beyond its prefix.
is_network() {
    local a b c d length=${1#*/}
    is_address "${1%%/*}" || return
    [[ $1 == */* ]] || return 0
    [[ $length =~ ^([0-9]|[12][0-9]|3[0-2])$ ]] || return
    IFS=. read -r a b c d <<<"${1%%/*}"
    (((((a << 24) | (b << 16) | (c << 8) | d) & ((1 << (32 - length)) - 1)) == 0))
}

# Prints the Nth address from the first on; 1 is the first.
nth_address() {
    local a b c d number
    IFS=. read -r a b c d <<<"$1"
    number=$((((a << 24) | (b << 16) | (c << 8) | d) + $2 - 1))
    echo "$((number >> 24)).$((number >> 16 & 255)).$((number >> 8 & 255)).$((number & 255))"
}

# resolve OPTION HOST: prints the IPv4 address of a host name or address.
resolve() {
    local found
    if is_address "$2"; then
        echo "$2"
    else
        found=$(getent ahostsv4 -- "$2" | sed -n '1s/ .*//p')
        [[ $found ]] || fail "--$1 requires an IPv4 address or the name of one, not '$2'" 2
        echo "$found"
    fi
}

# Prints [KIND:]HOST[:PORT] as KIND:ADDRESS:PORT; the port is $2 unless given.
trap_receiver() {
    local kind=trap host=$1 port=$2 found
    if [[ $host =~ ^(trap|inform|v3|v3-inform):(.+)$ ]]; then
        kind=${BASH_REMATCH[1]} host=${BASH_REMATCH[2]}
    fi
    if [[ $host == *:* ]]; then
        port=${host##*:} host=${host%:*}
        is_port "$port" || fail "--trap-to requires a port from 1 to 65535, not '$port'" 2
    fi
    found=$(resolve trap-to "$host") || exit
    echo "$kind:$found:$port"
}

is_port() {
    [[ $1 =~ ^[1-9][0-9]{0,4}$ ]] && (($1 <= 65535))
}

# Fails for a choice that the agent's configuration cannot hold, or that would not work. Sets the default of the
# community that writes: there is none off loopback, unless it is named.
check_reach() {
    local name receiver host
    is_address "$address" || fail "--address requires an IPv4 address, not '$address'" 2
    [[ $write_community ]] || write_community=$(is_loopback "$address" && echo private || echo none)
    for name in community write_community user; do
        # A tool would take a name that begins with - for an option.
        [[ ${!name} =~ ^[A-Za-z0-9_][A-Za-z0-9_.-]{0,31}$ ]] ||
            fail "--${name//_/-} requires 1 to 32 letters, digits and _ . - (. and - not first), not '${!name}'" 2
    done
    [[ $community == none || $community != "$write_community" ]] ||
        fail "--community and --write-community are both '$community': one community cannot be two" 2
    for name in "${allow[@]}"; do
        is_network "$name" || fail "--allow requires a network such as 192.0.2.0/24, not '$name'" 2
    done
    for receiver in "${trap_to[@]}"; do
        host=${receiver#*:} host=${host%:*}
        ! is_loopback "$address" || is_loopback "$host" ||
            fail "--trap-to $host is not on this machine: choose an --address from which it can be reached" 2
    done
}

# The sources from which the communities are accepted: always the camera's own machine.
allowed_sources() {
    local machine=("$address")
    if ((${#allow[@]})); then
        [[ $address != 0.0.0.0 ]] || read -ra machine < <(hostname -I) || true
        printf '%s\n' 127.0.0.1 "${machine[@]}" "${allow[@]}" | sed '/:/d' | sort -u # without IPv6
    elif [[ $address == 127.0.0.1 ]]; then
        echo 127.0.0.1
    elif is_loopback "$address"; then
        echo 127.0.0.0/8
    else
        echo default
    fi
}

# The options that repeat these choices for another command.
reach_words() {
    local each
    printf '%s\n' --address "$address" --community "$community" --write-community "$write_community" --user "$user"
    for each in "${allow[@]}"; do printf '%s\n' --allow "$each"; done
    for each in "${trap_to[@]}"; do printf '%s\n' --trap-to "$each"; done
}

is_address_of_machine() {
    [[ $1 == 0.0.0.0 ]] || is_loopback "$1" || [[ " $(hostname -I) " == *" $1 "* ]]
}

# Fails in one line for a port that this user may not bind.
check_right_to_bind() {
    local first capabilities name bind_low_ports=$((1 << 10))
    first=$(cat /proc/sys/net/ipv4/ip_unprivileged_port_start 2>/dev/null) || first=1024
    capabilities=$(sed -n 's/^CapEff:[[:space:]]*/0x/p' /proc/self/status)
    ((capabilities & bind_low_ports)) && return
    for name in port console_port; do
        ((${!name} == 0 || ${!name} >= first)) ||
            fail "--${name//_/-} ${!name}: ports below $first require root (sysctl net.ipv4.ip_unprivileged_port_start)" 2
    done
}

# The page is open to other machines only when that was asked for.
console_address() {
    if [[ $open_console ]] || is_loopback "$address"; then echo "$address"; else echo 127.0.0.1; fi
}

# An address at which this machine reaches what listens on $1.
here() {
    [[ $1 == 0.0.0.0 ]] && echo 127.0.0.1 || echo "$1"
}

# Names the communities and the user, and what they may.
who_may() {
    local may=()
    [[ $community == none ]] || may+=("$community reads")
    [[ $write_community == none ]] || may+=("$write_community reads and writes")
    if ((${#may[@]})); then
        printf 'SNMPv2c: %s%s' "${may[0]}" "${may[1]:+, ${may[1]}}"
    else
        printf 'SNMPv3: %s reads and writes' "$user"
    fi
}

# The words by which net-snmp's tools read or write: those of a community, or else the SNMPv3 user's.
access_words() {
    local name=$community
    [[ $1 == read ]] || name=$write_community
    if [[ $name == none ]]; then
        echo "-v3 -l authPriv -u $user -a SHA -A PHRASE -x AES -X PHRASE"
    else
        echo "-v2c -c $name"
    fi
}

where_traps_go() {
    if ((${#trap_to[@]})); then
        printf '%s\n' "${trap_to[@]}" | paste -sd ' '
    else
        echo "UDP port $trap_port"
    fi
}

# Says what is reachable from other machines; nothing when that is nothing.
what_others_reach() {
    local sources communities=''
    is_loopback "$address" && return
    sources=$(allowed_sources | paste -sd ' ')
    [[ $community$write_community == nonenone ]] ||
        communities="$(who_may); accepted from: ${sources/default/anywhere}; "
    echo "Other machines can reach on $address: the agent (${communities}SNMPv3: $user reads and writes, from anywhere,
with the pass phrases in $shown_state${fleet:+/N}/v3/snmp.conf)."
    if [[ $console_port == 0 || ! $open_console ]]; then
        echo "They cannot reach the page (--open-console lets them)."
    else
        echo "They can reach the page, and all who do can steer the camera."
    fi
}
