// SPDX-License-Identifier: MIT
// Memory: none is asked for while media flows, and what happens when there is none.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "cbb.h"
#include "faults/dialogue.h"
#include "faults/interpose.h"
#include "rtsps_server.h"
#include "rtsps_session_mgr.h"
#include "support/log_capture.h"
#include "support/test_net.h"

namespace {

class CAllocationTest : public CServerTest {
  protected:
    void PushInLibrary(const Bytes& units) {
        Bytes copy = units;
        const CInLibrary in;
        RTSPServer_SendRealSteam(1, 0, copy.data(), static_cast<int>(copy.size()));
    }
};

TEST_F(CAllocationTest, SteadyPushesAllocateNothing) {
    const CLogCapture dump(2);
    StartServer();
    CTestClient udp(m_port);
    CTestClient tcp(m_port);
    CTestClient interleaved(m_port);
    CTestSocket datagrams;
    CTestSocket data;
    ASSERT_TRUE(tcp.PlayTcp(&data) && WaitUntil([&] {  // until the connection is taken
                    PushInLibrary(MakeUnit({}));
                    return !data.Receive(65536, 10).empty();
                }));
    ASSERT_TRUE(udp.PlayUdp(&datagrams) && interleaved.PlayInterleaved(false));
    // Three that the pushes do not concern.
    CTestClient other(m_port);
    other.m_stream = "sub";
    CTestClient described(m_port);
    CTestClient silent(m_port);
    ASSERT_TRUE(other.PlayInterleaved(false));
    ASSERT_NE(described.Describe() + silent.Ask("OPTIONS", "*"), "");

    std::string frames;  // of the interleaved client
    int before = 0;
    for (uint16_t i = 0; i <= 1000; ++i) {
        Bytes run;
        std::vector<std::string> packets;
        for (uint16_t nth = 1; nth <= 3; ++nth) {
            const Bytes unit = MakeUnit({96, static_cast<uint16_t>(3 * i + nth), i, 200, 1});
            run.insert(run.end(), unit.begin(), unit.end());
            packets.push_back(PacketOf(unit, VIDEO_SSRC));
            frames += FrameOf(unit, VIDEO_SSRC, 0);
        }
        PushInLibrary(run);
        for (const std::string& packet : packets) {
            ASSERT_EQ(datagrams.Receive(), packet);
        }
        if (i == 0) {  // the first one of a stream may
            before = CallsInLibrary(ECall::NEW) + CallsInLibrary(ECall::MALLOC);
        }
    }
    EXPECT_EQ(CallsInLibrary(ECall::NEW) + CallsInLibrary(ECall::MALLOC), before);
    EXPECT_TRUE(interleaved.Socket().ReceiveExactly(frames.size()) == frames);
    for (size_t at = 0; at < frames.size(); at += 216) {
        frames[at + 2] = frames[at + 3] = 0;  // kept: no length over separate TCP
    }
    EXPECT_TRUE(data.ReceiveExactly(frames.size()) == frames);
}

// One allocation after the other fails, each in a life of the server of its own.
class CNthAllocationTest : public CAllocationTest,
                           public ::testing::WithParamInterface<std::string> {
  protected:
    enum EEnd { SERVED, REFUSED, SILENT };

    // A whole dialogue and one push.
    EEnd Serve() {
        CTestClient client(m_port);
        CTestSocket media;
        if (!Reach(PLAYING, GetParam(), &client, &media)) {
            return client.Ask("OPTIONS", "*") != "" || client.Socket().AtEnd(0) ? REFUSED : SILENT;
        }
        if (CRtspSessionManager::Instance()->GetCurrSessionNums() == 0) {
            return REFUSED;  // could not be registered: it gets no media
        }
        const Bytes unit = MakeUnit({});
        std::string got;
        // Over separate TCP the first pushes wait for the connection to be taken.
        for (int i = 0; i < 100 && got.empty(); ++i) {
            PushInLibrary(unit);
            got = (GetParam() == INTERLEAVED ? client.Socket() : media).Receive(65536, 10);
        }
        return got.find(PacketOf(unit, VIDEO_SSRC)) != std::string::npos ? SERVED : SILENT;
    }

    // Sessions that have ended are swept, as the accept thread does when no client comes. So are
    // in the end those that could not be registered.
    template <class TCall>
    static void Sweeping(TCall call) {
        std::atomic<bool> done{false};
        std::thread sweep([&] {
            bool last = false;
            do {
                last = done;
                CRtspSessionManager::Instance()->DelExceptionSession();
                CBB_Sleep(1);
            } while (!last);
        });
        call();
        CRtspSessionManager::Instance()->Close();
        EXPECT_TRUE(WaitUntil([] { return CountThreads() <= OwnThreads() + 2; }));
        done = true;
        sweep.join();
    }
};

TEST_P(CNthAllocationTest, CostsAtMostItsClient) {
    const CLogCapture dump(2);
    m_para.nMaxPort = m_para.nMinPort + 5;  // three pairs
    Init();
    int n = 0;
    for (bool hasFailed = true; hasFailed && !HasFailure(); ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        const CLogCapture log;
        const CFailingCall fault(ECall::NEW, n + 1, ENOMEM);
        {
            const CInLibrary in;
            if (RTSPServer_Start() != 0) {
                EXPECT_TRUE(fault.HasFailed());
                EXPECT_EQ(RTSPServer_Start(), 0);
            }
        }
        Sweeping([&] {
            const EEnd end = Serve();
            hasFailed = fault.HasFailed();
            EXPECT_TRUE(hasFailed ? end != SILENT : end == SERVED) << end;
            EXPECT_TRUE(!hasFailed || Serve() == SERVED) << "the next client";
        });
        std::set<int> ports;
        for (int port = 1; port != 0; ports.insert(port)) {
            port = CRtspServer::Instance()->BorrowDataPort();
        }
        for (int port = m_para.nMinPort; port < m_para.nMaxPort; port += 2) {
            EXPECT_EQ(ports.count(port), 1U) << "port " << port << " is lost";
        }
        const CInLibrary in;
        RTSPServer_Stop();
    }
    EXPECT_GT(n, 60) << "the allocations of the dialogue are seen";
}
INSTANTIATE_TEST_SUITE_P(Transport, CNthAllocationTest, ::testing::Values(UDP, TCP, INTERLEAVED),
                         [](const auto& row) { return "number" + std::to_string(row.index); });

}  // namespace
