-- SPDX-License-Identifier: MIT
-- For wrk: each connection is a viewer of the relay's HLS. Twice per second it requests, in turn, the
-- playlist and the newest segment.
local asks_playlist = false
local segment = nil
local failed = 0

function setup(thread)
    thread:set("failed", 0)
    table.insert(threads, thread)
end
threads = {}

function delay()
    return 500
end

function request()
    asks_playlist = not asks_playlist
    if asks_playlist or segment == nil then
        return wrk.format("GET", "/live/stream.m3u8")
    end
    return wrk.format("GET", "/live/" .. segment)
end

function response(status, headers, body)
    if status ~= 200 then
        failed = failed + 1
    elseif body:sub(1, 7) == "#EXTM3U" then
        segment = body:match("([^\n]+%.m4s)\n*$")
    end
end

function done(summary, latency, requests)
    local errors = summary.errors
    local failed_all = 0
    for _, thread in ipairs(threads) do
        failed_all = failed_all + thread:get("failed")
    end
    print(string.format('{"seconds": %.3f, "requests": %d, "bytes": %d, "failed": %d, "p50_ms": %.1f, "p99_ms": %.1f}',
        summary.duration / 1e6, summary.requests, summary.bytes,
        failed_all + errors.connect + errors.read + errors.write + errors.timeout,
        latency:percentile(50) / 1000, latency:percentile(99) / 1000))
end
