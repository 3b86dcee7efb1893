// SPDX-License-Identifier: MIT
// Endpoint addresses: creation from text, numbers or sockets, and access to their parts.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>

#include "cbb.h"

namespace {

constexpr size_t IPV4_BYTES = 4;
constexpr size_t IPV6_BYTES = 16;
constexpr int IPV6_GROUPS = 8;
constexpr size_t ADDR_TEXT_SIZE = 128;

// Kept (hosts): [dotted-leading-zeros] leading zeros are decimal here (010 is 10), unlike in
// CBB_MakeAddrByString.
bool ParseIpv4(const char* szText, uint8_t* pOut) {
    uint8_t octets[IPV4_BYTES] = {};
    size_t nOctets = 0;
    bool bInOctet = false;
    for (const char* p = szText; *p != '\0'; ++p) {
        if (*p >= '0' && *p <= '9') {
            if (!bInOctet && ++nOctets > IPV4_BYTES) {
                return false;
            }
            const int nValue = (bInOctet ? octets[nOctets - 1] * 10 : 0) + (*p - '0');
            if (nValue > 255) {
                return false;
            }
            octets[nOctets - 1] = static_cast<uint8_t>(nValue);
            bInOctet = true;
        } else if (*p == '.' && bInOctet && nOctets < IPV4_BYTES) {
            bInOctet = false;
        } else {
            return false;
        }
    }
    if (nOctets < IPV4_BYTES) {
        return false;
    }
    memcpy(pOut, octets, sizeof(octets));
    return true;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

size_t CountColons(const char* szText) {
    size_t nColons = 0;
    for (; *szText != '\0'; ++szText) {
        nColons += *szText == ':' ? 1 : 0;
    }
    return nColons;
}

// Reads an IPv6 text in one pass.
//
// Kept (hosts): [ipv6-text] a leading "::" is recorded but not expanded ("::1" gives 1::). Missing
// groups at the end count as zero. A wrong character at the end of the text counts as a colon.
class CIpv6Parser {
  public:
    bool Parse(const char* szText, uint8_t* pOut) {
        const char* p = szText;
        if (p[0] == ':' && *++p != ':') {
            return false;
        }
        const char* szToken = p;
        for (;; ++p) {
            const char c = *p;
            if (c == '\0') {
                memcpy(pOut, m_work, sizeof(m_work));
                return true;
            }
            const bool bLast = p[1] == '\0';
            const int nDigit = HexValue(c);
            if (nDigit >= 0) {
                if (!AddDigit(static_cast<uint32_t>(nDigit))) {
                    return false;
                }
                if (!bLast) {
                    continue;
                }
            } else if (c != ':' && !bLast) {
                return c == '.' && FinishDotted(szToken, pOut);
            }
            szToken = p + 1;
            if (!EndGroup(szToken)) {
                return false;
            }
        }
    }

  private:
    bool AddDigit(uint32_t nDigit) {
        m_nGroup = m_nGroup * 16 + nDigit;
        m_bPending = true;
        return m_nGroup <= 0xFFFF;
    }

    // Stores the pending group, or records a "::"; `szRest` is the text after the separator.
    bool EndGroup(const char* szRest) {
        if (!m_bPending) {
            const bool bFirst = !m_bDoubleColon;
            m_bDoubleColon = true;
            return bFirst;
        }
        if (m_nPos + 2 > IPV6_BYTES) {
            return false;
        }
        m_work[m_nPos++] = static_cast<uint8_t>(m_nGroup >> 8);
        m_work[m_nPos++] = static_cast<uint8_t>(m_nGroup & 0xFF);
        m_nGroup = 0;
        m_bPending = false;
        if (*szRest == ':') {
            const size_t nTail = 2 + 2 * CountColons(szRest + 1);  // bytes of the remaining groups
            if (nTail > IPV6_BYTES) {
                return false;
            }
            m_nPos = IPV6_BYTES - nTail;
        }
        return true;
    }

    bool FinishDotted(const char* szToken, uint8_t* pOut) {
        if (m_nPos + IPV4_BYTES > IPV6_BYTES || !ParseIpv4(szToken, m_work + m_nPos)) {
            return false;
        }
        memcpy(pOut, m_work, sizeof(m_work));
        return true;
    }

    uint8_t m_work[IPV6_BYTES] = {};
    size_t m_nPos = 0;
    uint32_t m_nGroup = 0;
    bool m_bPending = false;
    bool m_bDoubleColon = false;
};

bool TextToAddr(int32_t nFamily, const char* szText, void* pOut) {
    if (szText == nullptr || pOut == nullptr) {
        return false;
    }
    if (nFamily == AF_INET) {
        return ParseIpv4(szText, static_cast<uint8_t*>(pOut));
    }
    return nFamily == AF_INET6 && CIpv6Parser().Parse(szText, static_cast<uint8_t*>(pOut));
}

const char* FormatIpv4(const uint8_t* p, char* szOut, int32_t nSize) {
    char szText[sizeof("255.255.255.255")];
    const int nLen = snprintf(szText, sizeof(szText), "%u.%u.%u.%u", static_cast<unsigned>(p[0]),
                              static_cast<unsigned>(p[1]), static_cast<unsigned>(p[2]),
                              static_cast<unsigned>(p[3]));
    // Kept (hosts): [ipv4-size-without-nul] the size does not count the NUL: callers pass 8 for
    // "10.0.0.1". When the text fills the size exactly, the NUL is written one byte past it.
    if (nSize < nLen) {
        return nullptr;
    }
    memcpy(szOut, szText, static_cast<size_t>(nLen) + 1);
    return szOut;
}

struct TZeroRun {
    int nStart;
    int nLength;
};

// The first of the longest runs of zero groups; {-1, 0} when none is two groups long.
TZeroRun LongestZeroRun(const uint16_t* pGroups) {
    TZeroRun best = {-1, 0};
    TZeroRun run = {0, 0};
    for (int i = 0; i < IPV6_GROUPS; ++i) {
        if (pGroups[i] != 0) {
            run = {i + 1, 0};
        } else if (++run.nLength > best.nLength && run.nLength >= 2) {
            best = run;
        }
    }
    return best;
}

const char* FormatIpv6(const uint8_t* p, char* szOut, int32_t nSize) {
    // Kept (hosts): [embedded-ipv4-size] an embedded IPv4 address must fit 8 characters; with a
    // longer one the conversion fails.
    constexpr int32_t EMBEDDED_SIZE = 8;
    uint16_t groups[IPV6_GROUPS];
    for (int i = 0; i < IPV6_GROUPS; ++i) {
        groups[i] = static_cast<uint16_t>((p[2 * i] << 8) | p[2 * i + 1]);
    }
    const TZeroRun run = LongestZeroRun(groups);
    const bool bEmbedded =
        run.nStart == 0 && (run.nLength == 6 || (run.nLength == 5 && groups[5] == 0xFFFF));

    char szText[64];  // eight groups of four digits, their colons, and the formatter's extra NUL
    size_t nLen = 0;
    for (int i = 0; i < IPV6_GROUPS; ++i) {
        if (i >= run.nStart && i < run.nStart + run.nLength) {
            if (i == run.nStart) {
                szText[nLen++] = ':';
            }
            continue;
        }
        if (i != 0) {
            szText[nLen++] = ':';
        }
        if (i == 6 && bEmbedded) {
            if (FormatIpv4(p + 12, szText + nLen, EMBEDDED_SIZE) == nullptr) {
                return nullptr;
            }
            nLen += strlen(szText + nLen);
            break;
        }
        const int nPrinted =
            snprintf(szText + nLen, sizeof(szText) - nLen, "%x", static_cast<unsigned>(groups[i]));
        nLen += static_cast<size_t>(nPrinted);
    }
    if (run.nStart + run.nLength == IPV6_GROUPS) {
        szText[nLen++] = ':';
    }
    szText[nLen++] = '\0';
    if (nSize < 0 || static_cast<size_t>(nSize) < nLen) {
        return nullptr;
    }
    memcpy(szOut, szText, nLen);
    return szOut;
}

}  // namespace

int32_t CBB_MakeAddrByString(int32_t nFamily, const char* szAddr, uint16_t nPort,
                             CBB_ADDR_T* pAddr) {
    if (pAddr == nullptr) {
        return -1;
    }
    if (nFamily == AF_INET) {
        in_addr_t nAddr = INADDR_ANY;
        if (szAddr != nullptr) {
            nAddr = inet_addr(szAddr);
        }
        // Kept (hosts): [broadcast-address] all ones means failure, so 255.255.255.255 cannot be
        // converted from text. The address field is written even then, but not family and port.
        pAddr->SA.sin4.sin_addr.s_addr = nAddr;
        if (nAddr == INADDR_NONE) {
            return -1;
        }
    } else if (nFamily == AF_INET6) {
        if (szAddr == nullptr) {
            memset(&pAddr->SA.sin6.sin6_addr, 0, IPV6_BYTES);
        } else if (!TextToAddr(AF_INET6, szAddr, &pAddr->SA.sin6.sin6_addr)) {
            return -1;
        }
    } else {
        return -1;
    }
    pAddr->SA.sin4.sin_family = static_cast<sa_family_t>(nFamily);
    return CBB_SetAddrPort(pAddr, nPort);
}

int32_t CBB_MakeAddr4ByInt(uint32_t nAddr, uint16_t nPort, CBB_ADDR_T* pAddr) {
    if (pAddr == nullptr) {
        return -1;
    }
    pAddr->SA.sin4.sin_family = AF_INET;
    pAddr->SA.sin4.sin_addr.s_addr = nAddr;
    return CBB_SetAddrPort(pAddr, nPort);
}

int32_t CBB_MakeAddr6ByInt(const uint8_t* pAddr6, uint16_t nPort, CBB_ADDR_T* pAddr) {
    if (pAddr == nullptr) {
        return -1;
    }
    pAddr->SA.sin6.sin6_family = AF_INET6;
    memcpy(&pAddr->SA.sin6.sin6_addr, pAddr6, IPV6_BYTES);
    return CBB_SetAddrPort(pAddr, nPort);
}

int32_t CBB_MakeAddr(const void* pBytes, uint32_t nLength, CBB_ADDR_T* pAddr) {
    if (pBytes == nullptr || pAddr == nullptr || nLength == 0) {
        return -1;
    }
    // Kept (hosts): [address-bytes-cut] a longer length is not an error; only the bytes that fit
    // are copied.
    memcpy(pAddr, pBytes, nLength < sizeof(*pAddr) ? nLength : sizeof(*pAddr));
    return 0;
}

int32_t CBB_SetAddrPort(CBB_ADDR_T* pAddr, uint16_t nPort) {
    if (pAddr == nullptr) {
        return -1;
    }
    pAddr->SA.sin4.sin_port = htons(nPort);
    return 0;
}

int32_t CBB_GetAddrType(const CBB_ADDR_T* pAddr) {
    return pAddr == nullptr ? -1 : pAddr->SA.sin4.sin_family;
}

const char* CBB_GetAddrString(const CBB_ADDR_T* pAddr) {
    // One text per thread, so that sessions that log at the same time do not mix their addresses.
    static thread_local char szText[ADDR_TEXT_SIZE];
    memset(szText, 0, sizeof(szText));
    if (pAddr == nullptr) {
        return nullptr;
    }
    if (pAddr->SA.sin4.sin_family == AF_INET) {
        return inet_ntop(AF_INET, &pAddr->SA.sin4.sin_addr, szText, sizeof(szText));
    }
    if (pAddr->SA.sin4.sin_family == AF_INET6) {
        return CBB_InetNtop(AF_INET6, &pAddr->SA.sin6.sin6_addr, szText, sizeof(szText));
    }
    return nullptr;
}

uint16_t CBB_GetAddrPort(const CBB_ADDR_T* pAddr) {
    return pAddr == nullptr ? static_cast<uint16_t>(0) : ntohs(pAddr->SA.sin4.sin_port);
}

int32_t CBB_GetAddr4Int(const CBB_ADDR_T* pAddr, uint32_t* pAddr4) {
    if (pAddr == nullptr || pAddr->SA.sin4.sin_family != AF_INET) {
        return -1;
    }
    *pAddr4 = pAddr->SA.sin4.sin_addr.s_addr;
    return 0;
}

int32_t CBB_GetAddr6Int(const CBB_ADDR_T* pAddr, uint8_t* pAddr6) {
    // Kept (hosts): [addr6-any-family] unlike the IPv4 function, this one accepts every family but
    // IPv4, so that a record without a family can be read too.
    if (pAddr == nullptr || pAddr->SA.sin4.sin_family == AF_INET) {
        return -1;
    }
    memcpy(pAddr6, &pAddr->SA.sin6.sin6_addr, IPV6_BYTES);
    return 0;
}

int32_t CBB_GetAddrInfo(const CBB_ADDR_T* pAddr, CBB_ADDR_EXP_T* pInfo) {
    if (pAddr == nullptr || pInfo == nullptr) {
        return -1;
    }
    pInfo->iAf = CBB_GetAddrType(pAddr);
    pInfo->nPort = CBB_GetAddrPort(pAddr);
    if (pInfo->iAf == AF_INET) {
        return CBB_GetAddr4Int(pAddr, &pInfo->ADDR.nAddr4);
    }
    return CBB_GetAddr6Int(pAddr, pInfo->ADDR.nAddr6);
}

int32_t CBB_GetAddrBySockFd(CBB_SOCK_T iSockFd, CBB_ADDR_T* pLocal, CBB_ADDR_T* pPeer) {
    if (pLocal == nullptr && pPeer == nullptr) {
        return -1;
    }
    // Kept (hosts): [peer-before-local] the peer is read first, so the local record stays unchanged
    // when the socket has no peer. The second query may write as many bytes as the first one did.
    socklen_t nLength = sizeof(CBB_ADDR_T);
    if (pPeer != nullptr) {
        if (getpeername(iSockFd, reinterpret_cast<sockaddr*>(pPeer), &nLength) != 0) {
            return -1;
        }
        // A family whose addresses are longer than the record reports more than the record holds.
        nLength = nLength < sizeof(CBB_ADDR_T) ? nLength : sizeof(CBB_ADDR_T);
    }
    if (pLocal != nullptr &&
        getsockname(iSockFd, reinterpret_cast<sockaddr*>(pLocal), &nLength) != 0) {
        return -1;
    }
    return 0;
}

int32_t CBB_InetPton(const char* szText, void* pAddr4) {
    return TextToAddr(AF_INET, szText, pAddr4) ? 0 : -1;
}

const char* CBB_InetNtop(int32_t nFamily, const void* pAddr, char* szOut, int32_t nSize) {
    if (pAddr == nullptr || szOut == nullptr || nSize == 0) {
        return nullptr;
    }
    if (nFamily == AF_INET) {
        return FormatIpv4(static_cast<const uint8_t*>(pAddr), szOut, nSize);
    }
    if (nFamily == AF_INET6) {
        return FormatIpv6(static_cast<const uint8_t*>(pAddr), szOut, nSize);
    }
    return nullptr;
}
