#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plays what the example host serves through networks with faults, with ffmpeg over UDP and
interleaved at once, and compares every decoded frame with the source.
Usage: networks.py live_host [case...]

The host and each viewer run in a network namespace of their own. Link N is a pair of virtual Ethernet
devices: linkN of the host has the address 198.18.N.1, and eth0 of viewerN has 198.18.N.2.
scripts/network.sh starts this program in new network, mount and process namespaces. The kernel
removes everything in them when the program ends, even if it is killed."""

import contextlib
import functools
import os
import re
import signal
import sys
import tempfile
import time

from playback import (CLIP, FFMPEG, GOP, SOUND, SOURCE, Host, Player, Process, Skipped, check,
                      check_recording, output_of, run_test, source_frames, started, wait_until)

TRANSPORTS = ("udp", "tcp")
CASE_TIME_LIMIT = 40  # seconds
OUTAGE = 5  # seconds
FAST_CLIP = "/run/fast.h264"
TOO_SLOW = "client too slow"
LEFT = "client closed the connection"

# For a command that needs an optional part of the kernel.
require = functools.partial(output_of, error=Skipped)
frames_of = functools.cache(source_frames)


def inside(namespace, *command):
    return ("ip", "netns", "exec", namespace, *command)


def make_fast_clip():
    """4 Mbit/s: when a link is slow or down, this fills all buffers within two seconds."""
    output_of(*FFMPEG, "-f", "lavfi", "-i",
              "testsrc2=size=640x360:rate=25:duration=4,noise=alls=40:allf=t", "-pix_fmt", "yuv420p",
              "-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-b:v", "4M", "-maxrate", "4M",
              "-bufsize", "800k", "-x264-params",
              f"keyint={GOP}:min-keyint={GOP}:scenecut=0:open-gop=0:nal-hrd=cbr:filler=0",
              FAST_CLIP)


def add_address(namespace, device, address):
    output_of("ip", "-n", namespace, "address", "add", f"{address}/24", "dev", device)


class Lab:
    """The links of one case, the host, and the players."""

    def __init__(self, program):
        self.program = program
        self.host = self.video = self.sound = None
        output_of("ip", "-all", "netns", "delete")
        output_of("ip", "netns", "add", "server")
        output_of("ip", "-n", "server", "link", "set", "lo", "up")
        for link in (1, 2, 3):
            viewer, device = f"viewer{link}", f"link{link}"
            output_of("ip", "netns", "add", viewer)
            require("ip", "link", "add", device, "netns", "server", "type", "veth",
                    "peer", "name", "eth0", "netns", viewer)
            for namespace, name, end in (("server", device, 1), (viewer, "eth0", 2)):
                add_address(namespace, name, f"198.18.{link}.{end}")
                output_of("ip", "-n", namespace, "link", "set", name, "up")

    def serve(self, *arguments, fast=False):
        """Serves the project's clip with its sound, or video of 4 Mbit/s without sound."""
        self.video = FAST_CLIP if fast else CLIP
        self.sound = None if fast else SOUND
        self.host = Host(inside("server", self.program), "--video", self.video,
                         *(["--audio", self.sound] if self.sound else []), *arguments)

    def play(self, link, seconds=60, transports=TRANSPORTS, address=None):
        """Starts players. `complete` compares what they record."""
        url = self.host.url(address=address or f"198.18.{link}.1")
        return [Player(url, transport, seconds, inside(f"viewer{link}"))
                for transport in transports]

    def complete(self, players):
        for player in players:
            # The recording of a viewer who joins between two key frames starts at the next one.
            least = (player.seconds - 1) * GOP - 5
            check_recording(player, frames_of(self.video), least, self.sound)

    def wait_for_viewers(self):
        """Waits until the host has reported a viewer for every player."""
        players = sum(isinstance(process, Player) for process in started)
        wait_until(lambda: self.host.output().count(" watches ") >= players, 10, "all viewers play")

    def wait_for_end(self, link, transport, reason):
        """Waits until the host has reported this reason for the viewer's end."""
        over = "UDP" if transport == "udp" else "the RTSP connection"
        report = (rf"^(198\.18\.{link}\.2:\d+) watches \S+ over {over}$"
                  rf"(.|\n)*^\1 ended after \S+ s: {reason} \(")
        wait_until(lambda: re.search(report, self.host.output(), re.MULTILINE), 15,
                   f"viewer{link} over {over} ends: {reason}")

    def fragments(self):
        """Returns the number of IP fragments that the host's kernel has made."""
        lines = output_of(*inside("server", "cat", "/proc/net/snmp"), text=True).splitlines()
        names, values = (line.split() for line in lines if line.startswith("Ip: "))
        return int(values[names.index("FragCreates")])


def mtu_1500(lab):
    lab.serve()
    lab.complete(lab.play(1, 6))
    check(not lab.fragments(), "packets of 1400 bytes were fragmented")


def no_offload(lab):
    """The kernel computes checksums and cuts segments, not the device."""
    require(*inside("server", "ethtool", "-K", "link1", "tx", "off", "tso", "off", "gso", "off"))
    lab.serve()
    lab.complete(lab.play(1, 6))


