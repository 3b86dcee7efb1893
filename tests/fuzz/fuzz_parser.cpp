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
    FUZZ_CHECK(msg->ContentLen() >= 0 && msg->ContentLen() <= CRtspMsg::CONTENT_SIZE);
    const std::string written = WrittenBy(*msg);
    std::string binary(CRtspMsg::HEAD_BUFFER_SIZE + CRtspMsg::CONTENT_SIZE, '\0');
    const int nBinary = msg->as_binary(binary.data(), static_cast<int>(binary.size()));
    const auto nHead = static_cast<size_t>(std::max(nBinary - msg->ContentLen(), 0));
    FUZZ_CHECK(written.compare(0, nHead, binary, 0, nHead) == 0);
    FUZZ_CHECK(nBinary >= 0 || written.empty() || written.size() >= CRtspMsg::HEAD_BUFFER_SIZE);
    // The written text is parsed as a message with the same first line.
    const auto readBack = Parse(written.data(), written.size());
    const size_t nLine = written.find("\r\n");
    FUZZ_CHECK(readBack == nullptr ||
               WrittenBy(*readBack).compare(0, nLine, written, 0, nLine) == 0);
}
