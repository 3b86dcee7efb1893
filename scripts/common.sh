# shellcheck shell=bash
# SPDX-License-Identifier: MIT
#
# Functions that the scripts share; each script in Bash sources this file. Messages go to standard
# error, so that standard output holds only the script's result.

say() {
    printf '==> %s\n' "$*" >&2
}

die() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# usage_error TEXT: the command line is wrong.
usage_error() {
    printf 'error: %s\n' "$*" >&2
    exit 2
}

install=ask # whether missing packages are installed: ask, yes or no

# read_common_options ARGUMENT...: handles the options that all these scripts have, and stores the
# other arguments in the array `arguments`. The current folder must be the project's.
read_common_options() {
    local argument
    arguments=()
    for argument in "$@"; do
        case $argument in
            --help)
                print_help
                exit
                ;;
            --yes) install=yes ;;
            --no-install) install=no ;;
            *) arguments+=("$argument") ;;
        esac
    done
}

# print_help: prints the text at the head of the script.
print_help() {
    sed -n -e '1,3d' -e '/^#/!q' -e 's/^# \{0,1\}//p' "scripts/$(basename "$0")"
    cat <<'END'

Common options:
  --yes         install missing Debian packages without asking; the default without a terminal, or if
                the environment variable CI is set
  --no-install  install no Debian packages; if some are missing, list them and fail
  --help        print this text
END
}

# may_install LIST: asks on a terminal, unless an option or CI has decided. Standard input is left
# alone: it can be a pipe with the video.
may_install() {
    local answer=
    if [[ $install == ask && -z ${CI:-} && -t 2 ]] && { : </dev/tty; } 2>/dev/null; then
        read -rp "Install with apt-get: $1? [Y/n] " answer </dev/tty
    fi
    [[ $install != no && $answer =~ ^([Yy].*)?$ ]]
}

# have_package PACKAGE: whether Debian's package is installed.
have_package() {
    [[ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" == installed ]]
}

# as_root COMMAND...: runs the command as root, with sudo if necessary. Without a terminal, sudo fails
# instead of asking for a password.
as_root() {
    if [[ $EUID -eq 0 ]]; then
        "$@"
    elif [[ -t 2 ]]; then
        sudo "$@"
    else
        sudo -n "$@"
    fi
}

# ensure_packages WHAT...: installs the Debian packages that are missing. WHAT is a package, or
# package=command if the command is enough, from whatever source.
ensure_packages() {
    local what missing=()
    for what in "$@"; do
        if [[ $what == *=* ]]; then
            command -v "${what#*=}" >/dev/null || missing+=("${what%%=*}")
        elif command -v dpkg-query >/dev/null; then
            have_package "$what" || missing+=("$what")
        fi
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0

    local list="${missing[*]}"
    command -v apt-get >/dev/null ||
        die "missing: $list (names of Debian packages; this system has no apt-get)"
    [[ $EUID -eq 0 ]] || command -v sudo >/dev/null ||
        die "missing: $list. There is no sudo: as root, run apt-get install $list"
    may_install "$list" || die "missing: $list"
    say "Installing missing packages: $list"
    # The commands must not read standard input: it can be a pipe with the video.
    {
        as_root env DEBIAN_FRONTEND=noninteractive apt-get -q update &&
            as_root env DEBIAN_FRONTEND=noninteractive \
                apt-get -q install -y --no-install-recommends "${missing[@]}"
    } </dev/null >&2 || die "apt-get could not install $list: see its messages above"
}

# ensure_relay_packages: the packages of examples/relay. Debian starts nginx as a service when it
# installs it, and the relay needs only the program.
ensure_relay_packages() {
    local had_nginx=
    ! have_package nginx || had_nginx=1
    ensure_packages ffmpeg=ffmpeg nginx util-linux=setpriv
    if [[ -z $had_nginx && -d /run/systemd/system ]] && have_package nginx; then
        as_root systemctl --quiet disable --now nginx </dev/null >&2 || true
    fi
}

# ensure_gstreamer_packages: the packages that gst_host, its demo and its tests need.
ensure_gstreamer_packages() {
    ensure_packages pkg-config=pkg-config libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev \
        gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good \
        gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-x
}

# The cross presets are named after Debian's names of the processors.
# shellcheck disable=SC2034  # the scripts use it
readonly CROSS_PRESETS=(arm64 armhf riscv64)
declare -rA TRIPLETS=([arm64]=aarch64-linux-gnu [armhf]=arm-linux-gnueabihf
    [riscv64]=riscv64-linux-gnu)
declare -rA EMULATORS=([arm64]=qemu-aarch64-static [armhf]=qemu-arm-static
    [riscv64]=qemu-riscv64-static)

# is_cross PRESET: whether the preset builds for another processor.
is_cross() {
    [[ -v "TRIPLETS[$1]" ]]
}

# cross_packages PRESET: prints its packages for ensure_packages.
cross_packages() {
    local triplet=${TRIPLETS[$1]}
    printf '%s\n' "g++-$triplet=$triplet-g++" "qemu-user-static=${EMULATORS[$1]}"
}

# configure PRESET [ARGUMENT...]: runs CMake. The current folder must be the project's.
configure() {
    local preset=$1 options=()
    shift
    # The tests need packages: a new folder is made without them, an existing one keeps them.
    [[ -e build/$preset/CMakeCache.txt ]] || options+=(-DRTSPSERVER_BUILD_TESTS=OFF)
    say "Configuring build/$preset"
    cmake --preset "$preset" "${options[@]}" "$@" </dev/null >&2
}

# build PRESET [ARGUMENT...]
build() {
    local preset=$1
    shift
    say "Building build/$preset"
    cmake --build --preset "$preset" --parallel "$(nproc)" "$@" </dev/null >&2
}
