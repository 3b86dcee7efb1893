#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plays what the example host serves through networks with faults, with ffmpeg over UDP and
interleaved at once, and compares every decoded frame with the source.
Usage: networks.py media_dir live_host [case...]

The host and each viewer run in a network namespace of their own. Link N is a pair of virtual Ethernet
devices: linkN of the host has the address 198.18.N.1, and eth0 of viewerN has 198.18.N.2.
scripts/network.sh starts this program in new network, mount and process namespaces. The kernel
removes everything in them when the program ends, even if it is killed."""

import contextlib
import os
import re
import signal
import subprocess
import sys
import time

from playback import (FFMPEG, GOP, Host, Player, check_recording, clip_frames, left,
                      set_time_limit)

TRANSPORTS = ("udp", "tcp")
CASE_TIME_LIMIT = 40  # seconds
OUTAGE = 5  # seconds
TOO_SLOW = "client too slow"
LEFT = "client closed the connection"


class CommandFailed(Exception):
    pass


class Missing(Exception):
    """The kernel or a tool lacks what a case needs."""


def run(*command, text=None):
    result = subprocess.run(command, input=text, capture_output=True, text=True, check=False,
                            timeout=left())
    if result.returncode != 0:
        raise CommandFailed(f"{' '.join(command)}: {result.stderr.strip()}")
    return result.stdout


def require(*command, text=None):
    """Runs a command that needs an optional part of the kernel."""
    try:
        return run(*command, text=text)
    except (CommandFailed, OSError) as error:
        raise Missing(str(error)) from error


def inside(namespace, *command):
    return ("ip", "netns", "exec", namespace, *command)


def make_fast_clip(path):
    """4 Mbit/s: when a link is slow or down, this fills all buffers within two seconds."""
    run(*FFMPEG, "-f", "lavfi", "-i",
        "testsrc2=size=640x360:rate=25:duration=4,noise=alls=40:allf=t", "-pix_fmt", "yuv420p",
        "-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-b:v", "4M", "-maxrate", "4M",
        "-bufsize", "800k", "-x264-params",
        f"keyint={GOP}:min-keyint={GOP}:scenecut=0:open-gop=0:nal-hrd=cbr:filler=0",
        "-f", "h264", path)


class Sources:
    def __init__(self, media, work):
        self.clip = os.path.join(media, "clip.h264")
        self.sound = os.path.join(media, "clip.alaw")
        self.fast = os.path.join(work, "fast.h264")
        make_fast_clip(self.fast)
        self.frames = {path: clip_frames(path, work) for path in (self.clip, self.fast)}


class Lab:
    """The links of one case, the host, and the players."""

    def __init__(self, program, sources, work):
        self.program = program
        self.sources = sources
        self.work = work
        self.host = None
        self.video = None
        self.audio = None
        self.players = []
        self.namespaces = []

    def connect(self, links):
        self.add_namespace("server")
        run("ip", "-n", "server", "link", "set", "lo", "up")
        for link in range(1, links + 1):
            viewer, device = f"viewer{link}", f"link{link}"
            self.add_namespace(viewer)
            require("ip", "link", "add", device, "netns", "server", "type", "veth",
                    "peer", "name", "eth0", "netns", viewer)
            self.add_address("server", device, f"198.18.{link}.1")
            self.add_address(viewer, "eth0", f"198.18.{link}.2")
            run("ip", "-n", "server", "link", "set", device, "up")
            run("ip", "-n", viewer, "link", "set", "eth0", "up")

    def add_namespace(self, name):
        run("ip", "netns", "add", name)
        self.namespaces.append(name)

    @staticmethod
    def add_address(namespace, device, address):
        run("ip", "-n", namespace, "address", "add", f"{address}/24", "dev", device)

    def serve(self, fast=False):
        """Serves the project's clip with its sound, or video of 4 Mbit/s without sound."""
        self.video = self.sources.fast if fast else self.sources.clip
        self.audio = None if fast else self.sources.sound
        arguments = ["--video", self.video] + (["--audio", self.audio] if self.audio else [])
        self.host = Host(inside("server", self.program), arguments, self.work)

    def record(self, link, seconds, transports=TRANSPORTS, address=None):
        """Starts players whose recordings `complete` compares with the source."""
        url = self.host.url("main", address or f"198.18.{link}.1")
        players = [Player(f"viewer{link} {transport} {len(self.players)}", url, transport, seconds,
                          self.work, with_audio=self.audio is not None,
                          prefix=inside(f"viewer{link}"))
                   for transport in transports]
        self.players += [player.process for player in players]
        return players, seconds

    def complete(self, recordings):
        """Returns the faults of recordings that must be complete."""
        players, seconds = recordings
        frames = self.sources.frames[self.video]
        # The recording of a viewer who joins between two key frames starts at the next one.
        least = (seconds - 1) * GOP - 5
        return [fault for player in players
                for fault in check_recording(player, frames, least, self.audio, 320 * least)]

    def watch(self, link, *transports):
        """Starts players that receive until they are killed; nothing is compared."""
        for transport in transports:
            self.players.append(subprocess.Popen(
                inside(f"viewer{link}", *FFMPEG, "-rtsp_transport", transport,
                       "-i", self.host.url("main", f"198.18.{link}.1"),
                       "-map", "0:v", "-c", "copy", "-f", "null", "-"),
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))
        return self.players[-1]

    def all_play(self):
        """Waits until the host has reported a viewer for every player."""
        end = time.monotonic() + 10
        while self.host.output().count(" watches ") < len(self.players):
            if time.monotonic() > end:
                return ["not all viewers play after 10 s"]
            time.sleep(0.02)
        return []

    def ending(self, link, transport, reason, seconds=15):
        """Returns a fault unless the host reports this reason for the viewer's end in time."""
        over = "UDP" if transport == "udp" else "the RTSP connection"
        watches = re.search(rf"^(198\.18\.{link}\.2:\d+) watches \S+ over {over}$",
                            self.host.output(), re.MULTILINE)
        if watches is None:
            return [f"viewer{link} never played over {over}"]
        gone = watches[1] + " ended after "
        self.host.wait_for(gone, seconds)
        line = next((line for line in self.host.output().splitlines() if line.startswith(gone)),
                    "it is still there")
        return [] if f" s: {reason} (" in line else [f"viewer{link} {transport}: {line}"]

    def fragments(self):
        """Returns the number of IP fragments that the host's kernel has made."""
        lines = run(*inside("server", "cat", "/proc/net/snmp")).splitlines()
        names, values = (line.split() for line in lines if line.startswith("Ip: "))
        return int(values[names.index("FragCreates")])

    def close(self):
        for process in self.players:
            process.kill()
            process.wait()
        if self.host is not None:
            self.host.kill()
        for name in self.namespaces:
            run("ip", "netns", "delete", name)


