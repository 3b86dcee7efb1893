// SPDX-License-Identifier: MIT
#include "host.h"

#include <glib-unix.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

constexpr guint TICK_MS = 20;
constexpr gint64 LATENCY_INTERVAL = G_USEC_PER_SEC / 2;
constexpr GstClockTime LATENCY_STEP = 5 * GST_MSECOND;
constexpr gint64 START_LIMIT = 10 * G_USEC_PER_SEC;

bool Carries(const CSource& source, const CStream* pStream) {
    const auto& streams = source.Feed().Streams();
    return std::find(streams.begin(), streams.end(), pStream) != streams.end();
}

}  // namespace

// An event of a session, on its way to the main thread.
struct CHost::CEvent {
    CHost* pHost;
    int32_t nEvent;
    int32_t nSessionId;
    int32_t nChannel;
    int32_t nType;
};

CHost::CHost(const CArguments& arguments)
    : m_arguments(arguments), m_pLoop(g_main_loop_new(nullptr, FALSE)) {
    for (const CSourceArgument& source : arguments.sources)
        AddSource(source);
}

void CHost::AddSource(const CSourceArgument& argument) {
    static const char* const NAMES[] = {" main", " sub", " audio"};
    std::vector<CStream*> streams;
    if (argument.emKind != ESourceKind::eAudio) {
        const bool bMain = argument.emKind == ESourceKind::eMain;
        streams.push_back(&m_streams.emplace_back(argument.nChannel,
                                                  bMain ? RTSPS_STREAM_MAIN : RTSPS_STREAM_SUB));
    } else {
        for (CStream& stream : m_streams) {
            if (stream.Channel() == argument.nChannel)
                streams.push_back(&stream);
        }
    }
    m_sources.emplace_back(
        "chan" + std::to_string(argument.nChannel) + NAMES[static_cast<int>(argument.emKind)],
        argument.strPipeline, argument.emKind != ESourceKind::eAudio, std::move(streams));
}

bool CHost::Run() {
    TRtspServerPara para = {};
    para.nServerPort = static_cast<uint32_t>(m_arguments.nPort);
    para.nMinPort = m_arguments.nMinDataPort;
    para.nMaxPort = m_arguments.nMaxDataPort;
    RTSPServer_Init(&para);
    RTSPServer_SetEventCallBack(OnEvent, this);
    g_unix_signal_add(SIGINT, OnStop, this);
    g_unix_signal_add(SIGTERM, OnStop, this);
    g_timeout_add(TICK_MS, OnTick, this);
    m_begin = g_get_monotonic_time();
    if (std::all_of(m_sources.begin(), m_sources.end(),
                    [this](CSource& s) { return s.Prepare() || Fail(s.Error()); }))
        g_main_loop_run(m_pLoop);
    RTSPServer_Stop();
    RTSPServer_Release();
    return m_strError.empty();
}

gboolean CHost::OnStop(gpointer pSelf) {
    g_main_loop_quit(static_cast<CHost*>(pSelf)->m_pLoop);
    return G_SOURCE_CONTINUE;
}

gboolean CHost::OnTick(gpointer pSelf) {
    auto& host = *static_cast<CHost*>(pSelf);
    if (!host.Work())
        g_main_loop_quit(host.m_pLoop);
    return G_SOURCE_CONTINUE;
}

bool CHost::Work() {
    for (CSource& source : m_sources) {
        if (!source.Work())
            return Fail(source.Error());
    }
    const gint64 now = g_get_monotonic_time();
    if (now - m_lastLatency > LATENCY_INTERVAL) {
        m_lastLatency = now;
        EqualiseLatency();
    }
    const gint64 spent = now - m_begin;
    if (m_emPhase == EPhase::eServing)
        return m_arguments.nSeconds == 0 || spent < gint64{m_arguments.nSeconds} * G_USEC_PER_SEC;
    return Advance();
}

// All pipelines start to play together, so that pipelines that play files stay synchronous. The
// server starts when the format of every stream is known.
bool CHost::Advance() {
    if (m_emPhase == EPhase::eOpening) {
        const auto isOpen = [](const CSource& source) { return source.Feed().IsOpen(); };
        return !std::all_of(m_sources.begin(), m_sources.end(), isOpen) || StartServer();
    }
    for (const CSource& source : m_sources) {
        if (!source.IsPrepared())
            return g_get_monotonic_time() - m_begin < START_LIMIT ||
                   Fail(source.Name() + ": the pipeline does not start");
    }
    m_emPhase = EPhase::eOpening;
    for (CSource& source : m_sources)
        source.SetWanted(true);
    return true;
}

