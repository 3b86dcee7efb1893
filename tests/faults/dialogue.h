// SPDX-License-Identifier: MIT
#ifndef DIALOGUE_H
#define DIALOGUE_H

#include <string>

#include "support/test_net.h"

inline const std::string UDP = "RTP/AVP;unicast;client_port=";
inline const std::string TCP = "RTP/AVP/TCP;unicast;client_port=";
inline const std::string INTERLEAVED = "RTP/AVP/TCP;unicast;interleaved=0-1";

enum EState { CONNECTED, IN_A_REQUEST, DESCRIBED, SET_UP, PLAYING, TORN_DOWN };

inline bool Ok(const std::string& reply, const std::string& needed = "") {
    return reply.rfind("RTSP/1.0 200 OK\r\n", 0) == 0 && reply.find(needed) != std::string::npos;
}

// Brings a client into a state, and says whether all its requests were answered in full. `media`
// becomes its socket for media that are not interleaved.
inline bool Reach(EState state, const std::string& transport, CTestClient* client,
                  CTestSocket* media, int nRecvBuffer = 0) {
    *media = CTestSocket::BindUdp();
    bool ok = Ok(client->Ask("OPTIONS", client->Url()));
    if (state == IN_A_REQUEST) {
        return ok && client->Socket().Send("DESCRIBE rtsp://");
    }
    ok = ok && (state < DESCRIBED || Ok(client->Describe(), "Content-Length: "));
    if (ok && state >= SET_UP) {
        const bool hasPorts = transport != INTERLEAVED;
        const std::string reply =
            client->Setup(0, transport + (hasPorts ? std::to_string(media->Port()) : ""));
        ok = Ok(reply, transport) && Ok(reply, hasPorts ? "server_port=" : "");
        if (ok && transport == TCP) {
            const unsigned port = TransportNumber(reply, "server_port");
            *media = CTestSocket::ConnectTcp(static_cast<uint16_t>(port), nRecvBuffer);
        }
    }
    // The second answer says that the session plays.
    return ok && (state < PLAYING || (Ok(client->Play()) && Ok(client->Ask("HEARTBEAT", "*")))) &&
           (state < TORN_DOWN || Ok(client->Ask("TEARDOWN", client->Url())));
}

#endif
