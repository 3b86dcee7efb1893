// SPDX-License-Identifier: MIT
// The framing of the receive buffer, which fills in arbitrary pieces.
#include <utility>

#include "fuzz_support.h"
#include "rtsps_session.h"

// A second implementation of the rules: the result, and the length of the message or frame.
static std::pair<int, size_t> Expected(const std::string& held, size_t nBufSize) {
    const auto* p = reinterpret_cast<const uint8_t*>(held.data());
    if (held.size() >= 4 && p[0] == '$' && p[1] <= 7) {
        const size_t nFrame = size_t{ReadBe16(p + 2)} + 4;
        return nFrame <= held.size() ? std::pair(1, nFrame) : std::pair(2, size_t{0});
    }
    const size_t nHead = std::string(held.c_str()).find("\r\n\r\n");  // a NUL hides the rest
    const bool bRoom = held.size() * 2 <= nBufSize;
    return nHead != held.npos ? std::pair(0, nHead + 4) : std::pair(bRoom ? 2 : -1, size_t{0});
}

void Fuzz(CFuzzInput input) {
    const size_t nBufSize = 8 + size_t{input.Byte()} * 2;
    std::string held;
    while (!input.Empty() && held.size() < nBufSize) {
        const size_t nPiece = size_t{input.Byte()} + 1;
        held += input.Text(std::min(nPiece, nBufSize - held.size()));
        // In memory of exactly its size.
        const std::vector<char> buffer(held.c_str(), held.c_str() + held.size() + 1);
        const auto expected = Expected(held, nBufSize);
        int nLen = 0;
        const int nResult = CRtspSession::check_packet(buffer.data(), static_cast<int>(nBufSize),
                                                       static_cast<int>(held.size()), nLen);
        FUZZ_CHECK(nResult == expected.first && nLen == static_cast<int>(expected.second));
        held.resize(nResult == -1 ? 0 : held.size() - expected.second);
    }
}
