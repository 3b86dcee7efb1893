# shellcheck shell=bash
# SPDX-License-Identifier: MIT
#
# What the scripts share; they source it. Messages go to standard error, so that a script's standard
# output is only what it is for.

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

# have_package PACKAGE: whether Debian's package is installed.
have_package() {
    [[ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" == installed ]]
}

# as_root COMMAND...: runs it as root, through sudo where needed. It must not ask for a password
# when nobody is there to type one.
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
# package=command where any such command will do, wherever it came from.
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
        die "missing: $list (names of Debian packages; there is no apt-get here to install them)"
    [[ $EUID -eq 0 ]] || command -v sudo >/dev/null ||
        die "missing: $list. Run this as root, or have it done: apt-get install $list"
    say "Installing what is missing: $list"
    # Nothing here may read standard input: it can be a pipe that belongs to somebody else.
    {
        as_root env DEBIAN_FRONTEND=noninteractive apt-get -q update &&
            as_root env DEBIAN_FRONTEND=noninteractive \
                apt-get -q install -y --no-install-recommends "${missing[@]}"
    } </dev/null >&2 || die "apt-get could not install: $list. Its messages above say why."
}

# ensure_relay_packages: what examples/relay needs. Debian starts a web server when nginx is
# installed; only its program is needed here.
ensure_relay_packages() {
    local had_nginx=
    ! have_package nginx || had_nginx=1
    ensure_packages ffmpeg=ffmpeg nginx util-linux=setpriv
    if [[ -z $had_nginx && -d /run/systemd/system ]] && have_package nginx; then
        as_root systemctl --quiet disable --now nginx </dev/null >&2 || true
    fi
}

# ensure_gstreamer_packages: what gst_host is built with, and what its demo and its tests play.
ensure_gstreamer_packages() {
    ensure_packages pkg-config=pkg-config libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev \
        gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good \
        gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-x
}

# The processors that the cross presets build for, under Debian's names of them.
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

# cross_packages PRESET: prints what ensure_packages needs for it.
cross_packages() {
    local triplet=${TRIPLETS[$1]}
    printf '%s\n' "g++-$triplet=$triplet-g++" "qemu-user-static=${EMULATORS[$1]}"
}

# configure PRESET [ARGUMENT...]: runs CMake in the project's folder, which must be the current one.
configure() {
    local preset=$1
    shift
    say "Configuring build/$preset"
    cmake --preset "$preset" "$@" </dev/null >&2
}

# build PRESET [ARGUMENT...]
build() {
    local preset=$1
    shift
    say "Building build/$preset"
    cmake --build --preset "$preset" --parallel "$(nproc)" "$@" </dev/null >&2
}