def mtu_1000(lab):
    """The kernel refuses a burst of packets above the MTU; it fragments single packets."""
    for namespace, device in (("server", "link1"), ("viewer1", "eth0")):
        output_of("ip", "-n", namespace, "link", "set", device, "mtu", "1000")
    lab.serve()
    lab.complete(lab.play(1, 6))
    check(lab.fragments(), "nothing was fragmented: the MTU had no effect")


def link_down(lab):
    """The interface of viewer 2, and the host's interface to viewer 3, are down for a while."""
    lab.serve(fast=True)
    healthy = lab.play(1, OUTAGE + 4)
    lab.play(3)
    patient, _ = lab.play(2)
    lab.wait_for_viewers()
    for state in ("down", "up"):
        output_of("ip", "-n", "viewer2", "link", "set", "eth0", state)
        output_of("ip", "-n", "server", "link", "set", "link3", state)
        time.sleep(OUTAGE if state == "down" else 0)
    lab.complete(healthy)
    # Datagrams fail at the host's own interface only. Elsewhere they are lost without an error.
    for link, transport in ((3, "udp"), (2, "tcp"), (3, "tcp")):
        lab.wait_for_end(link, transport, TOO_SLOW)
    patient.kill()
    lab.wait_for_end(2, "udp", LEFT)
    lab.complete(lab.play(2, 3))


def slow_link(lab):
    require("tc", "-n", "server", "qdisc", "add", "dev", "link2", "root", "tbf", "rate", "1mbit",
            "burst", "16kb", "latency", "300ms")
    lab.serve(fast=True)
    healthy = lab.play(1, 8)
    lab.play(2)
    lab.wait_for_viewers()
    lab.wait_for_end(2, "tcp", TOO_SLOW)
    lab.complete(healthy)


def new_address(lab):
    """The host's address on link 2 changes. New viewers play at once; the old ones are ended."""
    lab.serve(fast=True)
    healthy = lab.play(1, 9)
    lab.play(2)
    lab.wait_for_viewers()
    output_of("ip", "-n", "server", "address", "delete", "198.18.2.1/24", "dev", "link2")
    add_address("server", "link2", "198.18.2.3")
    returned = lab.play(2, 3, address="198.18.2.3")
    for transport in TRANSPORTS:
        lab.wait_for_end(2, transport, TOO_SLOW)
    lab.complete(returned + healthy)


def data_ports_dropped(lab):
    """Firewalls drop packets to the data ports: at viewer 2, and at the host's link to viewer 3."""
    ports = "udp sport 20000-32767 counter drop"
    for namespace, hook, rule in (("viewer2", "input", ports),
                                  ("server", "output", "oifname link3 " + ports)):
        require(*inside(namespace, "nft", f"table ip test {{ chain c {{ type filter hook {hook} "
                        f"priority 0; {rule}; }}; }}"))
    lab.serve()
    healthy = lab.play(1, 6) + lab.play(2, 6, ["tcp"]) + lab.play(3, 6, ["tcp"])
    lab.play(3, transports=["udp"])
    [blind] = lab.play(2, transports=["udp"])
    lab.wait_for_viewers()
    lab.wait_for_end(3, "udp", TOO_SLOW)
    lab.complete(healthy)
    dropped = output_of(*inside("viewer2", "nft", "list", "ruleset"))
    check(b"packets 0 " not in dropped, "the firewall dropped nothing")
    blind.kill()
    lab.wait_for_end(2, "udp", LEFT)


def closed_port(lab):
    """With the relay's firewall rules, others reach its page, but not the host."""
    def refused(port):
        connect = f": </dev/tcp/198.18.1.1/{port}"
        return Process("connect", inside("viewer1", "bash", "-c", connect)).wait() != 0
    lab.serve("--port", "8554")
    lab.host.port = 8554
    Process("page", inside("server", "python3", "-m", "http.server", "8080"))
    wait_until(lambda: not refused(8080), 10, "a page")
    check(not refused(8554), "the server cannot be reached anyway")
    require(*inside("server", "nft", "-f", SOURCE / "examples/relay/rtsp-closed.nft"))
    check(refused(8554), "the server's port is not closed")
    check(not refused(8080), "the page cannot be reached")
    lab.complete([Player(lab.host.url(), "tcp", 3, inside("server"))])


CASES = {case.__name__: case for case in (mtu_1500, no_offload, mtu_1000, link_down, slow_link,
                                          new_address, data_ports_dropped, closed_port)}


def run_case(program, name):
    def case():
        lab = Lab(program)
        CASES[name](lab)
        lab.host.end()
    case.__name__ = name
    return run_test(case, seconds=CASE_TIME_LIMIT)


def main():
    program, *names = sys.argv[1:]
    unknown = set(names) - set(CASES)
    if unknown:
        sys.exit(f"no case {', '.join(unknown)}: {', '.join(CASES)}")
    if os.getpid() != 1:
        sys.exit("not in namespaces of its own: see scripts/network.sh")
    # Other work on the machine must not make a player lose packets.
    with contextlib.suppress(PermissionError):
        os.nice(-10)
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: sys.exit("ended by a signal"))
    # This /run exists in this mount namespace only. It holds the names of the network namespaces and
    # the recordings.
    output_of("mount", "-t", "tmpfs", "tmpfs", "/run")
    tempfile.tempdir = "/run"
    make_fast_clip()
    program = os.path.abspath(program)
    return int(1 in [run_case(program, name) for name in names or CASES])


if __name__ == "__main__":
    sys.exit(main())
