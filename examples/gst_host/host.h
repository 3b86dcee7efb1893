// SPDX-License-Identifier: MIT
// The host: starts sources and server, and controls the sources for the viewers. All functions but
// OnEvent run on the main thread, in its main loop, so that no lock is needed.
#ifndef GST_HOST_HOST_H
#define GST_HOST_HOST_H

#include <deque>
#include <map>
#include <string>

#include "arguments.h"
#include "source.h"

class CHost {
  public:
    explicit CHost(const CArguments& arguments);
    ~CHost() { g_main_loop_unref(m_pLoop); }
    CHost(const CHost&) = delete;
    CHost& operator=(const CHost&) = delete;

    // Serves until a signal, the end of --seconds or a failure. Returns false after a failure; see
    // Error().
    bool Run();
    const std::string& Error() const { return m_strError; }

  private:
    enum class EPhase { ePreparing, eOpening, eServing };
    struct CEvent;

    static void OnEvent(int32_t nEvent, int32_t nSessionId, void* pData, int32_t nLen, void* pSelf);
    static gboolean OnMainLoop(gpointer pEvent);
    static gboolean OnTick(gpointer pSelf);
    static gboolean OnStop(gpointer pSelf);

    void AddSource(const CSourceArgument& argument);
    CStream* FindStream(int nChannel, int nType);
    bool Work();
    bool Advance();
    bool StartServer();
    bool Declare(const CStream& stream);
    void FollowViewers();
    void EqualiseLatency();
    bool Fail(const std::string& what);

    const CArguments& m_arguments;
    GMainLoop* const m_pLoop;
    std::deque<CStream> m_streams;                // main and sub of every channel
    std::deque<CSource> m_sources;                // their pipelines
    std::map<int32_t, const CStream*> m_viewers;  // the stream that each session plays
    std::map<int, GstClockTime> m_latencies;      // by channel
    EPhase m_emPhase = EPhase::ePreparing;
    gint64 m_begin = 0;        // start of the phase, as g_get_monotonic_time
    gint64 m_lastLatency = 0;  // last call of EqualiseLatency
    std::string m_strError;
};

#endif
