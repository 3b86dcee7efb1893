// SPDX-License-Identifier: MIT
#include "arguments.h"

#include <gst/gst.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <tuple>

#include "rtsps_server_api.h"

namespace {

constexpr int LAST_DATA_PORT = RTSPS_MAX_DATA_PORT;

struct CReader {
    CArguments& arguments;
    int nChannel = 1;  // the channel of the next pipeline
};

const char* const EXAMPLE =
    "Each pipeline ends with an encoder or parser of H.264, H.265 or A-law, or with an RTP "
    "payloader:\n"
    "  gst_host --video 'videotestsrc is-live=true ! x264enc tune=zerolatency'\n"
    "           --audio 'audiotestsrc is-live=true ! alawenc'\n"
    "For several channels, repeat --channel and the pipelines.";

gboolean Refuse(GError** ppError, const char* pWhat) {
    g_set_error_literal(ppError, G_OPTION_ERROR, G_OPTION_ERROR_BAD_VALUE, pWhat);
    return FALSE;
}

gboolean TakePipeline(const gchar* pName, const gchar* pValue, gpointer pData, GError** ppError) {
    auto& reader = *static_cast<CReader*>(pData);
    const ESourceKind emKind = std::strcmp(pName, "--video") == 0 ? ESourceKind::eMain
                               : std::strcmp(pName, "--sub") == 0 ? ESourceKind::eSub
                                                                  : ESourceKind::eAudio;
    auto& sources = reader.arguments.sources;
    for (const CSourceArgument& other : sources) {
        if (other.nChannel == reader.nChannel && other.emKind == emKind)
            return Refuse(ppError, "a channel has at most one --video, one --sub and one --audio");
    }
    sources.push_back({reader.nChannel, emKind, pValue});
    return TRUE;
}

gboolean TakeChannel(const gchar*, const gchar* pValue, gpointer pData, GError** ppError) {
    gint64 number = 0;
    if (!g_ascii_string_to_signed(pValue, 10, 0, 9999, &number, nullptr))
        return Refuse(ppError, "--channel requires a number from 0 to 9999");
    static_cast<CReader*>(pData)->nChannel = static_cast<int>(number);
    return TRUE;
}

gboolean TakeDataPorts(const gchar*, const gchar* pValue, gpointer pData, GError** ppError) {
    CArguments& arguments = static_cast<CReader*>(pData)->arguments;
    const std::string text = pValue;
    const size_t dash = text.find('-');
    gint64 low = 0;
    gint64 high = 0;
    if (dash == std::string::npos ||
        !g_ascii_string_to_signed(text.substr(0, dash).c_str(), 10, 1024, LAST_DATA_PORT, &low,
                                  nullptr) ||
        !g_ascii_string_to_signed(text.c_str() + dash + 1, 10, low, LAST_DATA_PORT, &high,
                                  nullptr) ||
        low % 2 != 0)
        return Refuse(ppError, "--data-ports requires MIN-MAX, both from 1024 to 65533, MIN even");
    arguments.nMinDataPort = static_cast<int>(low);
    arguments.nMaxDataPort = static_cast<int>(high);
    return TRUE;
}

gboolean Check(GOptionContext*, GOptionGroup*, gpointer pData, GError** ppError) {
    const CReader& reader = *static_cast<CReader*>(pData);
    CArguments& arguments = reader.arguments;
    std::sort(arguments.sources.begin(), arguments.sources.end(), [](const auto& a, const auto& b) {
        return std::tie(a.nChannel, a.emKind) < std::tie(b.nChannel, b.emKind);
    });
    const auto hasMain = [&](int nChannel) {
        return std::any_of(arguments.sources.begin(), arguments.sources.end(), [&](const auto& s) {
            return s.nChannel == nChannel && s.emKind == ESourceKind::eMain;
        });
    };
    for (const CSourceArgument& source : arguments.sources) {
        if (!hasMain(source.nChannel))
            return Refuse(ppError, "--sub and --audio require a --video of the same channel");
    }
    if (!hasMain(reader.nChannel))
        return Refuse(ppError, "a --video is required; write --channel before its pipelines");
    if (arguments.nPort < 1 || arguments.nPort > 65535)
        return Refuse(ppError, "--port requires a number from 1 to 65535");
    return arguments.nSeconds >= 0 || Refuse(ppError, "--seconds requires a number of at least 0");
}

}  // namespace

bool ParseArguments(int argc, char** argv, CArguments& arguments) {
    CReader reader{arguments};
    // GLib stores functions in data pointers.
    const auto call = [](GOptionArgFunc pFunction) {
        return reinterpret_cast<gpointer>(pFunction);
    };
    const GOptionEntry entries[] = {
        {"video", 0, 0, G_OPTION_ARG_CALLBACK, call(TakePipeline), "video of the main stream",
         "PIPELINE"},
        {"sub", 0, 0, G_OPTION_ARG_CALLBACK, call(TakePipeline),
         "video of the sub stream (no sub stream)", "PIPELINE"},
        {"audio", 0, 0, G_OPTION_ARG_CALLBACK, call(TakePipeline),
         "audio of both streams (no audio)", "PIPELINE"},
        {"channel", 0, 0, G_OPTION_ARG_CALLBACK, call(TakeChannel),
         "the N of chanN in the URL, for the pipelines that follow (1)", "N"},
        {"port", 0, 0, G_OPTION_ARG_INT, &arguments.nPort, "TCP port for clients (8554)", "N"},
        {"data-ports", 0, 0, G_OPTION_ARG_CALLBACK, call(TakeDataPorts),
         "UDP ports for media, MIN even (20000-20998)", "MIN-MAX"},
        {"seconds", 0, 0, G_OPTION_ARG_INT, &arguments.nSeconds,
         "exit after N seconds (0: no limit)", "N"},
        {"rest", 0, 0, G_OPTION_ARG_NONE, &arguments.bRest,
         "pause each encoder while no client plays its stream", nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    const std::unique_ptr<GOptionContext, decltype(&g_option_context_free)> context(
        g_option_context_new("- serves GStreamer pipelines over RTSP"), g_option_context_free);
    GOptionGroup* pGroup = g_option_group_new("host", nullptr, nullptr, &reader, nullptr);
    g_option_group_add_entries(pGroup, entries);
    g_option_group_set_parse_hooks(pGroup, nullptr, Check);
    g_option_context_set_main_group(context.get(), pGroup);
    g_option_context_set_description(context.get(), EXAMPLE);
    g_option_context_add_group(context.get(), gst_init_get_option_group());
    GError* pError = nullptr;
    if (g_option_context_parse(context.get(), &argc, &argv, &pError) && argc == 1)
        return true;
    std::fprintf(
        stderr, "gst_host: %s (see --help)\n",
        pError != nullptr ? pError->message : "unexpected argument; all options begin with --");
    g_clear_error(&pError);
    return false;
}