def mtu_1500(lab):
    lab.serve()
    faults = lab.complete(lab.record(1, 6))
    return faults + (["packets of 1400 bytes were fragmented"] if lab.fragments() else [])


def no_offload(lab):
    """The kernel computes checksums and cuts segments, not the device."""
    require(*inside("server", "ethtool", "-K", "link1", "tx", "off", "tso", "off", "gso", "off"))
    lab.serve()
    return lab.complete(lab.record(1, 6))


def mtu_1000(lab):
    """The kernel refuses a burst of packets above the MTU; it fragments single packets."""
    for namespace, device in (("server", "link1"), ("viewer1", "eth0")):
        run("ip", "-n", namespace, "link", "set", device, "mtu", "1000")
    lab.serve()
    faults = lab.complete(lab.record(1, 6))
    return faults + ([] if lab.fragments() else ["nothing was fragmented: the MTU had no effect"])


def link_down(lab):
    """The interface of viewer 2, and the host's interface to viewer 3, are down for a while."""
    cut = [("viewer2", "eth0"), ("server", "link3")]
    lab.serve(fast=True)
    healthy = lab.record(1, OUTAGE + 4)
    lab.watch(3, "udp", "tcp")
    lab.watch(2, "tcp")
    patient = lab.watch(2, "udp")
    faults = lab.all_play()
    for namespace, device in cut:
        run("ip", "-n", namespace, "link", "set", device, "down")
    time.sleep(OUTAGE)
    for namespace, device in cut:
        run("ip", "-n", namespace, "link", "set", device, "up")
    faults += lab.complete(healthy)
    # Datagrams fail at the host's own interface only. Elsewhere they are lost without an error.
    faults += lab.ending(3, "udp", TOO_SLOW)
    faults += lab.ending(2, "tcp", TOO_SLOW) + lab.ending(3, "tcp", TOO_SLOW)
    patient.kill()
    return faults + lab.ending(2, "udp", LEFT) + lab.complete(lab.record(2, 3))


