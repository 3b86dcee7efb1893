// SPDX-License-Identifier: MIT
// The message parser, and what the handlers do with a message that came from it.
#include <cstring>
#include <memory>

#include "fuzz_support.h"
#include "rtsp_msg.h"
#include "rtsp_msg_parser.h"

namespace {

std::unique_ptr<CRtspMsg> Parse(CRtspMsgParser& parser, const char* pText, size_t nSize) {
    return std::unique_ptr<CRtspMsg>(parser.parse(pText, static_cast<int>(nSize)));
}

// The bytes are the text and the body, and need exactly the room that they take.
void CheckBytes(const CRtspMsg& msg, const std::string& written) {
    std::string out(CRtspMsg::HEAD_BUFFER_SIZE + CRtspMsg::CONTENT_SIZE, '\0');
    const int nBytes = msg.as_binary(out.data(), static_cast<int>(out.size()));
    if (nBytes < 0) {
        FUZZ_CHECK(written.empty() || written.size() >= CRtspMsg::HEAD_BUFFER_SIZE);
        return;
    }
    const auto nBody = static_cast<size_t>(msg.ContentLen());
    const size_t nHead = static_cast<size_t>(nBytes) - nBody;
    FUZZ_CHECK(written.compare(0, nHead, out, 0, nHead) == 0);
    FUZZ_CHECK(memcmp(out.data() + nHead, msg.Content(), nBody) == 0);
    std::vector<char> exact(static_cast<size_t>(nBytes));
    FUZZ_CHECK(msg.as_binary(exact.data(), nBytes) == nBytes);
    FUZZ_CHECK(msg.as_binary(exact.data(), nBytes - 1) == -1);
}

// Whatever the client sent, a reply ends at its first blank line.
void CheckReply(const CRtspMsg& msg, trans_protocol protocol) {
    CRtspResponse resp(RTSP_STATUS_200);
    unsigned char channels[2] = {};
    resp.append_cseq(&msg);
    resp.append_session_id(&msg);
    resp.append_transport(&msg, protocol, 0x1A2B3C4D, 6000, 6001, "192.0.2.1", &channels[0],
                          &channels[1]);
    char szReply[CRtspMsg::HEAD_BUFFER_SIZE] = {};
    const int nBytes = resp.as_binary(szReply, sizeof(szReply));
    FUZZ_CHECK(nBytes == -1 || strstr(szReply, "\r\n\r\n") == szReply + nBytes - 4);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    const auto* pText = reinterpret_cast<const char*>(pData);
    CRtspMsgParser parser;
    const auto msg = Parse(parser, pText, nSize);
    if (msg == nullptr) {
        return 0;
    }
    FUZZ_CHECK(msg->ContentLen() >= 0 && msg->ContentLen() <= CRtspMsg::CONTENT_SIZE);
    const std::string written = WrittenBy(*msg);
    CheckBytes(*msg, written);
    for (const auto protocol : {protocol_udp, protocol_mcast, protocol_over_rtsp}) {
        CheckReply(*msg, protocol);
    }
    // The parser keeps nothing, so the same bytes are the same message; and what was written is
    // read as the same request.
    const auto readBack = Parse(parser, written.data(), written.size());
    const auto same = Parse(parser, pText, nSize);
    FUZZ_CHECK(same != nullptr && WrittenBy(*same) == written);
    const auto* pRequest = dynamic_cast<const CRtspRequest*>(msg.get());
    if (pRequest != nullptr && readBack != nullptr) {
        const auto* pAgain = dynamic_cast<const CRtspRequest*>(readBack.get());
        FUZZ_CHECK(pAgain != nullptr && strcmp(pAgain->URL(), pRequest->URL()) == 0 &&
                   strcmp(pAgain->Method(), pRequest->Method()) == 0);
    }
    return 0;
}
