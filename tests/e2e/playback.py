# SPDX-License-Identifier: MIT
"""Shared by the tests that run whole programs: starts and ends programs, records with ffmpeg, and
compares recordings with the source. Each test runs in a temporary folder, the working directory."""

import contextlib
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parents[2]
CLIP = SOURCE / "examples/media/clip.h264"
SOUND = SOURCE / "examples/media/clip.alaw"
GOP = 25  # frames from one key frame to the next, in every source
FFMPEG = ["ffmpeg", "-hide_banner", "-nostdin", "-loglevel", "warning", "-y"]

deadline = time.monotonic() + 3600  # of the waits below; each test sets its own
started = []  # the processes of the test
reservations = []  # of port numbers


class Fault(Exception):
    """What a test has found."""


class Skipped(Exception):
    """What a test needs is missing."""


def check(good, fault):
    if not good:
        raise Fault(fault)


def left():
    return max(1.0, deadline - time.monotonic())


def wait_until(condition, seconds, what):
    """Returns the value of the condition once it is true."""
    end = time.monotonic() + min(seconds, left())
    while not (result := condition()):
        check(time.monotonic() < end, f"not within {seconds} s: {what}")
        time.sleep(0.02)
    return result


def output_of(*command, error=Fault, **options):
    """Runs a command and returns its standard output. The error is raised if it fails."""
    done = subprocess.run(command, check=False, capture_output=True, timeout=left(), **options)
    if done.returncode != 0:
        raise error(f"{command} failed: {done.stderr}")
    return done.stdout


def require_programs(*names):
    for name in names:
        if shutil.which(name) is None:
            raise Skipped(f"there is no {name}")


def free_ports():
    """Returns the first of 20 free port numbers, below those that the kernel gives to clients and
    above those of the tests in C++. They stay reserved until this program ends."""
    for first in range(26000, 32000, 20):
        reservation = socket.socket(socket.AF_UNIX)
        with contextlib.ExitStack() as probes, contextlib.suppress(OSError):
            reservation.bind(f"\0rtspserver-tests-{first}")
            for number in range(first, first + 20):
                for kind in (socket.SOCK_STREAM, socket.SOCK_DGRAM):
                    probes.enter_context(socket.socket(type=kind)).bind(("127.0.0.1", number))
            reservations.append(reservation)
            return first
    raise Fault("no free ports")


class Process:
    """A program whose output goes to files. The processes that it starts end with it."""

    def __init__(self, name, command, **options):
        self.name = name
        # Two files: the library writes addresses to standard error byte by byte. In one file, they
        # would mix with the lines of standard output.
        self.logs = [pathlib.Path(f"{name}.{stream}").absolute() for stream in ("out", "err")]
        with open(self.logs[0], "wb") as out, open(self.logs[1], "wb") as err:
            self.process = subprocess.Popen(command, start_new_session=True, **{
                "stdin": subprocess.DEVNULL, "stdout": out, "stderr": err, **options})
        started.append(self)

    def output(self):
        """Returns what came to standard output, then what came to standard error."""
        return "".join(log.read_text(encoding="utf-8", errors="replace") for log in self.logs)

    def wait_for(self, text):
        """Waits until the program has printed a text."""
        wait_until(lambda: text in self.output() or self.process.poll() is not None, 60, text)
        check(text in self.output(), f"{self.name} ended without '{text}'")

    def wait(self):
        return self.process.wait(left())

    def end(self):
        """Ctrl-C, which reaches the whole process group. The program ends soon, with 0."""
        begin = time.monotonic()
        os.killpg(self.process.pid, signal.SIGINT)
        code, took = self.wait(), time.monotonic() - begin
        check(code == 0 and took <= 3, f"{self.name} ended with {code} after {took:.1f} s")

    def kill(self):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()


def feeder(file):
    """A process whose standard output, a pipe, repeats the file until it is killed."""
    return Process("feeder", ["sh", "-c", f"while cat '{file}'; do :; done"], stdout=subprocess.PIPE)


class Host(Process):
    """live_host or gst_host, serving. A new start keeps the port."""

    def __init__(self, program, *arguments, **options):
        self.port = free_ports()
        self.command = [*program, "--port", str(self.port),
                        "--data-ports", f"{self.port}-{self.port + 18}", *arguments]
        self.start(**options)

    def start(self, **options):
        super().__init__("host", self.command, **options)
        self.wait_for("Ctrl-C")

    def url(self, stream="main", address="127.0.0.1"):
        return f"rtsp://{address}:{self.port}/chan1/{stream}/"


