// SPDX-License-Identifier: MIT
// The framing of the receive buffer, which fills in arbitrary pieces.
#include <algorithm>
#include <utility>

#include "fuzz_support.h"
#include "rtsps_session.h"

namespace {

// The rules once more: the result, and the length of what was found.
std::pair<int, size_t> Expected(const std::string& held, size_t nBufSize) {
    const auto byte = [&held](size_t i) { return static_cast<uint8_t>(held[i]); };
    if (held.size() < 4) {
        return {2, 0};
    }
    if (held[0] == '$' && byte(1) <= 7) {
        const size_t nFrame = size_t{byte(2)} * 256 + byte(3) + 4;
        return nFrame <= held.size() ? std::pair(1, nFrame) : std::pair(2, size_t{0});
    }
    const size_t nHead = std::string(held.c_str()).find("\r\n\r\n");  // a NUL hides the rest
    if (nHead != held.npos) {
        return {0, nHead + 4};
    }
    return {held.size() * 2 <= nBufSize ? 2 : -1, 0};
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    CFuzzInput input(pData, nSize);
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
    return 0;
}
