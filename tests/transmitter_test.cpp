// SPDX-License-Identifier: MIT
#include "transmitter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>

#include "mcast_transmitter.h"
#include "support/log_capture.h"
#include "support/trans_info.h"
#include "tcp_transmitter.h"
#include "udp_transmitter.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::unique_ptr<CTransmitter> Make(ETRANS_MODE mode) {
    if (mode == UDP_MODE) {
        return std::make_unique<CUdpTransmitter>(mode);
    }
    if (mode == TCP_MODE) {
        return std::make_unique<CTcpTransmitter>(mode);
    }
    return std::make_unique<CMcastTransmitter>(mode);
}

int Send(CTransmitter& transmitter, std::string packet) {
    return transmitter.SendPacket(packet.data(), static_cast<int>(packet.size()), 0);
}

std::string Packet(size_t size, char fill) {
    std::string packet(size, fill);
    for (size_t i = 0; i + 4 <= size; i += 97) {  // no two stretches are alike
        packet[i] = static_cast<char>(i);
        packet[i + 1] = static_cast<char>(i >> 8);
    }
    return packet;
}

TEST(Transmitter, OpenFailuresLeaveNothingBehind) {
    const CTestSocket listener = CTestSocket::ListenTcp(0);
    const CBB_ADDR_T any = MakeAddr("127.0.0.1", 0);
    const CBB_ADDR_T taken = MakeAddr("127.0.0.1", listener.Port());
    const CBB_ADDR_T foreign = MakeAddr("192.0.2.77", 0);  // no address of this machine
    const CBB_ADDR_T peer = MakeAddr("127.0.0.1", 9);
    const CBB_ADDR_T group = MakeAddr("239.1.2.3", 9);
    const CBB_ADDR_T none{};
    const struct {
        ETRANS_MODE mode;
        CBB_ADDR_T server, client;
        const char* line;
    } rows[] = {
        {UDP_MODE, any, none, "CreateSocket failed "},
        {UDP_MODE, foreign, peer, "Bind failed "},
        {TCP_MODE, any, none, "CreateSocket failed "},
        {TCP_MODE, taken, peer, "Bind failed "},
        {MCAST_MODE, any, none, "CreateSocket failed "},
        {MCAST_MODE, MakeAddr("::1", 0), group, "src v6, dst v4,error!!! failed "},
        {MCAST_MODE, any, MakeAddr("ff02::1", 9), "src v4, dst v6,error!!! failed "},
        {MCAST_MODE, foreign, group, "ERROR !! Bind"},
        {MCAST_MODE, any, peer, "ERROR !! JoinMultiCastGroup"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "mode " << row.mode << ", " << row.line);
        const CLogCapture log;
        const int descriptors = CountDescriptors();
        TRANS_INFO info = MakeTransInfo(row.mode);
        info.serverAddr = row.server;
        info.clientAddr = row.client;
        std::unique_ptr<CTransmitter> transmitter = Make(row.mode);
        EXPECT_EQ(transmitter->open(&info), -1);
        EXPECT_EQ(transmitter->get_status(), STAUTS_ERROR);
        // Kept: this one stays open until the transmitter is closed.
        const bool kept = row.line == std::string("ERROR !! Bind");
        EXPECT_EQ(CountDescriptors(), descriptors + (kept ? 1 : 0));
        EXPECT_EQ(log.Count("[RTSPS ERROR]"), 1);
        EXPECT_EQ(log.Count(std::string(" ") + row.line + "\n"), 1) << log.Text();
        transmitter.reset();
        EXPECT_EQ(CountDescriptors(), descriptors);
    }
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
        int sendSize = 0;
        int fullSize = 0;
        CBB_GetBuffSize(transmitter.GetHandle(), &sendSize, nullptr);
        CBB_SetBuffSize(peer.Fd(), DATA_SEND_BUFFER_SIZE, 0);
        CBB_GetBuffSize(peer.Fd(), &fullSize, nullptr);
        EXPECT_EQ(sendSize, fullSize);  // what the machine allows of it

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
    const CBB_ADDR_T loopback = MakeAddr("127.0.0.1", 0);
    const CTestSocket receiver(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(CBB_Bind(receiver.Fd(), &any), 0);
    TRANS_INFO info = MakeTransInfo(MCAST_MODE);
    info.clientAddr = MakeAddr("239.255.17.4", receiver.Port());
    const CTestSocket probe = CTestSocket::BindUdp();
    if (CBB_JoinMultiCastGroup(receiver.Fd(), &loopback, &info.clientAddr) != 0 ||
        CBB_SendTo(probe.Fd(), "probe", 5, &info.clientAddr) != 5 ||
        receiver.Receive(100, 1000) != "probe") {
        GTEST_SKIP() << "no multicast on the loopback interface: " << strerror(errno);
    }
    for (const char* local : {"127.0.0.1", "::ffff:127.0.0.1"}) {
        info.serverAddr = MakeAddr(local, 0);
        CMcastTransmitter transmitter(MCAST_MODE);
        ASSERT_EQ(transmitter.open(&info), 0) << local;
        EXPECT_EQ(Send(transmitter, "$abcpacket"), 10);
        EXPECT_EQ(receiver.Receive(), "packet");
        EXPECT_EQ(transmitter.Close(), 0);
        EXPECT_EQ(transmitter.GetHandle(), -1);
    }
}

TEST(TcpTransmitter, TakesOneClientAndKeepsWhatWasSentBefore) {
    const int descriptors = CountDescriptors();
    TRANS_INFO info = MakeTransInfo(TCP_MODE, FreeTcpPort());
    const uint16_t port = CBB_GetAddrPort(&info.serverAddr);
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

// What the interleaved transmitter does with packets that the connection does not take, compared
// step by step with a model of its pending buffer.
TEST(InterleavedTransmitter, BuffersWhatTheSocketDoesNotTake) {
    const CLogCapture log;
    CSocketPair connection(16384);
    TRANS_INFO info = MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, connection.server.Fd());
    CRtpOverRtspTransmitter transmitter(RTPOVERRTSP_MODE);
    ASSERT_EQ(transmitter.open(&info), 0);
    enum { WHOLE, TAIL_KEPT, APPENDED, DROPPED, DRAINED_IN_PART, DRAINED, PATHS };
    int seen[PATHS] = {};
    std::string pending;
    std::string wire;  // what the client has not read yet
    for (int i = 0; i < 5 || (!pending.empty() && i < 100); ++i) {
        if (i >= 5) {
            ASSERT_TRUE(connection.ReadAll() == wire) << "packet " << i;
            wire.clear();
        }
        const std::string packet =
            Packet(i == 0 || i >= 5 ? 1000 : 60000, static_cast<char>('A' + i));
        const int lines = log.Count("remain bufsize=");
        const size_t before = connection.Queued();
        const int result = Send(transmitter, packet);
        const size_t sent = connection.Queued() - before;
        const size_t drained = std::min(sent, pending.size());
        if (drained > 0) {
            ++seen[drained < pending.size() ? DRAINED_IN_PART : DRAINED];
        }
        wire += pending.substr(0, drained);
        pending.resize(pending.size() - drained);  // kept: the front stays where it is
        bool taken = true;
        if (pending.empty()) {
            wire += packet.substr(0, sent - drained);
            pending = packet.substr(sent - drained);
            ++seen[pending.empty() ? WHOLE : TAIL_KEPT];
        } else {
            taken = packet.size() <= CPendingTransmitter::PENDING_SIZE - pending.size();
            pending += taken ? packet : "";
            ++seen[taken ? APPENDED : DROPPED];
        }
        EXPECT_EQ(result, taken ? static_cast<int>(packet.size()) : 0) << "packet " << i;
        EXPECT_EQ(log.Count("remain bufsize="), lines + (pending.empty() ? 0 : 1));
        EXPECT_TRUE(pending.empty() ||
                    log.Has(" remain bufsize=" + std::to_string(pending.size()) + "\n"));
    }
    EXPECT_TRUE(connection.ReadAll() == wire);
    EXPECT_EQ(transmitter.get_status(), STAUTS_OK);
    for (const int times : seen) {
        EXPECT_GT(times, 0) << "path " << &times - seen << " was not taken";
    }
}

TEST(InterleavedTransmitter, RecordingsAreNotBuffered) {
    CSocketPair connection(16384);
    TRANS_INFO info = MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, connection.server.Fd());
    info.byPlayBack = 1;
    CRtpOverRtspTransmitter transmitter(RTPOVERRTSP_MODE);
    ASSERT_EQ(transmitter.open(&info), 0);
    const auto taken = static_cast<size_t>(Send(transmitter, Packet(60000, 'a')));
    EXPECT_EQ(connection.ReadAll(), Packet(60000, 'a').substr(0, taken));
    EXPECT_LT(taken, 60000U);
    EXPECT_EQ(Send(transmitter, "next"), 4);
    EXPECT_EQ(connection.ReadAll(), "next");
}

}  // namespace
