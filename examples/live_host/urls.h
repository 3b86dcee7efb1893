// SPDX-License-Identifier: MIT
#ifndef LIVE_HOST_URLS_H
#define LIVE_HOST_URLS_H

// Prints the URLs under which the host can be reached from this machine and from others.
void PrintUrls(int nPort, int nChannel);

#endif
