# shellcheck shell=bash
# Functions that the commands share. Sourced, with $root set to the checkout.
: "${root:?}"

fail() {
    printf '%s: %s\n' "${0##*/}" "$1" >&2
    exit "${2:-1}"
}

# The version of this checkout, as CMakeLists.txt states it.
project_version() {
    sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' "$root/CMakeLists.txt"
}

# The names of the stock agent's parts that a camera needs, as snmpd's option -I takes them.
agent_parts() {
    sed '/^#/d' "$root/scripts/agent-parts" | paste -sd ,
}

# Fails for a path that exists and is not a regular file: opening a FIFO may block without a deadline. A link to a
# regular file is allowed.
check_files() {
    local file
    for file; do
        [[ ! -e $file || -f $file ]] || fail "$file is not a regular file; remove it and start again"
    done
}

check_folders() {
    local folder
    for folder; do
        [[ ! -e $folder || -d $folder ]] || fail "$folder is not a folder; remove it and start again"
    done
}

# attempt WHAT COMMAND...: runs the command; when it fails, fails with the message WHAT and the command's own reason.
attempt() {
    local what=$1 reason
    shift
    reason=$("$@" 2>&1) || fail "$what: ${reason##*: }"
}

# Fails for a name that is unfit for a camera's folder. The name appears in a bus address, an XML file and the agent's
# configuration, each with other special characters. A unix socket's address has at most 108 bytes, and the bus daemon
# accepts at most 99.
check_folder_name() {
    local socket folder
    folder=$(realpath -m "$1")
    socket=$folder/bus.sock
    [[ $1 =~ $plain_name && $folder =~ $plain_name ]] ||
        fail "a folder's name may contain only letters, digits and _ . / -: $folder"
    ((${#socket} <= 99)) ||
        fail "the state folder's name is too long for the bus's socket (${#socket} of 99 bytes): $socket"
}
readonly plain_name='^[A-Za-z0-9_./-]+$'

# own_folder DIR MARK WHAT: makes DIR, private to its owner, for a camera or a fleet. An existing folder is used only if
# it is empty or has the file MARK, so that a folder with other contents is neither made private nor filled. A start
# that was interrupted before it wrote MARK has left its lock file.
own_folder() {
    local folder=$1 mark=$2 what=$3
    # shellcheck disable=SC2010,SC2143  # any name except these two; grep -q would end ls early, by a signal
    if [[ -d $folder && ! -e $folder/$mark && $(ls -A "$folder" | grep -vx -e lock -e "$mark.new") ]]; then
        fail "$folder is not empty and is not a $what"
    fi
    attempt "cannot make the $what $folder" mkdir -p "$folder"
    attempt "cannot make the $what $folder private" chmod 700 "$folder"
    [[ -w $folder && -x $folder ]] || fail "cannot write into the $what $folder"
}

# Checks the files that a camera's processes and net-snmp's tools open in its folder, as far as they exist.
check_camera_files() {
    check_folders "$1"/{etc,sbin,snmp,v3}
    check_files "$1"/{lock,pids,ready,run.log,restart.log} "$1"/{bus,dome,agent}.{out,log} "$1"/{bus,snmpd}.conf{,.new} \
        "$1"/etc/version{,.new} "$1"/sbin/restart.sh{,.new} "$1"/v3/snmp.conf.new "$1"/{snmp,v3}/*.conf \
        "$1"/settings.{db,new}{,-wal,-shm,-journal}
    [[ ! -d $1/bus.sock ]] || fail "$1/bus.sock is a folder; remove it and start again"
}

# write_whole FILE MODE: writes standard input to FILE.new and renames it to FILE when it is complete.
write_whole() {
    attempt "cannot write $1" write_new "$1.new" "$2"
    mv "$1.new" "$1"
}
write_new() {
    rm -f "$1" && (umask 077 && cat >"$1") && chmod "$2" "$1"
}

# Installs the missing packages of the named groups. When none is missing, apt is not called.
install_packages() {
    local group name packages=() missing=() as_root=()
    command -v dpkg-query >/dev/null || fail "this requires Debian 12 (dpkg-query is missing)"
    while read -r group name; do
        [[ " $* " == *" $group "* ]] && packages+=("$name")
    done <"$root/scripts/packages.txt"
    mapfile -t missing < <(comm -23 <(printf '%s\n' "${packages[@]}" | sort) <(installed_packages | sort))
    ((${#missing[@]})) || return 0

    if ((EUID != 0)); then
        command -v sudo >/dev/null || fail "not root and no sudo; these packages are missing: ${missing[*]}"
        as_root=(sudo)
    fi
    echo "Installing ${missing[*]}"
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq || fail "apt-get update failed"
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
        >/dev/null || fail "apt-get could not install ${missing[*]}"
}

# The names of the installed packages and of the packages that they provide (for example an npm other than Debian's).
installed_packages() {
    # shellcheck disable=SC2016  # dpkg-query's own placeholders
    dpkg-query -W -f '${db:Status-Status} ${Package}, ${Provides}\n' | sed -n 's/^installed //p' |
        sed 's/([^)]*)//g' | tr -s ', ' '\n' | sed '/^$/d' | sort -u
}

# True for a build folder that was copied or moved here with its checkout. Its rules would still build the other
# folder's sources, in the other folder.
is_of_another_folder() {
    local home
    home=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$1/CMakeCache.txt" 2>/dev/null)
    [[ $home && ! $home -ef $root ]] || return 1
    echo "This checkout was copied or moved here from $home: building anew"
}

# Configures and builds a preset; further arguments go to the build. The first build, a long one, shows its progress.
# Two commands that are started at once in one checkout run one after the other.
build_preset() {
    local preset=$1 launcher=() progress=(-- --quiet)
    local -x CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1 # lets checkouts in different folders share results
    local -x CCACHE_SLOPPINESS=pch_defines,time_macros # without these it keeps nothing that uses precompiled headers
    shift
    mkdir -p "$root/build"
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    (
        flock 8
        cd "$root" || exit 1
        if [[ ! -f build/$preset/build.ninja ]] || is_of_another_folder "build/$preset"; then
            progress=()
            cmake --fresh --preset "$preset" "${launcher[@]}" >"build/$preset.configure.log" 2>&1 || {
                tail -n 30 "build/$preset.configure.log" >&2
                exit 1
            }
        fi
        cmake --build --preset "$preset" "$@" "${progress[@]}" | sed -u '/^ninja: no work to do/d'
    ) 8>"$root/build/.$preset.lock"
}
