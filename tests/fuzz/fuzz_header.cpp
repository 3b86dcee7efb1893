// SPDX-License-Identifier: MIT
// The header forms with special rules, and the reply to a Transport header. The first byte selects
// the form.
#include "fuzz_support.h"
#include "rtsp_msg.h"
#include "rtsp_msg_parser.h"

void Fuzz(CFuzzInput input) {
    static constexpr const char* NAMES[] = {"Transport", "Range",  "Session", "Authorization",
                                            "RTP-Info",  "Public", "CSeq"};
    const std::string name = NAMES[input.Byte() % std::size(NAMES)];
    const std::string line = name + ":" + input.Text();
    CRtspRequest request;
    bool outOfMemory = false;
    request.AddHeader(CRtspMsgParser()
                          .ParseHeader(line.data(), static_cast<int>(line.size()), &outOfMemory)
                          .release());
    FUZZ_CHECK(!outOfMemory && request.IsComplete());
    const CRtspHeader* pHeader = request.GetHeader(name.c_str());
    FUZZ_CHECK(pHeader != nullptr);
    const std::string written = WrittenBy(*pHeader);
    FUZZ_CHECK(written.find("\r\n") == written.size() - 2);
    CRtspResponse reply(RTSP_STATUS_200);
    for (const auto protocol : {protocol_udp, protocol_mcast, protocol_over_rtsp}) {
        unsigned char channels[2] = {};
        reply.append_transport(&request, protocol, 0x1A2B3C4D, 6000, 6001, "192.0.2.1",
                               &channels[0], &channels[1]);
    }
    FUZZ_CHECK(WrittenBy(reply).find("\r\n\r\n") == WrittenBy(reply).size() - 4);
}
