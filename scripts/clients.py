#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Plays live_host with players and client libraries. ./scripts/clients starts it.

Each run has its own server, and needs no display and no sound device. A run is good if the client
plays until it receives SIGTERM, gets sound if it asks for it, and shows the frames of all but the
first seconds."""

import argparse
import concurrent.futures
import ctypes
import dataclasses
import os
import pathlib
import platform
import re
import subprocess
import sys
import time
import typing

ROOT = pathlib.Path(__file__).resolve().parent.parent
FRAME_RATE = 25
START_SECONDS = 6  # until a client shows its first frame
AT_ONCE = 8
PORT, DATA_PORT, DATA_PORTS = 18554, 20000, 20  # of the first server
UDP, INTERLEAVED = "UDP", "Interleaved"
TRANSPORTS = {UDP: "udp", INTERLEAVED: "tcp"}  # with the name that most clients use
DETAILS = "docs/operations.md#players-and-recorders"


def last_number(pattern):
    """For clients that print the number of frames."""
    def count(run):
        found = re.findall(pattern, run.output())
        return int(found[-1]) if found else 0
    return count


def lines(pattern):
    """For clients that print a line per frame."""
    return lambda run: len(re.findall(pattern, run.output(), re.MULTILINE))


def checksum_lines(run):
    return sum(len(path.read_text().splitlines()) for path in run.folder.glob("md5*"))


def recorded_frames(run):
    counts = [subprocess.run(
        ["ffprobe", "-v", "error", "-count_packets", "-select_streams", "v", "-show_entries",
         "stream=nb_read_packets", "-of", "csv=p=0", path], stdout=subprocess.PIPE, text=True,
        check=False).stdout.strip(", \n") for path in run.folder.glob("*.mp4")]
    return sum(int(count) for count in counts if count)


def packets_sent(run):
    """According to the server, for a client that is not expected to play."""
    return sum(int(count) for count in re.findall(r"\((\d+) video", run.server_log.read_text()))


@dataclasses.dataclass
class Client:
    name: str
    package: str  # its version is printed
    command: typing.Callable  # returns the command for a Run
    count: typing.Callable  # returns the frames of a Run
    remark: str = ""
    transports: tuple = (UDP, INTERLEAVED)
    with_sound: bool = True
    plays: bool = True  # what is expected


def ffmpeg(run):
    return ["ffmpeg", "-hide_banner", "-nostdin", "-stats", "-rtsp_transport", run.protocol,
            "-i", run.url, "-map", "0", "-f", "null", "-"]


def ffplay(run):
    return ["ffplay", "-hide_banner", "-rtsp_transport", run.protocol, "-vf", "showinfo", run.url]


def rtspsrc(run):
    video = "s. ! application/x-rtp,media=video ! rtph264depay ! avdec_h264 ! checksumsink"
    audio = "s. ! application/x-rtp,media=audio ! rtppcmadepay ! alawdec ! fakesink"
    return ["gst-launch-1.0", "rtspsrc", f"location={run.url}", f"protocols={run.protocol}",
            "name=s", *video.split(), *audio.split()]


def gst_url(run):
    """The scheme selects the transport."""
    return run.url.replace("rtsp:", {UDP: "rtspu:", INTERLEAVED: "rtspt:"}[run.transport])


def playbin3(run):
    return ["gst-launch-1.0", "playbin3", f"uri={gst_url(run)}", "video-sink=checksumsink",
            "audio-sink=fakesink sync=true"]


def gst_play(run):
    return ["gst-play-1.0", "--no-interactive", "--videosink=checksumsink", "--audiosink=fakesink",
            gst_url(run)]


def mpv(run):
    return ["mpv", "--no-config", "--vo=null", "--ao=null", "--msg-level=ffmpeg=v",
            "--vf=lavfi=[showinfo]", f"--rtsp-transport={run.protocol}", run.url]


def mplayer(run):
    tcp = ["-rtsp-stream-over-tcp"] if run.transport == INTERLEAVED else []
    return ["mplayer", *tcp, "-vo", f"md5sum:outfile={run.folder}/md5", "-ao", "null", run.url]


def motion(run):
    settings = run.folder / "motion.conf"
    settings.write_text(f"""daemon off
