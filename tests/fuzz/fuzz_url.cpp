// SPDX-License-Identifier: MIT
// An accepted URL is the text in lower case, and selects the stream of its path. The conversions of
// addresses are compared with those of the system, except for the known differences.
#include <arpa/inet.h>
#include <strings.h>

#include "cbb.h"
#include "fuzz_support.h"
#include "rtsps_url.h"

static void CheckAddress(const std::string& text, const Bytes& bytes) {
    uint8_t expected[16] = {};
    CBB_ADDR_T addr{};
    const bool bRead = CBB_MakeAddrByString(AF_INET6, text.c_str(), 554, &addr) == 0;
    const uint8_t* pRead = addr.SA.sin6.sin6_addr.s6_addr;
    // Kept differences: a leading "::" is not expanded, and no dotted end follows a "::".
    if (inet_pton(AF_INET6, text.c_str(), expected) == 1 && text[0] != ':' &&
        (text.find("::") == text.npos || text.find('.') == text.npos)) {
        FUZZ_CHECK(bRead && memcmp(expected, pRead, sizeof(expected)) == 0);
    }
    const uint8_t* pAddr = bRead || bytes.size() < sizeof(expected) ? pRead : bytes.data();
    char szPrinted[INET6_ADDRSTRLEN] = {};
    inet_ntop(AF_INET6, pAddr, szPrinted, sizeof(szPrinted));
    // Kept: an embedded IPv4 address of more than 8 characters is not printed.
    const char* szDotted = strchr(szPrinted, '.') == nullptr ? nullptr : strrchr(szPrinted, ':');
    const bool bNever = szDotted != nullptr && strlen(szDotted + 1) > 8;
    std::vector<char> out(strlen(szPrinted) + 1);
    const char* sz = CBB_InetNtop(AF_INET6, pAddr, out.data(), static_cast<int32_t>(out.size()));
    FUZZ_CHECK(bNever ? sz == nullptr : sz != nullptr && strcmp(sz, szPrinted) == 0);
}

void Fuzz(CFuzzInput input) {
    const Bytes bytes = input.All();
    const std::string text = input.Text().c_str();  // up to the first NUL
    CheckAddress(text, bytes);
    const CRtspUrl url(text.c_str());
    tagRtspRequestCfg cfg{};
    url.get_req_cfg(&cfg);
    FUZZ_CHECK(cfg.nReqType == 0 && cfg.nStreamtype >= 0 && cfg.nStreamtype <= 2);
    const std::string lower = url.get_rtsp_url();
    const size_t nMark = lower.find("://");
    const size_t nChan = lower.find("chan", lower.find('/', nMark == lower.npos ? 0 : nMark + 3));
    const size_t nSlash = lower.find('/', nChan);
    if (url.IsValid()) {
        FUZZ_CHECK(text.size() < 256 && strcasecmp(lower.c_str(), text.c_str()) == 0);
        FUZZ_CHECK(nChan != lower.npos && nSlash != lower.npos);
        for (int i = 0; i <= cfg.nStreamtype; ++i) {
            static constexpr const char* NAMES[] = {"main", "sub", "third"};
            FUZZ_CHECK((lower.find(NAMES[i], nSlash) != lower.npos) == (i == cfg.nStreamtype));
        }
    }
}