def ffmpeg(url, transport, seconds, path):
    return [*FFMPEG, "-rtsp_transport", transport, "-i", url, "-map", "0", "-c", "copy",
            "-t", str(seconds), "-f", "nut", path]


class Player(Process):
    """Records a stream. `prefix` is a command that runs the player in another namespace."""

    def __init__(self, url, transport, seconds, prefix=(), make_command=ffmpeg):
        name = f"player{len(started)}-{transport}"
        self.seconds = seconds
        self.recording = f"{name}.recording"
        super().__init__(name, [*prefix, *make_command(url, transport, seconds, self.recording)])


def frame_sums(video, *options):
    """Returns the checksums of the decoded frames."""
    lines = output_of(*FFMPEG, *options, "-i", video, "-map", "0:v", "-fps_mode", "passthrough",
                      "-f", "framemd5", "-", text=True).splitlines()
    return [line.split(",")[-1].strip() for line in lines if not line.startswith("#")]


def source_frames(video, *options):
    frames = frame_sums(video, *options)
    check(len(set(frames)) == len(frames), "the clip repeats a frame: the order is not defined")
    return frames


def read_sound(recording):
    return output_of(*FFMPEG, "-i", recording, "-map", "0:a", "-c", "copy", "-f", "alaw", "-")


def check_frames(received, source, least, name="frames"):
    """At least this many frames are there. They are those of the source, in order and undamaged."""
    order = {checksum: number for number, checksum in enumerate(source)}
    numbers = [order.get(checksum) for checksum in received]
    # A player that joins between two key frames may show damaged pictures until the next one.
    while numbers and numbers[0] is None and len(received) - len(numbers) < GOP:
        numbers.pop(0)
    check(len(numbers) >= least, f"{name}: {len(numbers)} frames instead of {least}")
    for place, number in enumerate(numbers):
        check(number is not None, f"{name}: frame {place} is damaged")
        expected = (numbers[0] + place) % len(source)
        check(number == expected, f"{name}: frame {place} is the clip's {number}, not {expected}")


def check_sound(received, source, least, name):
    """The same for the bytes of A-law sound."""
    check(len(received) >= least, f"{name}: {len(received)} bytes of sound instead of {least}")
    looped = source * (len(received) // len(source) + 2)
    # For its first viewer the host jumps to a key picture. Sound of up to one picture's time may be
    # sent before.
    check(any(received[early:] in looped for early in (0, 160, 320)),
          f"{name}: {len(received)} bytes of sound differ from the source")


def check_recording(player, frames, least_frames, sound=None):
    """Waits for the player's end. A frame of 1/25 s has 320 bytes of sound."""
    check(player.wait() == 0, f"{player.name} failed")
    check_frames(frame_sums(player.recording), frames, least_frames, player.name)
    if sound:
        received = read_sound(player.recording)
        check_sound(received, sound.read_bytes(), 320 * least_frames, player.name)
    # A player that treats a report as media delays the playback, even without packet loss.
    check("RTP: " not in player.output(),
          f"{player.name} missed packets, or got some that do not belong")


def run_test(test, *arguments, seconds=55):
    """Returns the exit code for CTest, in which 77 is a skipped test."""
    global deadline
    deadline = time.monotonic() + seconds
    started.clear()
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)  # some programs run as another user
        os.chdir(folder)
        try:
            test(*arguments)
            result, text = 0, "passed"
        except Skipped as reason:
            result, text = 77, f"skipped: {reason}"
        except (Fault, subprocess.TimeoutExpired) as fault:
            result, text = 1, f"FAILED: {fault}"
            for process in started:
                print(f"{process.name} printed:\n{process.output()}")
        finally:
            for process in started:
                process.kill()
            os.chdir("/")
    took = time.monotonic() - deadline + seconds
    print(f"{test.__name__} {text} ({took:.0f} s)", flush=True)
    return result


def main(*tests):
    """Runs the test that the first argument names, with the other arguments as a command."""
    name, *command = sys.argv[1:]
    sys.exit(run_test({test.__name__: test for test in tests}[name], command))
