// SPDX-License-Identifier: MIT
#include "rtp_session.h"

#include <gtest/gtest.h>

#include <string>

#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

// A session on a pair of sockets, which replaces the RTSP connection.
struct CInterleaved {
    CInterleaved() : info(MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, connection.server.Fd())) {
        EXPECT_EQ(session.open(&info), 0);
    }
    int Send(std::string data) {
        return session.send(data.data(), static_cast<int>(data.size()), 0);
    }

    CSocketPair connection;
    TRANS_INFO info;
    CRtpSession session{RTPOVERRTSP_MODE};
};

TEST(RtpSession, ReportsSequenceGapsOfVideoAndSendsOn) {
    CFakeClock clock(5000);  // at no time is a report sent on the shared connection
    CInterleaved interleaved;
    const auto expectReport = [&](const char* why, uint8_t payloadType, uint16_t sequence,
                                  const std::string& reported) {
        SCOPED_TRACE(why);
        clock.Set(5000 + 5 * sequence);
        const CLogCapture log;
        const Bytes unit = MakeUnit({payloadType, sequence, 0, 0, 1});  // a header alone
        EXPECT_EQ(interleaved.Send(TextOf(unit)), 16);
        EXPECT_EQ(interleaved.connection.ReadAll(), FrameOf(unit, 0x11223344, 6));
        EXPECT_EQ(log.Count("[RTSPS "), reported.empty() ? 0 : 1);
        EXPECT_TRUE(reported.empty() || log.Has(" rtp seq error, " + reported + "\n"));
    };
    expectReport("the first packet", 96, 10, "");
    expectReport("a gap", 96, 12, "cur[12],except[11]");
    expectReport("the next one", 96, 13, "");
    expectReport("audio is never checked", 8, 500, "");
    expectReport("the marker is no part of the type", 0x80 | 96, 13, "cur[13],except[14]");
    expectReport("the last number", 96, 65535, "cur[65535],except[14]");
    expectReport("kept: after the wrap no number is expected", 96, 300, "");
    expectReport("a gap again", 96, 302, "cur[302],except[301]");
}

TEST(RtpSession, ChecksTheShortestUnitWithASequenceNumber) {
    CInterleaved interleaved;
    const CLogCapture log;
    interleaved.Send(TextOf(MakeUnit({96, 302, 0, 10, 1})));
    interleaved.Send(std::string("$\0\0\3\x80\x60\0", 7));
    EXPECT_EQ(log.Text(), "");
    interleaved.Send(std::string("$\0\0\4\x80\x60\1\1", 8));
    EXPECT_TRUE(log.Has("cur[257],except[303]"));
}

TEST(RtpSession, WithoutAUsableTransmitterNothingIsSent) {
    const CLogCapture log;
    char unit[20] = "as it was";
    EXPECT_EQ(CRtpSession(UDP_MODE).send(unit, 20, 0), 0);
    EXPECT_TRUE(log.Has(" m_pTransmitter is NULL!!! \n"));
    EXPECT_STREQ(unit, "as it was");
    EXPECT_EQ(CRtpSession(UDP_MODE).get_rtcp_handle(), -1);
    CInterleaved interleaved;
    interleaved.session.GetTransmitter()->set_status(STAUTS_ERROR);
    EXPECT_EQ(interleaved.Send("RTSP/1.0 200 OK\r\n"), 0);
    EXPECT_TRUE(log.HasLines("E m_pTransmitter status mode [4]!!"));
}

TEST(RtpSession, OpenFailures) {
    CInterleaved interleaved;
    const CLogCapture log;
    EXPECT_EQ(interleaved.session.open(&interleaved.info), -1) << "it is open";
    EXPECT_TRUE(log.HasLines("E m_pTransmitter != NULL, mode [4]|W error inittransmitter !"));
    interleaved.session.close();
    EXPECT_EQ(interleaved.session.open(&interleaved.info), 0);
    EXPECT_EQ(CRtpSession(NON_MODE).open(&interleaved.info), -1) << "an unknown mode";
    EXPECT_TRUE(log.HasLines("E Unsupported! mode! [0]|E Error m_pTransmitter == NULL! mode! [0]"));
}

}  // namespace
