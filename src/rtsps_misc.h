// SPDX-License-Identifier: MIT
#ifndef RTSPS_MISC_H
#define RTSPS_MISC_H

struct tagRtspRequestCfg;

// Writes the session description (RFC 4566) of the stream that `cfg` selects into `out`, at most
// `size` bytes with the NUL. Returns 0, or -1 when `out` is null, the description does not fit or
// the host has not declared the stream; the lines written before that stay in `out`.
int GenerateSdpDescription(const tagRtspRequestCfg* cfg, char* out, int size);

// The rtpmap text of a RTSP_SERVER_STREAM_TYPE value.
const char* get_encoding_name_for_sdp(unsigned int format);

// Dumps `len` bytes in hexadecimal to standard error, independent of the debug switch.
void RtspsDebugHex(unsigned char* data, int len);

#endif
