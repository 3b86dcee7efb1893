// SPDX-License-Identifier: MIT
#ifndef RTSPS_AUTH_H
#define RTSPS_AUTH_H

struct tagRtspRequestCfg;

// Check the value of the "Authorization" header (RFC 7617, RFC 7616). Both accept every credential
// and return 0. They do not read the host's user name and password.
int CheckBasicAuth(const tagRtspRequestCfg* cfg, const char* szValue);
int CheckDigestAuth(const tagRtspRequestCfg* cfg, const char* szValue, const char* szMethod);

#endif
