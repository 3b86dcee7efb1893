// SPDX-License-Identifier: MIT
#ifndef RTSPS_AUTH_H
#define RTSPS_AUTH_H

struct tagRtspRequestCfg;

// Checkers of the "Authorization" header's value (RFC 7617, RFC 7616). Both accept every
// credential: 0. The host's user name and password are not consulted.
int CheckBasicAuth(const tagRtspRequestCfg* cfg, const char* szValue);
int CheckDigestAuth(const tagRtspRequestCfg* cfg, const char* szValue, const char* szMethod);

#endif
