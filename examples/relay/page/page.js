// SPDX-License-Identifier: MIT
// Plays the relay's stream, and plays it again after every interruption. With either player, the page
// itself reads the playlist once per second. The playlist shows whether there is a stream, and whether
// the relay has started a new run. A new run is a new stream, so it needs a new player.
"use strict";

// The user and password that the page's address may contain are removed: fetch rejects them.
const PLAYLIST = new URL("live/stream.m3u8", location.origin + location.pathname).href;
const HLS_TYPE = "application/vnd.apple.mpegurl";
// Milliseconds between two requests for the playlist.
const LIVE_TICK = 1000;
const WAITING_TICK = 500;
// Milliseconds without a new picture after which the player is removed: before its first picture, and
// after it.
const START_LIMIT = 6000;
const STALL_LIMIT = 1500;
// After this many players in a row without a picture, the page reports that the browser cannot play
// the stream.
const FAILURES = 3;
// Number of segments that a player needs in the playlist when it starts. Chromium's own player loads
// two, and fails ("Segment queue never had any data") when the playlist has no third one yet.
const OWN_SEGMENTS = 3;
const HLS_JS_SEGMENTS = 2;

const video = document.getElementById("video");
const buttons = {};
for (const id of ["play", "sound", "full"])
  buttons[id] = document.getElementById(id);

let useHlsJs = false;  // the browser cannot play HLS itself
let hls = null;        // the player of hls.js
let run = null;        // the run that the player plays; null: there is no player
let playlist = "";     // as last read; "": there is none
let endedAt = "";      // the playlist when the last player was removed
let shown = false;     // the player has shown a picture
let movedAt = 0;       // when the picture last moved
let position = 0;
let failures = 0;
let paused = false;    // the viewer has paused

function show(state, text) {
  document.body.dataset.state = state;
  const field = document.getElementById("state");
  if (field.textContent !== text)
    field.textContent = text;
}

// Returns whether hls.js is installed and supports this browser.
function loadHlsJs() {
  if (window.Hls !== undefined)
    return window.Hls.isSupported();
  return new Promise((resolve) => {
    const script = document.createElement("script");
    script.src = "hls.js";
    script.onload = () => resolve(window.Hls.isSupported());
    script.onerror = () => resolve(false);
    document.head.append(script);
  });
}

// ?player=hls.js selects hls.js also in browsers that play HLS themselves.
async function choosePlayer() {
  const asked = new URLSearchParams(location.search).get("player") === "hls.js";
  const own = video.canPlayType(HLS_TYPE) !== "";
  useHlsJs = (asked || !own) && await loadHlsJs();
  return own || useHlsJs;
}

function attach(newRun) {
  run = newRun;
  shown = false;
  movedAt = performance.now();
  position = 0;
  if (useHlsJs) {
    hls = new window.Hls({ enableWorker: false, liveSyncDurationCount: 2,
                           liveMaxLatencyDurationCount: 5 });
    hls.on(window.Hls.Events.ERROR, (_, error) => {
      if (error.fatal)
        giveUp();
    });
    hls.loadSource(PLAYLIST);
    hls.attachMedia(video);
  } else {
    video.src = PLAYLIST;
  }
  video.play().catch((error) => {
    if (error.name === "NotAllowedError")
      setPaused(true);
  });
}

function detach() {
  // While the playlist does not change, a new player would only repeat the last seconds.
  endedAt = runOf(playlist) === run ? playlist : "";
  run = null;
  if (hls !== null)
    hls.destroy();
  hls = null;
  video.removeAttribute("src");
  video.load();
}

// The next tick removes the player.
function giveUp() {
  movedAt = -Infinity;
}

function watchPicture() {
  if (run === null || video.currentTime === position || video.readyState < 2)
    return;
  const back = video.currentTime < position - 0.5;
  position = video.currentTime;
  if (back) {
    // When a stream has stopped, Chromium's own player repeats the segments that it still holds.
    detach();
    show("waiting", "Waiting for the camera");
    return;
  }
  movedAt = performance.now();
  if (position > 0.2 && !shown) {
    shown = true;
    failures = 0;
    show("live", "Live");
  }
}