def slow_link(lab):
    require("tc", "-n", "server", "qdisc", "add", "dev", "link2", "root", "tbf", "rate", "1mbit",
            "burst", "16kb", "latency", "300ms")
    lab.serve(fast=True)
    healthy = lab.record(1, 8)
    lab.watch(2, "udp", "tcp")
    faults = lab.all_play() + lab.ending(2, "tcp", TOO_SLOW)
    return faults + lab.complete(healthy)


def new_address(lab):
    """The host's address on link 2 changes. New viewers play at once; the old ones are ended."""
    lab.serve(fast=True)
    healthy = lab.record(1, 9)
    lab.watch(2, "udp", "tcp")
    faults = lab.all_play()
    run("ip", "-n", "server", "address", "delete", "198.18.2.1/24", "dev", "link2")
    lab.add_address("server", "link2", "198.18.2.3")
    returned = lab.record(2, 3, address="198.18.2.3")
    faults += [fault for transport in TRANSPORTS
               for fault in lab.ending(2, transport, TOO_SLOW)]
    return faults + lab.complete(returned) + lab.complete(healthy)


def data_ports_dropped(lab):
    """Firewalls drop packets to the data ports: at viewer 2, and at the host's link to viewer 3."""
    ports = "udp sport 20000-32767 counter drop"
    for namespace, hook, rule in (("viewer2", "input", ports),
                                  ("server", "output", "oifname link3 " + ports)):
        require(*inside(namespace, "nft", "-f", "-"), text=
                f"table ip test {{ chain c {{ type filter hook {hook} priority 0; {rule}; }}; }}")
    lab.serve()
    recordings = [lab.record(1, 6), lab.record(2, 6, ["tcp"]), lab.record(3, 6, ["tcp"])]
    lab.watch(3, "udp")
    blind = lab.watch(2, "udp")
    faults = lab.all_play() + lab.ending(3, "udp", TOO_SLOW)
    faults += [fault for each in recordings for fault in lab.complete(each)]
    if "packets 0 " in run(*inside("viewer2", "nft", "list", "ruleset")):
        faults.append("the firewall dropped nothing")
    blind.kill()
    return faults + lab.ending(2, "udp", LEFT)


# The number of links that each case needs.
CASES = {mtu_1500: 1, no_offload: 1, mtu_1000: 1, link_down: 3, slow_link: 2, new_address: 2,
         data_ports_dropped: 3}


def run_case(case, program, sources, work):
    """Prints the result. Returns whether the case passed."""
    begin = time.monotonic()
    set_time_limit(CASE_TIME_LIMIT)
    lab = Lab(program, sources, work)
    try:
        lab.connect(CASES[case])
        faults = case(lab)
        faults += lab.host.end()
        if faults:
            lines = lab.host.output().splitlines()
            faults += ["live_host said, without the server's lines:",
                       *(line for line in lines if re.match(r"\w", line))]
    except Missing as missing:
        print(f"skipped {case.__name__}: {missing}", flush=True)
        return True
    except (CommandFailed, subprocess.TimeoutExpired) as failure:
        faults = [str(failure)]
    finally:
        lab.close()
    seconds = time.monotonic() - begin
    print(f"{'FAILED' if faults else 'passed'} {case.__name__} ({seconds:.0f} s)", flush=True)
    print(*faults, sep="\n", end="\n" if faults else "")
    return not faults


def main():
    media, program, *names = sys.argv[1:]
    unknown = set(names) - {case.__name__ for case in CASES}
    if unknown:
        sys.exit(f"no case {', '.join(unknown)}: {', '.join(case.__name__ for case in CASES)}")
    if os.getpid() != 1:
        sys.exit("not in namespaces of its own: see scripts/network.sh")
    # Other work on the machine must not make a player lose packets.
    with contextlib.suppress(PermissionError):
        os.nice(-10)
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: sys.exit("ended by a signal"))
    # This /run exists in this mount namespace only. It holds the names of the network namespaces and
    # the recordings.
    run("mount", "-t", "tmpfs", "tmpfs", "/run")
    sources = Sources(media, "/run")
    good = [run_case(case, os.path.abspath(program), sources, "/run")
            for case in CASES if not names or case.__name__ in names]
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
