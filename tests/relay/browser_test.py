#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The relay's page in headless Chromium, which plays HLS itself and with hls.js.
Usage: browser_test.py native|hls.js live_host"""

import contextlib
import os
import sys
import time

from harness import BITS, FPS, Browser, Relay, make_clip
from playback import (SOUND, SOURCE, Fault, Host, Skipped, check, require_programs, run_test,
                      wait_until)

START = 5      # seconds from opening the page to a moving picture, and from a restart of the server
PATIENCE = 20  # seconds for the same on a machine that is busy with something else
ATTEMPTS = 3   # one of them has to succeed
PLAYING = 20   # seconds
CLIP = 60


def wait_for_picture(browser):
    """Returns the page once its picture moves."""
    first = browser.read_page()

    def moving():
        page = browser.read_page()
        return page if page["state"] == "live" and page["counter"] != first["counter"] else None
    return wait_until(moving, PATIENCE, f"a live picture; {first}")


def in_one_attempt(action):
    """Returns the result of the first attempt without a fault."""
    for attempts_left in reversed(range(ATTEMPTS)):
        try:
            return action()
        except Fault:
            if not attempts_left:
                raise


def picture_in_time(browser, start):
    """Returns the page, with a moving picture soon after this start."""
    begin = time.monotonic()
    start()
    page = wait_for_picture(browser)
    check(time.monotonic() - begin <= START, "the picture comes late")
    return page


def pictures_between(page, later):
    return (later["counter"] - page["counter"]) % (CLIP * FPS)


def check_plays_on(browser):
    """Time and counter advance together, at the clip's rate."""
    begin = previous = page = wait_for_picture(browser)
    while page["clock"] - begin["clock"] < PLAYING:
        time.sleep(1)
        page = browser.read_page()
        steps = pictures_between(previous, page)
        check(page["state"] == "live" and page["time"] > previous["time"] and
              0 < steps < 2 * FPS * (page["clock"] - previous["clock"]), f"{previous}, then {page}")
        previous = page
    shown = pictures_between(begin, page) / FPS
    check(abs(shown - PLAYING) < 3, f"{shown} s of pictures in {PLAYING} s")


def check_survives_restart(browser, host):
    """While the server is away, the picture stops. It continues afterwards without a reload."""
    browser.run("window.kept = true")

    def restart():
        host.kill()
        wait_until(lambda: browser.read_page()["state"] == "waiting", 10, "the page waits")
        return picture_in_time(browser, host.start)
    page = in_one_attempt(restart)
    check(page["counter"] < 10 * FPS, f"an old picture: {page}")
    check(browser.run("return window.kept === true"), "the page has been loaded again")


def check_keys(browser):
    browser.press("m")
    check(not browser.run("return document.querySelector('video').muted"), "M: no sound")
    browser.press("k")
    check(browser.read_page()["state"] == "paused", "K: no pause")
    browser.press(" ")
    wait_for_picture(browser)
    browser.press("f")
    wait_until(lambda: browser.run("return document.fullscreenElement !== null"), 3, "F: full screen")
    browser.press("f")


def check_layout(browser):
    """On a phone nothing is cut off; the dark page is dark."""
    metrics = {"width": 360, "height": 740, "deviceScaleFactor": 2, "mobile": True}
    browser.devtools("Emulation.setDeviceMetricsOverride", metrics)
    fits = browser.run("""
        return [...document.querySelectorAll('video, button, #state')].every((element) => {
          const box = element.getBoundingClientRect();
          return box.width > 0 && box.left >= 0 && box.right <= 360 && box.bottom <= 740;
        });""")
    check(fits, "the page does not fit on a phone")
    colours = []
    for scheme in ("light", "dark"):
        browser.devtools("Emulation.setEmulatedMedia",
                         {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
        colours.append(browser.run("return getComputedStyle(document.body).backgroundColor"))
    check(colours[0] != colours[1], f"light and dark are {colours}")


def play(browser, page, player, host):
    url = f"{page}?player={player}"
    in_one_attempt(lambda: picture_in_time(browser, lambda: browser.open(url)))
    with_hls_js = browser.run("return document.querySelector('video').src.startsWith('blob:')")
    check(with_hls_js == (player == "hls.js"), "the page uses the wrong player")
    in_one_attempt(lambda: check_plays_on(browser))
    check_layout(browser)
    check_keys(browser)
    check(not browser.errors(), "errors on the console")
    check_survives_restart(browser, host)


def test(player, live_host):
    require_programs("ffmpeg", "nginx", "curl", "setpriv", "chromium", "chromedriver")
    if player == "hls.js" and not (SOURCE / "examples/relay/node_modules/hls.js").exists():
        raise Skipped("hls.js is not installed (npm ci in examples/relay)")
    check(CLIP * FPS < 1 << BITS, "the clip's counter overflows")
    make_clip("clip.h264", CLIP)
    host = Host([live_host], "--audio", SOUND, "--video", "clip.h264")
    relay = Relay(host.url())
    wait_until(lambda: len(relay.segments()) >= 2, 10, "a stream")
    with contextlib.closing(Browser()) as browser:
        play(browser, relay.page, player, host)


if __name__ == "__main__":
    os.environ["PATH"] += ":/usr/sbin"  # not in the search path of ordinary users
    sys.exit(run_test(test, *sys.argv[1:], seconds=170))