// Returns the playlist, or "" while there is none.
async function fetchPlaylist() {
  const reply = await fetch(PLAYLIST, { cache: "no-cache", signal: AbortSignal.timeout(3000) });
  if (reply.status === 404)
    return "";
  if (!reply.ok)
    throw new Error(`The server answers ${reply.status}`);
  return reply.text();
}

// Returns the name of the stream's current run, or null while the playlist has too few segments.
function runOf(playlist) {
  const map = /#EXT-X-MAP:URI="([^"]+)"/.exec(playlist);
  const segments = playlist.split("#EXTINF:").length - 1;
  return map === null || segments < (useHlsJs ? HLS_JS_SEGMENTS : OWN_SEGMENTS) ? null : map[1];
}

function isStalled() {
  watchPicture();
  return run !== null && performance.now() - movedAt > (shown ? STALL_LIMIT : START_LIMIT);
}

// Removes the player when its picture stands still, or when the relay has started a new run.
async function endOldPlayer(newRun) {
  const stalled = isStalled();
  if (run === null || !stalled && (newRun === null || newRun === run))
    return;
  const failed = stalled && !shown && newRun === run;
  detach();
  if (failed && !useHlsJs && await loadHlsJs())
    useHlsJs = true;
  else if (failed)
    failures++;
}

async function follow() {
  const newRun = runOf(playlist);
  await endOldPlayer(newRun);
  if (run === null && newRun !== null && playlist !== endedAt)
    attach(newRun);
  if (run !== null && shown)
    show("live", "Live");
  else if (failures >= FAILURES)
    show("error", "This browser cannot play the stream");
  else
    show("waiting", newRun === null ? "Waiting for the camera" : "Starting");
}

async function tick() {
  if (paused)
    return;
  try {
    playlist = await fetchPlaylist();
    if (!paused)
      await follow();
  } catch (error) {
    if (isStalled())
      detach();
    if (run === null)
      show("error", error instanceof TypeError || error.name === "TimeoutError"
        ? "The server does not answer" : error.message);
  }
}

function setPaused(value) {
  paused = value;
  buttons.play.textContent = paused ? "Play" : "Pause";
  if (paused) {
    video.pause();
    if (hls !== null)
      hls.stopLoad();
    show("paused", "Paused");
  } else {
    // A new player starts at the live position.
    detach();
    show("waiting", "Starting");
  }
}

function setSound(on) {
  video.muted = !on;
  buttons.sound.setAttribute("aria-pressed", String(on));
}

function toggleFullScreen() {
  const frame = document.getElementById("frame");
  if (document.fullscreenElement !== null)
    document.exitFullscreen();
  else if (frame.requestFullscreen)
    frame.requestFullscreen();
  else
    video.webkitEnterFullscreen();  // iPhone
}

const ACTIONS = {
  play: () => setPaused(!paused),
  sound: () => setSound(video.muted),
  full: toggleFullScreen,
};
const KEYS = { " ": "play", k: "play", m: "sound", f: "full" };

function listenToViewer() {
  for (const [id, action] of Object.entries(ACTIONS))
    buttons[id].addEventListener("click", action);
  document.addEventListener("keydown", (event) => {
    const id = KEYS[event.key.toLowerCase()];
    const onButton = event.target instanceof HTMLButtonElement && event.key === " ";
    if (id === undefined || onButton || event.repeat || event.ctrlKey || event.altKey || event.metaKey)
      return;
    event.preventDefault();
    ACTIONS[id]();
  });
}

async function main() {
  listenToViewer();
  video.addEventListener("error", giveUp);
  video.addEventListener("timeupdate", watchPicture);
  if (!await choosePlayer()) {
    show("error", "This browser needs hls.js: start the relay with --hls-js");
    return;
  }
  for (;;) {
    await tick();
    const pause = run !== null && shown ? LIVE_TICK : WAITING_TICK;
    await new Promise((resolve) => setTimeout(resolve, pause));
  }
}

main();
