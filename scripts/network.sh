# shellcheck shell=bash
# SPDX-License-Identifier: MIT
#
# The variant network of ./scripts/test, which sources this file after common.sh.

# network [CASE...]: runs the cases in new namespaces, which the kernel removes afterwards. Where
# namespaces are not allowed, it prints the reason and succeeds.
network() {
    local isolated=(unshare --net --mount --pid --fork --kill-child --mount-proc) refusal
    local PATH=$PATH:/usr/sbin:/sbin # not in the search path of ordinary users
    [[ $EUID -eq 0 ]] || isolated+=(--user --map-root-user)
    if ! refusal=$("${isolated[@]}" true 2>&1); then
        say "Skipped: this user cannot create network namespaces here ($refusal)"
        return
    fi
    say "Playing over networks with faults"
    "${isolated[@]}" python3 tests/e2e/networks.py \
        build/release/examples/live_host "$@" </dev/null
}
