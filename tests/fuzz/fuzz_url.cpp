// SPDX-License-Identifier: MIT
#include <strings.h>

#include <cstring>

#include "fuzz_support.h"
#include "rtsps_url.h"

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    const std::string text = std::string(pData, pData + nSize).c_str();  // up to the first NUL
    const CRtspUrl url(text.c_str());
    tagRtspRequestCfg cfg{};
    url.get_req_cfg(&cfg);
    FUZZ_CHECK(cfg.nReqType == 0 && cfg.nStreamtype >= 0 && cfg.nStreamtype <= 2);
    FUZZ_CHECK(strlen(url.get_host_string()) <= text.size());
    if (url.IsValid()) {
        const std::string lower = url.get_rtsp_url();
        FUZZ_CHECK(text.size() < 256 && strcasecmp(lower.c_str(), text.c_str()) == 0);
        const size_t nMark = lower.find("://");
        const size_t nPath = lower.find('/', nMark == lower.npos ? 0 : nMark + 3);
        const size_t nChan = lower.find("chan", nPath);
        const size_t nSlash = lower.find('/', nChan);
        FUZZ_CHECK(nChan != lower.npos && nSlash != lower.npos);
        FUZZ_CHECK(cfg.nChan ==
                   CRtspUrl::atoin(&lower[nChan + 4], static_cast<int>(nSlash - nChan) - 4));
        for (int i = 0; i <= cfg.nStreamtype; ++i) {
            static constexpr const char* NAMES[] = {"main", "sub", "third"};
            FUZZ_CHECK((lower.find(NAMES[i], nSlash) != lower.npos) == (i == cfg.nStreamtype));
        }
    }
    return 0;
}
