// SPDX-License-Identifier: MIT
// The message parser, and the writing of parsed messages.
#include <memory>

#include "fuzz_support.h"
#include "rtsp_msg.h"
#include "rtsp_msg_parser.h"

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
    const std::string written = WrittenBy(*msg);
    std::string binary(CRtspMsg::HEAD_BUFFER_SIZE + CRtspMsg::CONTENT_SIZE, '\0');
    const int nBinary = msg->as_binary(binary.data(), static_cast<int>(binary.size()));
    const size_t nHead = written.find("\r\n\r\n") + 4;
    const bool bFits = !written.empty() && nHead < CRtspMsg::HEAD_BUFFER_SIZE;
    FUZZ_CHECK(nBinary == (bFits ? static_cast<int>(nHead) + msg->ContentLen() : -1));
    FUZZ_CHECK(!bFits || written.compare(0, nHead, binary, 0, nHead) == 0);
    // The written text is parsed as a message with the same first line.
    const auto readBack = Parse(written.data(), written.size());
    const size_t nLine = written.find("\r\n");
    FUZZ_CHECK(readBack == nullptr ||
               WrittenBy(*readBack).compare(0, nLine, written, 0, nLine) == 0);
}
