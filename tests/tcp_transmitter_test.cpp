// SPDX-License-Identifier: MIT
#include "tcp_transmitter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

TEST(TcpTransmitter, KeepsWhatWasSentBeforeItsClientCame) {
    const uint16_t port = FreeTcpPort();
    TRANS_INFO info = MakeTransInfo(TCP_MODE, port);
    CTcpTransmitter transmitter(TCP_MODE);
    ASSERT_EQ(transmitter.open(&info), 0);
    EXPECT_EQ(Send(transmitter, "$abcearly"), 9);
    const CTestSocket client = CTestSocket::ConnectTcp(port);
    ASSERT_TRUE(WaitUntil([&] { return transmitter.GetHandle() == -1; }));
    EXPECT_EQ(Send(transmitter, "$abclate"), 8);
    EXPECT_EQ(client.ReceiveExactly(17), "$abcearly$abclate");
    EXPECT_EQ(transmitter.Close(), 0);
    EXPECT_TRUE(client.AtEnd());
}

TEST(TcpTransmitter, AcceptTakesTheNextClient) {
    CTestSocket listener = CTestSocket::ListenTcp(0);
    const CTestSocket client = CTestSocket::ConnectTcp(listener.Port());
    CTcpTransmitter transmitter(TCP_MODE);
    transmitter.SetHandle(listener.Take());
    EXPECT_GT(transmitter.Accept(), 0);
    EXPECT_EQ(Send(transmitter, "$abcmedia"), 9);
    EXPECT_EQ(client.Receive(), "$abcmedia");
}

TEST(TcpTransmitter, WithoutAClientItFillsUpAndThenDrops) {
    const CLogCapture log;
    TRANS_INFO info = MakeTransInfo(TCP_MODE, FreeTcpPort());
    CTcpTransmitter transmitter(TCP_MODE);
    ASSERT_EQ(transmitter.open(&info), 0);
    ASSERT_TRUE(log.WaitFor(" Wait Remote Connect iRetry [9]!!!!\n"));
    ASSERT_TRUE(WaitUntil([&] { return transmitter.GetHandle() == -1; }));
    EXPECT_EQ(Send(transmitter, std::string(65535, 'x')), 65535);
    EXPECT_EQ(Send(transmitter, std::string(65535, 'x')), 65535) << "two bytes of 128 KiB are left";
    EXPECT_EQ(Send(transmitter, "abc"), 0) << "one byte too many";
    EXPECT_EQ(Send(transmitter, "ab"), 2) << "fills the buffer";
    EXPECT_EQ(Send(transmitter, "a"), 0);
}

// Compares each packet with a model of the pending buffer.
TEST(InterleavedTransmitter, BuffersWhatTheSocketDoesNotTake) {
    const CLogCapture log;
    const CSocketPair connection(16384);
    TRANS_INFO info = MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, connection.server.Fd());
    CRtpOverRtspTransmitter transmitter(RTPOVERRTSP_MODE);
    ASSERT_EQ(transmitter.open(&info), 0);
    std::string pending;
    std::string wire;  // what the client has not read yet
    int dropped = 0;
    int drainedInPart = 0;
    for (int i = 0; i < 5 || (!pending.empty() && i < 100); ++i) {
        if (i >= 5) {
            ASSERT_TRUE(connection.ReadAll() == wire) << "packet " << i;
            wire.clear();
        }
        const std::string packet(i == 0 || i >= 5 ? 1000 : 60000, static_cast<char>('A' + i));
        const size_t before = connection.Queued();
        const int result = Send(transmitter, packet);
        const size_t sent = connection.Queued() - before;
        const size_t drained = std::min(sent, pending.size());
        drainedInPart += drained > 0 && drained < pending.size() ? 1 : 0;
        wire += pending.substr(0, drained) + packet.substr(0, sent - drained);
        pending.resize(pending.size() - drained);  // kept: the end is cut instead of the front
        const bool taken =
            pending.empty() || packet.size() <= CPendingTransmitter::PENDING_SIZE - pending.size();
        dropped += taken ? 0 : 1;
        pending += taken ? packet.substr(sent - drained) : "";
        EXPECT_EQ(result, taken ? static_cast<int>(packet.size()) : 0) << "packet " << i;
        EXPECT_TRUE(pending.empty() ||
                    log.Has(" remain bufsize=" + std::to_string(pending.size()) + "\n"));
    }
    EXPECT_TRUE(connection.ReadAll() == wire);
    EXPECT_EQ(transmitter.get_status(), STAUTS_OK);
    EXPECT_TRUE(dropped > 0 && drainedInPart > 0) << "a case did not occur";
}

}  // namespace
