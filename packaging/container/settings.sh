# shellcheck shell=bash
# The variables of a container with desk cameras: their checks, and what they change in a camera's folder. Sourced by
# orvex-camera. docs/containers.md describes the variables.
: "${volume:?}" "${scripts:?}"
: "${ORVEX_CAMERAS:=1}" "${ORVEX_FIRST_CAMERA:=1}" "${ORVEX_POD_NAME:=}" "${ORVEX_ADDRESS:=0.0.0.0}"
: "${ORVEX_AGENT_PORT:=1161}" "${ORVEX_CONSOLE_ADDRESS:=127.0.0.1}" "${ORVEX_CONSOLE_PORT:=8205}"
: "${ORVEX_ALLOW:=}" "${ORVEX_READ_COMMUNITY:=}" "${ORVEX_WRITE_COMMUNITY:=}" "${ORVEX_PHRASES:=}" "${ORVEX_CONFIG:=}"
: "${ORVEX_TRAP_TO:=}" "${ORVEX_TRAP_COMMUNITY:=public}"

say() {
    printf 'orvex-camera: %s\n' "$1"
}

fail() {
    say "$1"
    exit "${2:-1}"
}

# require NAME PATTERN WHAT: fails unless the variable's value matches. Values become words of configurations.
require() {
    [[ ${!1} =~ ^($2)$ ]] || fail "$1 requires $3, not '${!1}'" 2
}

