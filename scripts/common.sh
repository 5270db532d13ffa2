# shellcheck shell=bash
# What the commands share. Sourced, with $root set to the checkout.
: "${root:?}"

fail() {
    printf '%s: %s\n' "${0##*/}" "$1" >&2
    exit "${2:-1}"
}

# Installs the packages of the named groups that are missing. Without a missing one nothing is asked of apt.
install_packages() {
    local group name packages=() missing=() as_root=()
    command -v dpkg-query >/dev/null || fail "this needs Debian 12 (there is no dpkg-query here)"
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

# The names of the machine's installed packages, and of those that they stand in for (another npm than Debian's, say).
installed_packages() {
    # shellcheck disable=SC2016  # dpkg-query's own placeholders
    dpkg-query -W -f '${db:Status-Status} ${Package}, ${Provides}\n' | sed -n 's/^installed //p' |
        sed 's/([^)]*)//g' | tr -s ', ' '\n' | sed '/^$/d' | sort -u
}

# Configures and builds a preset; further arguments go to the build. The first build, a long one, shows its progress.
# Two commands started at once in one checkout take turns.
build_preset() {
    local preset=$1 launcher=() progress=(-- --quiet)
    shift
    mkdir -p "$root/build"
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    (
        flock 8
        cd "$root" || exit 1
        if [[ ! -f build/$preset/build.ninja ]]; then
            progress=()
            cmake --preset "$preset" "${launcher[@]}" >"build/$preset.configure.log" 2>&1 || {
                tail -n 30 "build/$preset.configure.log" >&2
                exit 1
            }
        fi
        cmake --build --preset "$preset" "$@" "${progress[@]}" | sed -u '/^ninja: no work to do/d'
    ) 8>"$root/build/.$preset.lock"
}