netcam_url {run.url}
netcam_params rtsp_transport={run.protocol}
width 640
height 360
framerate 25
target_dir {run.folder}
emulate_motion on
movie_passthrough on
movie_max_time 0
webcontrol_port 0
stream_port 0
""")
    return ["motion", "-n", "-c", settings]


def helper(run):
    """This program, as the client. Debian's modules are for Debian's Python."""
    return ["/usr/bin/python3", "-B", __file__, "--play", run.client.name, "--url", run.url,
            "--protocol", run.protocol]


def yellowstone(run):
    script = """
const { RtspClient } = require(process.argv[1]);
const client = new RtspClient();
let frames = 0;
client.on("data", (channel, data, packet) => { frames += packet.marker ? 1 : 0; });
client.connect(process.argv[2]).then(() => client.play());
setInterval(() => console.log("frames", frames), 100);
"""
    return ["node", "-e", script, run.out / "node_modules/yellowstone", run.url]


def vlc(run):
    """VLC does not run as root."""
    user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "env", "HOME=/tmp"]
    return [*(user if os.geteuid() == 0 else []), "cvlc", "-vv", "--intf", "dummy",
            "--aout", "dummy", "--vout", "dummy", run.url, "vlc://quit"]


FRAMES = last_number(r"frames (\d+)")
CHECKSUMS = lines(r"^\d+:\d\d:\d\d\.\d+ [0-9a-f]{40}")
SHOWN = lines(r"pts_time:")
GSTREAMER = f"the URL must end in a slash; a [seek]({DETAILS}) ends the session"
CLIENTS = [
    Client("ffmpeg", "ffmpeg", ffmpeg, last_number(r"frame= *(\d+)"),
           "every test run compares its frames and sound with the source"),
    Client("ffplay", "ffmpeg", ffplay, SHOWN, f"[pause and resume]({DETAILS}) end the session"),
    Client("PyAV", "python3-av", helper, FRAMES, "libavformat"),
    Client("OpenCV", "python3-opencv", helper, FRAMES, "libavformat"),
    Client("GStreamer `rtspsrc`", "gstreamer1.0-plugins-good", rtspsrc, CHECKSUMS, GSTREAMER),
    Client("GStreamer `playbin3`", "gstreamer1.0-plugins-base", playbin3, CHECKSUMS,
           "as `rtspsrc`"),
    Client("`gst-play`", "gstreamer1.0-plugins-base-apps", gst_play, CHECKSUMS, "as `rtspsrc`"),
    Client("mpv", "mpv", mpv, SHOWN,
           "a pause sends no request; mpv resumes where it paused, later than live"),
    Client("MPlayer", "mplayer", mplayer, checksum_lines, "libavformat"),
    Client("motion", "motion", motion, recorded_frames,
           f"records video only; see the [remark]({DETAILS}) about its log lines", with_sound=False),
    Client("libcurl", "libcurl4", helper, FRAMES,
           "delivers RTP packets to the application; here of the video only",
           transports=(INTERLEAVED,), with_sound=False),
    Client("yellowstone (npm)", "", yellowstone, FRAMES, "sets up video only",
           transports=(INTERLEAVED,), with_sound=False),
    Client("VLC of Debian", "vlc-plugin-base", vlc, packets_sent,
           "no general RTSP client: its SAT>IP module begins with SETUP and is refused with 404, "
           "its RealMedia module leaves after OPTIONS", plays=False),
]


class Run:
    """A client that plays one server over one transport."""

    def __init__(self, client, transport, number, arguments):
        self.client, self.transport, self.protocol = client, transport, TRANSPORTS[transport]
        self.number, self.arguments, self.out = number, arguments, arguments.out
        self.url = f"rtsp://127.0.0.1:{PORT + number}/chan1/main/"
        name = re.sub(r"\W+", "-", f"{client.name} {transport}").lower()
        self.folder = arguments.out / name
        self.log = self.folder / "client.log"
        self.server_log = self.folder / "server.log"

    def output(self):
        return self.log.read_text(errors="replace")

    def start_server(self):
        first = DATA_PORT + self.number * DATA_PORTS
        with open(self.server_log, "wb") as log:
            server = subprocess.Popen(
                [self.arguments.live_host, "--port", str(PORT + self.number), "--data-ports",
                 f"{first}-{first + DATA_PORTS - 2}"], stdout=log, stderr=log)
        while server.poll() is None and "Ctrl-C" not in self.server_log.read_text():
            time.sleep(0.05)
        if server.poll() is not None:
            raise SystemExit(f"error: live_host does not start: see {self.server_log}")
        return server

    def play(self):
        """Returns when the client has played for its time, or has ended by itself."""
        quiet = {"SDL_VIDEODRIVER": "dummy", "SDL_AUDIODRIVER": "dummy",
                 "OPENCV_FFMPEG_CAPTURE_OPTIONS": f"rtsp_transport;{self.protocol}"}
        with open(self.log, "wb") as log:
            process = subprocess.Popen(self.client.command(self), stdin=subprocess.DEVNULL,
                                       stdout=log, stderr=log, env={**os.environ, **quiet})
        begin = time.monotonic()
        try:
            process.wait(self.arguments.seconds)
            return f"ended by itself after {time.monotonic() - begin:.0f} s"
        except subprocess.TimeoutExpired:
            process.terminate()
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            return "did not end"
        return None

    def result(self):
        """Returns whether the client played, and a text for the table."""
        self.folder.mkdir(parents=True, exist_ok=True)
        for old in self.folder.iterdir():
            old.unlink()
        server = self.start_server()
        try:
            fault = self.play()
            time.sleep(0.5)  # the server's lines about the client's end
        finally:
            server.terminate()
            server.wait()
        frames = self.client.count(self)
        sound = any(int(count) for count in
                    re.findall(r"and (\d+) audio packets", self.server_log.read_text()))
        good = (fault is None and sound == self.client.with_sound
                and frames >= FRAME_RATE * (self.arguments.seconds - START_SECONDS))
        text = f"{frames} frames" + (", sound" if sound else ", no sound")
        if good or not self.client.plays:
            return good, text if good else "does not play"
        return False, "**fails**: " + (fault or text)


def version_of(client, arguments):
    if not client.package:
        return arguments.yellowstone
    version = subprocess.run(["dpkg-query", "--show", "--showformat=${Version}", client.package],
                             stdout=subprocess.PIPE, text=True, check=False).stdout
    return re.sub(r"^\d+:|[-+].*", "", version) or "?"


def run_all(arguments):
    """Returns the rows of the table, and whether all results are as expected."""
    runs = [Run(client, transport, number, arguments) for number, (client, transport) in
            enumerate((client, transport) for client in CLIENTS for transport in client.transports)]
    results = {}
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        running = {pool.submit(run.result): run for run in runs}
        for done in concurrent.futures.as_completed(running):
            run = running[done]
            results[run.client.name, run.transport] = good, text = done.result()
            print(f"{run.client.name}, {run.transport}: {text}", file=sys.stderr)
    rows = [[client.name, version_of(client, arguments),
             *(results.get((client.name, transport), (None, "not offered"))[1]
               for transport in TRANSPORTS), client.remark] for client in CLIENTS]
    return rows, all(results[run.client.name, run.transport][0] == run.client.plays for run in runs)


def make_table(rows, seconds):
    with open("/etc/os-release", encoding="utf-8") as release:
        system = re.search(r'^PRETTY_NAME="(.*)"', release.read(), re.MULTILINE)[1]
    head = [["Client", "Version", *TRANSPORTS, "Remark"], ["---"] * 5]
    table = "\n".join("| " + " | ".join(row) + " |" for row in head + rows)
    return f"{table}\n\nMeasured on {system}, {platform.machine()}, {seconds} seconds per run."


def publish(table):
    page = ROOT / "README.md"
    content, count = re.subn(r"(<!-- players -->\n).*?(<!-- end -->)",
                             lambda match: f"{match[1]}\n{table}\n\n{match[2]}", page.read_text(),
                             flags=re.DOTALL)
    if count != 1:
        raise SystemExit(f"error: {page} has no place for the table")
    page.write_text(content)


def play_pyav(url, protocol):
    import av
    container = av.open(url, options={"rtsp_transport": protocol})
    for packet in container.demux():
        for frame in packet.decode():
            if isinstance(frame, av.VideoFrame):
                yield


def play_opencv(url, _):
    import cv2
    capture = cv2.VideoCapture(url, cv2.CAP_FFMPEG)
    while capture.read()[0]:
        yield


def play_libcurl(url, _):
    """With the numbers of options and requests from curl/curl.h."""
    write_data, url_option, interleave_function, write_function = 10001, 10002, 20196, 20011
    request, stream_uri, transport = 189, 10191, 10192
    describe, setup, play, receive = 2, 4, 5, 11
    curl = ctypes.CDLL("libcurl.so.4")
    curl.curl_easy_init.restype = ctypes.c_void_p
    handle = ctypes.c_void_p(curl.curl_easy_init())
    ended = []  # frames that have arrived and are not counted yet

    @ctypes.CFUNCTYPE(ctypes.c_size_t, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_size_t,
                      ctypes.c_void_p)
    def take_packet(data, size, number, _):
        packet = ctypes.string_at(data, size * number)  # "$", channel, length, RTP packet
        if packet[1] == 0 and packet[5] & 0x80:
            ended.append(packet)
        return size * number

    @ctypes.CFUNCTYPE(ctypes.c_size_t, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_size_t,
                      ctypes.c_void_p)
    def drop(_, size, number, __):
        return size * number

    def set_option(option, value):
        curl.curl_easy_setopt(handle, option, value)

    def perform(number, uri):
        set_option(request, ctypes.c_long(number))
        set_option(stream_uri, uri.encode())
        code = curl.curl_easy_perform(handle)
        if code != 0:
            raise SystemExit(f"libcurl: request {number} fails with {code}")

    set_option(url_option, url.encode())
    set_option(write_data, None)
    set_option(write_function, drop)
    set_option(interleave_function, take_packet)
    perform(describe, url)
    set_option(transport, b"RTP/AVP/TCP;unicast;interleaved=0-1")
    perform(setup, url + "streamid=0")
    perform(play, url)
    while True:
        perform(receive, url)
        while ended:
            yield ended.pop()


def play(name, url, protocol):
    """Plays until SIGTERM, and prints the number of frames."""
    players = {"PyAV": play_pyav, "OpenCV": play_opencv, "libcurl": play_libcurl}
    for frames, _ in enumerate(players[name](url, protocol), 1):
        print("frames", frames, flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--live-host", type=pathlib.Path)
    parser.add_argument("--out", type=pathlib.Path)
    parser.add_argument("--yellowstone", help="version")
    parser.add_argument("--seconds", type=int, default=60)
    parser.add_argument("--publish", action="store_true")
    parser.add_argument("--play")
    parser.add_argument("--url")
    parser.add_argument("--protocol")
    arguments = parser.parse_args()
    if arguments.play:
        return play(arguments.play, arguments.url, arguments.protocol)
    arguments.out = arguments.out.resolve()
    rows, good = run_all(arguments)
    table = make_table(rows, arguments.seconds)
    print(table)
    if arguments.publish:
        publish(table)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
