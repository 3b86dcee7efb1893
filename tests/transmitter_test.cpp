// SPDX-License-Identifier: MIT
#include "transmitter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "mcast_transmitter.h"
#include "support/log_capture.h"
#include "support/trans_info.h"
#include "tcp_transmitter.h"
#include "udp_transmitter.h"

namespace {

int Send(CTransmitter& transmitter, std::string packet) {
    return transmitter.SendPacket(packet.data(), static_cast<int>(packet.size()), 0);
}

std::string Packet(size_t size, char fill) {
    std::string packet(size, fill);
    for (size_t i = 0; i < size; ++i) {  // no two stretches are alike
        packet[i] = static_cast<char>(static_cast<size_t>(fill) + i / 251 + i);
    }
    return packet;
}

TEST(McastTransmitter, OpenFailuresLeaveNothingBehind) {
    const CBB_ADDR_T any = MakeAddr("127.0.0.1", 0);
    const CBB_ADDR_T group = MakeAddr("239.1.2.3", 9);
    const std::tuple<CBB_ADDR_T, CBB_ADDR_T, std::string> rows[] = {
        {any, CBB_ADDR_T{}, "CreateSocket failed "},
        {MakeAddr("::1", 0), group, "src v6, dst v4,error!!! failed "},
        {any, MakeAddr("ff02::1", 9), "src v4, dst v6,error!!! failed "},
        {MakeAddr("192.0.2.77", 0), group, "ERROR !! Bind"},  // no address of this machine
        {any, MakeAddr("127.0.0.1", 9), "ERROR !! JoinMultiCastGroup"},
    };
    for (const auto& [server, client, line] : rows) {
        const CLogCapture log;
        const int descriptors = CountDescriptors();
        TRANS_INFO info = MakeTransInfo(MCAST_MODE);
        info.serverAddr = server;
        info.clientAddr = client;
        CMcastTransmitter transmitter(MCAST_MODE);
        EXPECT_EQ(transmitter.open(&info), -1);
        EXPECT_EQ(transmitter.get_status(), STAUTS_ERROR);
        // Kept: this one stays open until the transmitter is closed.
        EXPECT_EQ(CountDescriptors(), descriptors + (line == "ERROR !! Bind" ? 1 : 0));
        EXPECT_EQ(log.Count("[RTSPS ERROR]"), 1);
        EXPECT_TRUE(log.HasLines("E " + line));
        transmitter.Close();
        EXPECT_EQ(CountDescriptors(), descriptors);
    }
    TRANS_INFO none{};
    EXPECT_EQ(CUdpTransmitter(UDP_MODE).open(&none), -1);
    EXPECT_EQ(CTcpTransmitter(TCP_MODE).open(&none), -1);
}

TEST(UdpTransmitter, SendsDatagramsWithoutThePrefix) {
    for (const char* host : {"127.0.0.1", "::1"}) {
        SCOPED_TRACE(host);
        CBB_ADDR_T any = MakeAddr(host, 0);
        CTestSocket peer(CBB_CreateSocket(CBB_GetAddrType(&any), SOCK_DGRAM, 0));
        if (CBB_Bind(peer.Fd(), &any) != 0) {
            continue;  // a machine without IPv6
        }
        TRANS_INFO info = MakeTransInfo(UDP_MODE);
        info.serverAddr = any;
        CBB_GetAddrBySockFd(peer.Fd(), &info.clientAddr, nullptr);
        CUdpTransmitter transmitter(UDP_MODE);
        ASSERT_EQ(transmitter.open(&info), 0);
        int sizes[2] = {};
        CBB_SetBuffSize(peer.Fd(), DATA_SEND_BUFFER_SIZE, 0);
        CBB_GetBuffSize(peer.Fd(), &sizes[0], nullptr);  // what the machine allows of it
        CBB_GetBuffSize(transmitter.GetHandle(), &sizes[1], nullptr);
        EXPECT_EQ(sizes[0], sizes[1]);
        EXPECT_EQ(Send(transmitter, "$abcpacket"), 10);
        EXPECT_EQ(peer.Receive(), "packet");
        EXPECT_EQ(Send(transmitter, "$a"), 0);                // shorter than a prefix
        EXPECT_EQ(Send(transmitter, Packet(70000, 'x')), 0);  // longer than a datagram
        EXPECT_EQ(peer.Receive(65536, 0), "");

        peer.Reset();
        // Its refusal makes a send short, not negative.
        EXPECT_TRUE(WaitUntil([&] { return Send(transmitter, "$abcpacket") == 0; }));
        EXPECT_EQ(transmitter.get_status(), STAUTS_OK);
    }
}

TEST(McastTransmitter, SendsDatagramsToTheGroup) {
    const CBB_ADDR_T any = MakeAddr("0.0.0.0", 0);
    const CTestSocket receiver(CBB_CreateSocket(AF_INET, SOCK_DGRAM, 0));
    ASSERT_EQ(CBB_Bind(receiver.Fd(), &any), 0);
    TRANS_INFO info = MakeTransInfo(MCAST_MODE);
    info.clientAddr = MakeAddr("239.255.17.4", receiver.Port());
    if (CBB_JoinMultiCastGroup(receiver.Fd(), &info.serverAddr, &info.clientAddr) != 0 ||
        CBB_SendTo(CTestSocket::BindUdp().Fd(), "probe", 5, &info.clientAddr) != 5 ||
        receiver.Receive(100, 1000) != "probe") {
        GTEST_SKIP() << "no multicast on the loopback interface: " << strerror(errno);
    }
    info.serverAddr = MakeAddr("::ffff:127.0.0.1", 0);  // plain IPv4 is the fuzz target's
    CMcastTransmitter transmitter(MCAST_MODE);
    ASSERT_EQ(transmitter.open(&info), 0);
    EXPECT_EQ(Send(transmitter, "$abcpacket"), 10);
    EXPECT_EQ(receiver.Receive(), "packet");
    EXPECT_EQ(transmitter.Close(), 0);
    EXPECT_EQ(transmitter.GetHandle(), -1);
}

TEST(TcpTransmitter, TakesOneClientAndKeepsWhatWasSentBefore) {
    const int descriptors = CountDescriptors();
    const uint16_t port = FreeTcpPort();
    TRANS_INFO info = MakeTransInfo(TCP_MODE, port);
    CTcpTransmitter transmitter(TCP_MODE);
    ASSERT_EQ(transmitter.open(&info), 0);
    EXPECT_EQ(Send(transmitter, "$abcearly"), 9);
    {
        CTestSocket client = CTestSocket::ConnectTcp(port);
        ASSERT_TRUE(WaitUntil([&] { return transmitter.GetHandle() == -1; }));
        EXPECT_EQ(Send(transmitter, "$abclate"), 8);
        EXPECT_EQ(client.ReceiveExactly(17), "$abcearly$abclate");
        const CTestSocket second(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(CBB_ConnectWithTimeOut(second.Fd(), &info.serverAddr, 1000), -1);
        EXPECT_EQ(transmitter.Close(), 0);
        EXPECT_TRUE(client.AtEnd());
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(transmitter.Close(), 0);
}

TEST(TcpTransmitter, WithoutAClientItFillsUpAndThenDrops) {
    const CLogCapture log;
    TRANS_INFO info = MakeTransInfo(TCP_MODE, FreeTcpPort());
    CTcpTransmitter transmitter(TCP_MODE);
    ASSERT_EQ(transmitter.open(&info), 0);
    ASSERT_TRUE(log.WaitFor(" Wait Remote Connect iRetry [9]!!!!\n"));
    ASSERT_TRUE(WaitUntil([&] { return transmitter.GetHandle() == -1; }));
    EXPECT_EQ(Send(transmitter, Packet(65535, 'a')), 65535);
    EXPECT_EQ(Send(transmitter, Packet(65535, 'b')), 65535);
    EXPECT_EQ(Send(transmitter, "123"), 0);  // one byte too many
    EXPECT_EQ(Send(transmitter, "12"), 2);
    EXPECT_EQ(Send(transmitter, "1"), 0);
}

struct CInterleaved {
    explicit CInterleaved(uint8_t playBack) {
        info.byPlayBack = playBack;
        EXPECT_EQ(transmitter.open(&info), 0);
    }
    CSocketPair connection{16384};
    TRANS_INFO info = MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, connection.server.Fd());
    CRtpOverRtspTransmitter transmitter{RTPOVERRTSP_MODE};
};

// Packets that the connection does not take, step by step with a model of the pending buffer.
TEST(InterleavedTransmitter, BuffersWhatTheSocketDoesNotTake) {
    const CLogCapture log;
    CInterleaved live(0);
    std::string pending;
    std::string wire;  // what the client has not read yet
    int dropped = 0;
    int drainedInPart = 0;
    for (int i = 0; i < 5 || (!pending.empty() && i < 100); ++i) {
        if (i >= 5) {
            ASSERT_TRUE(live.connection.ReadAll() == wire) << "packet " << i;
            wire.clear();
        }
        const std::string packet =
            Packet(i == 0 || i >= 5 ? 1000 : 60000, static_cast<char>('A' + i));
        const size_t before = live.connection.Queued();
        const int result = Send(live.transmitter, packet);
        const size_t sent = live.connection.Queued() - before;
        const size_t drained = std::min(sent, pending.size());
        drainedInPart += drained > 0 && drained < pending.size() ? 1 : 0;
        wire += pending.substr(0, drained) + packet.substr(0, sent - drained);
        pending.resize(pending.size() - drained);  // kept: the front stays where it is
        const bool taken =
            pending.empty() || packet.size() <= CPendingTransmitter::PENDING_SIZE - pending.size();
        dropped += taken ? 0 : 1;
        pending += taken ? packet.substr(sent - drained) : "";
        EXPECT_EQ(result, taken ? static_cast<int>(packet.size()) : 0) << "packet " << i;
        EXPECT_TRUE(pending.empty() ||
                    log.Has(" remain bufsize=" + std::to_string(pending.size()) + "\n"));
    }
    EXPECT_TRUE(live.connection.ReadAll() == wire);
    EXPECT_EQ(live.transmitter.get_status(), STAUTS_OK);
    EXPECT_TRUE(dropped > 0 && drainedInPart > 0);
}

TEST(InterleavedTransmitter, RecordingsAreNotBuffered) {
    CInterleaved recording(1);
    const auto taken = static_cast<size_t>(Send(recording.transmitter, Packet(60000, 'a')));
    EXPECT_EQ(recording.connection.ReadAll(), Packet(60000, 'a').substr(0, taken));
    EXPECT_LT(taken, 60000U);
    EXPECT_EQ(Send(recording.transmitter, "next"), 4);
    EXPECT_EQ(recording.connection.ReadAll(), "next");
}

}  // namespace
