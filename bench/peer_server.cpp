// SPDX-License-Identifier: MIT
// A server for comparison: GStreamer's RTSP server library, which serves the same clip at the same
// URL. Prints "ready" when it serves. A signal ends the clients and then the process.
#include <glib-unix.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <cstdio>
#include <string>

namespace {

constexpr int BACKLOG = 128;

// The clients set up the track under this name.
void NameTrack(GstRTSPMediaFactory*, GstRTSPMedia* pMedia, gpointer) {
    gst_rtsp_stream_set_control(gst_rtsp_media_get_stream(pMedia, 0), "streamid=0");
}

GstRTSPFilterResult EndClient(GstRTSPServer*, GstRTSPClient*, gpointer) {
    return GST_RTSP_FILTER_REMOVE;
}

struct CPeer {
    GstRTSPServer* pServer;
    GMainLoop* pLoop;
};

gboolean OnStop(gpointer pData) {
    const CPeer& peer = *static_cast<CPeer*>(pData);
    gst_rtsp_server_client_filter(peer.pServer, EndClient, nullptr);
    g_main_loop_quit(peer.pLoop);
    return G_SOURCE_REMOVE;
}

// One pipeline for all clients. As in the example host, packets have at most 1400 bytes of payload
// and each key picture has its parameter sets.
GstRTSPMediaFactory* MakeFactory(const char* pClip) {
    const std::string launch = "( multifilesrc loop=true location=" + std::string(pClip) +
                               " ! h264parse ! video/x-h264,stream-format=avc"
                               " ! rtph264pay name=pay0 pt=96 mtu=1412 config-interval=-1 )";
    GstRTSPMediaFactory* pFactory = gst_rtsp_media_factory_new();
    gst_rtsp_media_factory_set_launch(pFactory, launch.c_str());
    gst_rtsp_media_factory_set_shared(pFactory, TRUE);
    g_signal_connect(pFactory, "media-configure", G_CALLBACK(NameTrack), nullptr);
    return pFactory;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("Usage: peer_server PORT CLIP\n", stderr);
        return 2;
    }
    gst_init(nullptr, nullptr);
    CPeer peer = {gst_rtsp_server_new(), g_main_loop_new(nullptr, FALSE)};
    gst_rtsp_server_set_address(peer.pServer, "127.0.0.1");
    gst_rtsp_server_set_service(peer.pServer, argv[1]);
    gst_rtsp_server_set_backlog(peer.pServer, BACKLOG);
    GstRTSPMountPoints* pMounts = gst_rtsp_server_get_mount_points(peer.pServer);
    gst_rtsp_mount_points_add_factory(pMounts, "/chan1/main", MakeFactory(argv[2]));
    g_object_unref(pMounts);
    if (gst_rtsp_server_attach(peer.pServer, nullptr) == 0) {
        std::fprintf(stderr, "peer_server: cannot serve on port %s\n", argv[1]);
        return 1;
    }
    g_unix_signal_add(SIGTERM, OnStop, &peer);
    std::puts("ready");
    std::fflush(stdout);
    g_main_loop_run(peer.pLoop);
    g_object_unref(peer.pServer);
    g_main_loop_unref(peer.pLoop);
    return 0;
}