check_variables() {
    local number='[1-9][0-9]{0,4}' address='[0-9]{1,3}(\.[0-9]{1,3}){3}' target='[A-Za-z0-9.-]+(:[0-9]{1,5})?' name
    local community='[A-Za-z0-9_.-]{1,32}' network="$address(/[0-9]{1,2})?" letters="1 to 32 letters, digits and _ . -"
    require ORVEX_CAMERAS '[1-9]|[1-9][0-9]|1[0-9][0-9]|200' "a number from 1 to 200"
    require ORVEX_FIRST_CAMERA "$number" "a number from 1 to 99999"
    require ORVEX_POD_NAME '|.*-[0-9]{1,3}' "a name that ends with a hyphen and the pod's ordinal, at most 999"
    require ORVEX_AGENT_PORT "$number" "a number from 1 to 65535"
    require ORVEX_CONSOLE_PORT "0|$number" "a number from 0 to 65535"
    for name in ORVEX_AGENT_PORT ORVEX_CONSOLE_PORT; do
        ((${!name} + ORVEX_CAMERAS - 1 <= 65535)) || fail "$name ${!name} leaves no room for $ORVEX_CAMERAS cameras" 2
    done
    require ORVEX_ADDRESS "$address" "an IPv4 address"
    require ORVEX_CONSOLE_ADDRESS "$address" "an IPv4 address"
    require ORVEX_ALLOW "|$network( $network)*" "IPv4 addresses and networks, blanks between"
    require ORVEX_READ_COMMUNITY "|$community" "$letters"
    require ORVEX_WRITE_COMMUNITY "|$community" "$letters"
    require ORVEX_TRAP_COMMUNITY "$community" "$letters"
    require ORVEX_TRAP_TO "|$target( $target)*" "HOST:PORT, blanks between"
    [[ ! $ORVEX_READ_COMMUNITY$ORVEX_WRITE_COMMUNITY || $ORVEX_ALLOW ]] ||
        fail "a community requires ORVEX_ALLOW, the networks that may use it (0.0.0.0/0: any)" 2
    # A file that this user cannot see would silently be a missing one.
    [[ ! $ORVEX_PHRASES || -x $(dirname "$ORVEX_PHRASES") ]] ||
        fail "ORVEX_PHRASES requires a folder that user $(id -u) may enter, for '$ORVEX_PHRASES'" 2
    [[ ! $ORVEX_CONFIG || -r $ORVEX_CONFIG ]] || fail "ORVEX_CONFIG requires a readable file, not '$ORVEX_CONFIG'" 2
    # The ordinal of a StatefulSet's pod decides which cameras it has: no two pods have the same.
    [[ ! $ORVEX_POD_NAME ]] || ORVEX_FIRST_CAMERA=$((10#${ORVEX_POD_NAME##*-} * ORVEX_CAMERAS + 1))
}

ports() {
    local last=$(($1 + ORVEX_CAMERAS - 1))
    if ((last == $1)); then echo "port $1"; else echo "ports $1 to $last"; fi
}

say_what_is_reachable() {
    local who='' page warning='' last=$((ORVEX_FIRST_CAMERA + ORVEX_CAMERAS - 1))
    say "camera $ORVEX_FIRST_CAMERA$( ((ORVEX_CAMERAS == 1)) || echo " to $last"), in $volume"
    say "SNMP on $ORVEX_ADDRESS, UDP $(ports "$ORVEX_AGENT_PORT")"
    say "SNMPv3 user desk reads and writes, authenticated and encrypted"
    if [[ $ORVEX_PHRASES && -e $ORVEX_PHRASES ]]; then
        say "its pass phrases are those of $ORVEX_PHRASES"
    else
        say "its pass phrases are generated, in $volume/N/v3/snmp.conf${ORVEX_PHRASES:+ (there is no $ORVEX_PHRASES)}"
    fi
    [[ ! $ORVEX_READ_COMMUNITY ]] || who+=" the read community reads;"
    [[ ! $ORVEX_WRITE_COMMUNITY ]] || who+=" the write community READS AND WRITES WITHOUT ENCRYPTION;"
    [[ ! $who ]] || say "for ${ORVEX_ALLOW// /, }:${who%;}"
    say "for 127.0.0.1 only: the community public reads"
    if ((ORVEX_CONSOLE_PORT)); then
        page="page on $ORVEX_CONSOLE_ADDRESS, TCP $(ports "$ORVEX_CONSOLE_PORT")"
        [[ $ORVEX_CONSOLE_ADDRESS == 127.* ]] || warning=": WHOEVER REACHES IT CONTROLS THE CAMERA"
        say "$page$warning"
    fi
}

agent_port() {
    echo $((ORVEX_AGENT_PORT + $1 - 1))
}

console_port() {
    echo $((ORVEX_CONSOLE_PORT ? ORVEX_CONSOLE_PORT + $1 - 1 : 0))
}

# write_whole FILE: writes standard input to a new file and renames it when it is complete.
write_whole() {
    (umask 077 && cat >"$1.new") && mv "$1.new" "$1"
}

# set_phrases DIR: makes those of the mounted file the camera's: the agent's, and those of the tools that read v3.
set_phrases() {
    local folder=$1 authentication privacy word='[A-Za-z0-9_.,:;!%+/=@~^*?()-]{8,64}'
    [[ $ORVEX_PHRASES && -e $ORVEX_PHRASES ]] || return 0
    [[ -r $ORVEX_PHRASES ]] || fail "user $(id -u) cannot read $ORVEX_PHRASES"
    { read -r authentication && read -r privacy; } <"$ORVEX_PHRASES" || [[ ${privacy:-} ]] ||
        fail "$ORVEX_PHRASES requires two lines, an authentication and a privacy pass phrase"
    [[ $authentication =~ ^$word$ && $privacy =~ ^$word$ ]] ||
        fail "$ORVEX_PHRASES requires pass phrases of 8 to 64 letters, digits and _ . , : ; ! % + / = @ ~ ^ * ? ( ) -"
    sed -i -e "s|^\(defAuthPassphrase\) .*|\1 $authentication|" -e "s|^\(defPrivPassphrase\) .*|\1 $privacy|" \
        "$folder/v3/snmp.conf"
    sed -i "s|^createUser desk .*|createUser desk SHA $authentication AES $privacy|" "$folder/snmpd.conf"
}

# open_agent DIR PORT: replaces the lines of the agent's configuration that keep it on loopback.
open_agent() {
    local file=$1/snmpd.conf port=$2 line network target listen=udp:$ORVEX_ADDRESS:$2
    local loopback=("agentaddress udp:127.0.0.1:$port" "com2sec writer 127.0.0.1 private")
    [[ ! $ORVEX_TRAP_TO ]] || loopback+=("[snmp] clientaddr 127.0.0.1" "trap2sink 127.0.0.1:1162 public")
    for line in "${loopback[@]}"; do
        grep -qxF "$line" "$file" || fail "$file has no line '$line': settings.sh and prepare-state disagree"
    done
    # The health check asks on loopback.
    [[ $ORVEX_ADDRESS == 0.0.0.0 || $ORVEX_ADDRESS == 127.0.0.1 ]] || listen=udp:127.0.0.1:$port,$listen
    {
        grep -vxF -f <(printf '%s\n' "${loopback[@]}") "$file"
        echo "agentaddress $listen"
        for network in $ORVEX_ALLOW; do
            [[ $network != 0.0.0.0/0 ]] || network=default
            [[ ! $ORVEX_READ_COMMUNITY ]] || echo "com2sec reader $network $ORVEX_READ_COMMUNITY"
            [[ ! $ORVEX_WRITE_COMMUNITY ]] || echo "com2sec writer $network $ORVEX_WRITE_COMMUNITY"
        done
        for target in $ORVEX_TRAP_TO; do echo "trap2sink $target $ORVEX_TRAP_COMMUNITY"; done
    } | write_whole "$file"
}

# prepare_camera N: fills folder N of the volume as the desk's units do; a new camera gets its serial number.
prepare_camera() {
    local n=$1 folder=$volume/$1 new
    new=$([[ -e $folder/settings.db ]] || echo yes)
    AGENT_PORT=$(agent_port "$n") CONSOLE_PORT=$(console_port "$n") TRAP_PORT=1162 \
        "$scripts/prepare-instance" "$n" "$folder"
    [[ ! $new ]] || tavos-settings --store "$folder/settings.db" \
        set "[Device/ReadOnly]SerialNumber" "$(printf 'OD20-%06d' $((ORVEX_FIRST_CAMERA + n - 1)))"
    set_phrases "$folder"
    open_agent "$folder" "$(agent_port "$n")"
    rm -f "$folder/bus.sock" "$folder/trace.sock" # a killed container's
}