bool CHost::StartServer() {
    for (const CStream& stream : m_streams) {
        if (!Declare(stream))
            return false;
    }
    if (RTSPServer_Start() != 0)
        return Fail("cannot serve on TCP port " + std::to_string(m_arguments.nPort) +
                    "; is it in use?");
    m_emPhase = EPhase::eServing;
    m_begin = g_get_monotonic_time();
    FollowViewers();
    std::printf("Open one of these; from other machines, with the address of this one:\n");
    for (const CStream& stream : m_streams)
        std::printf("  rtsp://127.0.0.1:%d/chan%d/%s/\n", m_arguments.nPort, stream.Channel(),
                    stream.Type() == RTSPS_STREAM_MAIN ? "main" : "sub");
    std::printf("Ctrl-C stops.\n");
    return true;
}

bool CHost::Declare(const CStream& stream) {
    TRtspServerStreamInfo info = {};
    info.dwAudioFormat = RTSPS_AUDIO_STREAM_TYPE_UNDEF;
    for (const CSource& source : m_sources) {
        if (!Carries(source, &stream))
            continue;
        const CRtpFormat& format = source.Feed().Format();
        const bool bVideo = source.Feed().IsVideo();
        (bVideo ? info.byVideoPayload : info.byAudioPayload) = format.byPayloadType;
        (bVideo ? info.dwVideoSSrc : info.dwAudioSSrc) = format.dwSsrc;
        (bVideo ? info.dwVideoFormat : info.dwAudioFormat) = format.dwCoding;
    }
    // The server assigns a push to video or audio by its payload type.
    if (info.dwAudioFormat != RTSPS_AUDIO_STREAM_TYPE_UNDEF &&
        info.byAudioPayload == info.byVideoPayload)
        return Fail("video and audio have the same payload type; set pt of a payloader");
    return RTSPServer_SetStreamInfo(stream.Channel(), stream.Type(), &info) == 0 ||
           Fail("out of memory");
}

// Called on the client's own thread, which must not wait, so the main thread does the work.
void CHost::OnEvent(int32_t nEvent, int32_t nSessionId, void* pData, int32_t nLen, void* pSelf) {
    TRtspServerEventInfo info = {};
    const bool bMatters = nEvent == RTSPS_EVENT_PLAYING || nEvent == RTSPS_EVENT_TORN_DOWN ||
                          nEvent == RTSPS_EVENT_CLOSED;
    if (!bMatters || nLen < static_cast<int32_t>(sizeof(info)))
        return;
    std::memcpy(&info, pData, sizeof(info));
    const CEvent event = {static_cast<CHost*>(pSelf), nEvent, nSessionId, info.nChan,
                          info.nStreamType};
    g_idle_add_full(G_PRIORITY_DEFAULT, OnMainLoop, g_memdup2(&event, sizeof(event)), g_free);
}

gboolean CHost::OnMainLoop(gpointer pEvent) {
    const auto& event = *static_cast<const CEvent*>(pEvent);
    CHost& host = *event.pHost;
    const CStream* pStream = host.FindStream(event.nChannel, event.nType);
    if (event.nEvent != RTSPS_EVENT_PLAYING)
        host.m_viewers.erase(event.nSessionId);
    else if (pStream != nullptr)
        host.m_viewers[event.nSessionId] = pStream;
    host.FollowViewers();
    for (CSource& source : host.m_sources) {
        if (event.nEvent == RTSPS_EVENT_PLAYING && source.Feed().IsVideo() &&
            Carries(source, pStream))
            source.RequestKeyFrame();
    }
    return G_SOURCE_REMOVE;
}

CStream* CHost::FindStream(int nChannel, int nType) {
    for (CStream& stream : m_streams) {
        if (stream.Channel() == nChannel && stream.Type() == nType)
            return &stream;
    }
    return nullptr;
}

void CHost::FollowViewers() {
    for (CSource& source : m_sources) {
        const bool bWatched =
            std::any_of(m_viewers.begin(), m_viewers.end(),
                        [&](const auto& viewer) { return Carries(source, viewer.second); });
        source.SetWanted(bWatched || !m_arguments.bRest);
    }
}

// To keep pictures and sound synchronous, all packets of a channel are sent with the same delay
// after their capture. The delay is that of the slowest pipeline, and at most what the elements
// report.
void CHost::EqualiseLatency() {
    std::map<int, GstClockTime> most;
    std::map<int, GstClockTime> lateness;
    const auto channel = [](const CSource& s) { return s.Feed().Streams().front()->Channel(); };
    for (CSource& source : m_sources) {
        const int nChannel = channel(source);
        most[nChannel] = std::max(most[nChannel], source.MostLatency());
        lateness[nChannel] = std::max(lateness[nChannel], source.TakeLateness());
    }
    for (CSource& source : m_sources) {
        const int nChannel = channel(source);
        GstClockTime& latency = m_latencies[nChannel];
        const GstClockTime due = std::min(most[nChannel], lateness[nChannel]);
        if (due > latency + LATENCY_STEP)
            latency = due;
        source.SetLatency(latency);
    }
}

bool CHost::Fail(const std::string& what) {
    m_strError = what;
    return false;
}
