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
    std::vector<char> buffer(nBufSize + 1);
    size_t nHeld = 0;
    while (!input.Empty() && nHeld < nBufSize) {
        const size_t nPiece = size_t{input.Byte()} + 1;
        const std::string piece = input.Text(std::min(nPiece, nBufSize - nHeld));
        piece.copy(buffer.data() + nHeld, piece.size());
        nHeld += piece.size();
        buffer[nHeld] = '\0';
        const auto expected = Expected(std::string(buffer.data(), nHeld), nBufSize);
        int nLen = 0;
        const int nResult = CRtspSession::check_packet(buffer.data(), static_cast<int>(nBufSize),
                                                       static_cast<int>(nHeld), nLen);
        FUZZ_CHECK(nResult == expected.first && nLen == static_cast<int>(expected.second));
        nHeld = nResult == -1 ? 0 : nHeld - expected.second;
    }
}
