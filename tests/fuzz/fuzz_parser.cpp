// SPDX-License-Identifier: MIT
// The message parser, and the writing of parsed messages.
#include <memory>

#include "fuzz_support.h"
#include "rtsp_msg.h"
#include "rtsp_msg_parser.h"

// The bytes are the text and the body.
static void CheckBytes(const CRtspMsg& msg, const std::string& written) {
    std::string out(CRtspMsg::HEAD_BUFFER_SIZE + CRtspMsg::CONTENT_SIZE, '\0');
    const int nBytes = msg.as_binary(out.data(), static_cast<int>(out.size()));
    if (nBytes < 0) {
        FUZZ_CHECK(written.empty() || written.size() >= CRtspMsg::HEAD_BUFFER_SIZE);
        return;
    }
    const auto nHead = static_cast<size_t>(nBytes - msg.ContentLen());
    FUZZ_CHECK(written.compare(0, nHead, out, 0, nHead) == 0);
    FUZZ_CHECK(memcmp(&out[nHead], msg.Content(), static_cast<size_t>(msg.ContentLen())) == 0);
}

void Fuzz(CFuzzInput input) {
    CRtspMsgParser parser;
    const auto Parse = [&parser](const void* p, size_t n) {
        const auto* pText = static_cast<const char*>(p);
        return std::unique_ptr<CRtspMsg>(parser.parse(pText, static_cast<int>(n)));
    };
    const Bytes bytes = input.All();
    const auto msg = Parse(bytes.data(), bytes.size());
    if (msg == nullptr) {
        return;
    }
    FUZZ_CHECK(msg->ContentLen() >= 0 && msg->ContentLen() <= CRtspMsg::CONTENT_SIZE);
    const std::string written = WrittenBy(*msg);
    CheckBytes(*msg, written);
    // The written text is parsed as the same request. The parser keeps no state, so the same bytes
    // give the same message.
    const auto readBack = Parse(written.data(), written.size());
    const auto same = Parse(bytes.data(), bytes.size());
    FUZZ_CHECK(same != nullptr && WrittenBy(*same) == written);
    const auto* pRequest = dynamic_cast<const CRtspRequest*>(msg.get());
    if (pRequest != nullptr && readBack != nullptr) {
        const auto* pAgain = dynamic_cast<const CRtspRequest*>(readBack.get());
        FUZZ_CHECK(pAgain != nullptr && strcmp(pAgain->URL(), pRequest->URL()) == 0 &&
                   strcmp(pAgain->Method(), pRequest->Method()) == 0);
    }
}
