# Helpers that the scripts share; to be sourced by bash.

repository=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
script=$(basename "$0")

build_packages=(g++ cmake ninja-build ccache mold pkg-config
    nlohmann-json3-dev libfmt-dev libcli11-dev libutf8proc-dev libplist-dev libsodium-dev
    libxxhash-dev libsystemd-dev)
# What the tools call when they run.
runtime_packages=(e2fsprogs lsof)
test_packages=(libgtest-dev libgmock-dev
    dbus-daemon gnome-keyring libsecret-tools python3-dbusmock)

say() { printf '%s\n' "$*"; }

# Ends the script with one sentence that tells what could not be done.
fail() {
    printf '%s: %s\n' "$script" "$*" >&2
    exit 1
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        return 126
    fi
}

# Runs a command whose output matters only when it fails: then its last lines are shown and the script ends with
# the sentence given first.
quietly() {
    local sentence=$1 log status=0
    shift
    log=$(mktemp)
    "$@" >"$log" 2>&1 </dev/null || status=$?
    if [ "$status" -ne 0 ]; then
        tail -n 30 "$log" >&2
        rm -f "$log"
        fail "$sentence (status $status)."
    fi
    rm -f "$log"
}

is_installed() {
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Installs those of the packages that are missing. Does not touch the network when there are none.
install_packages() {
    local missing=() package
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        say "Not a Debian system: going on with what is installed."
        return
    fi
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    if [ "${#missing[@]}" -eq 0 ]; then
        return
    fi
    if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
        fail "these packages are missing, and installing them needs root or sudo: ${missing[*]}."
    fi
    say "Installing ${missing[*]}"
    # sudo asks for its password here, where it can be seen.
    as_root true || fail "installing packages needs root or sudo, which was refused."
    quietly "apt-get could not read the package lists; is there a network" \
        as_root apt-get -o DPkg::Lock::Timeout=120 update
    quietly "apt-get could not install ${missing[*]}" \
        as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get -o DPkg::Lock::Timeout=120 install --yes --no-install-recommends "${missing[@]}"
}

# build PRESET TARGET [CMAKE OPTIONS...]: configures and builds. Warnings are errors where the tests are built plainly:
# what an optimiser suspects besides, or another compiler, must keep nobody from using the program.
build() {
    local preset=$1 target=$2 strict=OFF
    shift 2
    [ "$preset" != debug ] || strict=ON
    command -v cmake >/dev/null || fail "cmake is not installed."
    cd "$repository" || fail "$repository cannot be entered."
    quietly "the $preset preset could not be configured" \
        cmake --preset "$preset" -DRAMDISK_WARNINGS_ARE_ERRORS="$strict" "$@"
    cmake --build --preset "$preset" --target "$target" || fail "the $preset preset could not be built."
}
