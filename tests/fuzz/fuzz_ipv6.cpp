// SPDX-License-Identifier: MIT
// Address text in both directions, against the system's own conversion where the two agree.
#include <arpa/inet.h>

#include <cstring>

#include "cbb.h"
#include "fuzz_support.h"

namespace {

// In memory of exactly the stated size; IPv4 needs a byte more.
void CheckPrinted(int nFamily, const uint8_t* pAddr) {
    char szExpected[INET6_ADDRSTRLEN] = {};
    inet_ntop(nFamily, pAddr, szExpected, sizeof(szExpected));
    // Kept: an embedded IPv4 address of more than 8 characters is not printed.
    const char* szDotted = strchr(szExpected, '.') == nullptr ? nullptr : strrchr(szExpected, ':');
    const bool bNever = szDotted != nullptr && strlen(szDotted + 1) > 8;
    for (const size_t nRoom : {strlen(szExpected), strlen(szExpected) + 1, size_t{64}}) {
        std::vector<char> out(nRoom);
        const auto nSize = static_cast<int32_t>(nFamily == AF_INET ? nRoom - 1 : nRoom);
        const bool bFits = nRoom > strlen(szExpected) && !bNever;
        const bool bPrinted = CBB_InetNtop(nFamily, pAddr, out.data(), nSize) != nullptr;
        FUZZ_CHECK(bPrinted == bFits && (!bPrinted || strcmp(out.data(), szExpected) == 0));
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    const std::string text = std::string(pData, pData + nSize).c_str();
    uint8_t expected[16] = {};
    CBB_ADDR_T addr{};
    const bool bRead = CBB_MakeAddrByString(AF_INET6, text.c_str(), 554, &addr) == 0;
    const uint8_t* pRead = addr.SA.sin6.sin6_addr.s6_addr;
    // Kept differences: a leading "::" is not expanded, and no dotted end follows a "::".
    if (inet_pton(AF_INET6, text.c_str(), expected) == 1 && text[0] != ':' &&
        (text.find("::") == text.npos || text.find('.') == text.npos)) {
        FUZZ_CHECK(bRead && memcmp(expected, pRead, sizeof(expected)) == 0);
    }
    if (bRead) {
        CheckPrinted(AF_INET6, pRead);
        FUZZ_CHECK(CBB_GetAddrPort(&addr) == 554);
    }
    uint8_t four[4] = {};
    if (CBB_InetPton(text.c_str(), four) == 0) {
        CheckPrinted(AF_INET, four);
    } else {
        FUZZ_CHECK(inet_pton(AF_INET, text.c_str(), expected) != 1);
    }
    if (nSize >= sizeof(expected)) {
        CheckPrinted(AF_INET6, pData);
    }
    return 0;
}
