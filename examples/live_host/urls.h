// SPDX-License-Identifier: MIT
#ifndef LIVE_HOST_URLS_H
#define LIVE_HOST_URLS_H

// Prints the URLs of the host for this machine and for others.
void PrintUrls(int nPort, int nChannel);

#endif
