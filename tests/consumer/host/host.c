/* SPDX-License-Identifier: MIT */
/* A small host: starts the server on a free port, sends it an OPTIONS request and stops it. */
#include <stdio.h>
#include <string.h>

#include "cbb.h"
#include "rtsps_server_api.h"

int main(void) {
    static const char request[] = "OPTIONS rtsp://127.0.0.1/ RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    tagRtspServerPara para = {.nMinPort = 20000, .nMaxPort = 20006};
    char reply[512] = "";
    CBB_ADDR_T addr;
    CBB_SOCK_T sock = CBB_CreateSocket(AF_INET, SOCK_STREAM, 0);

    CBB_MakeAddrByString(AF_INET, "127.0.0.1", 0, &addr);
    CBB_Bind(sock, &addr);
    CBB_GetAddrBySockFd(sock, &addr, NULL);
    CBB_CloseSocket(sock, 0);
    para.nServerPort = CBB_GetAddrPort(&addr);

    RTSPServer_Init(&para);
    if (RTSPServer_Start() != 0) {
        return 1;
    }
    sock = CBB_CreateSocket(AF_INET, SOCK_STREAM, 0);
    CBB_ConnectWithTimeOut(sock, &addr, 5000);
    CBB_Sendn(sock, request, (int)strlen(request), 5000);
    CBB_RecvWithTimeOut(sock, reply, sizeof(reply) - 1, 5000);
    CBB_CloseSocket(sock, 1);
    RTSPServer_Stop();
    RTSPServer_Release();
    fputs(reply, stdout);
    return strncmp(reply, "RTSP/1.0 200 OK\r\n", 17) == 0 ? 0 : 1;
}
