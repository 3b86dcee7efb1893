// SPDX-License-Identifier: MIT
#include "urls.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstdio>
#include <initializer_list>

namespace {

// The slash at the end is necessary: players append the names of the tracks to the URL.
void PrintUrl(const char* pHost, int nPort, int nChannel) {
    for (const char* pStream : {"main", "sub"})
        std::printf("  rtsp://%s:%d/chan%d/%s/\n", pHost, nPort, nChannel, pStream);
}

}  // namespace

void PrintUrls(int nPort, int nChannel) {
    PrintUrl("127.0.0.1", nPort, nChannel);
    ifaddrs* pList = nullptr;
    if (getifaddrs(&pList) != 0)
        return;
    for (const ifaddrs* p = pList; p != nullptr; p = p->ifa_next) {
        const bool usable = (p->ifa_flags & IFF_UP) != 0 && (p->ifa_flags & IFF_LOOPBACK) == 0;
        if (!usable || p->ifa_addr == nullptr || p->ifa_addr->sa_family != AF_INET)
            continue;
        char text[INET_ADDRSTRLEN] = {};
        const void* pAddress = p->ifa_addr;
        const in_addr& address = static_cast<const sockaddr_in*>(pAddress)->sin_addr;
        if (inet_ntop(AF_INET, &address, text, sizeof(text)) != nullptr)
            PrintUrl(text, nPort, nChannel);
    }
    freeifaddrs(pList);
}
