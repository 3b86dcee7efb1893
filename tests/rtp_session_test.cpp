// SPDX-License-Identifier: MIT
#include "rtp_session.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

// A session on a pair of sockets in the place of the RTSP connection.
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

TEST(RtpSession, StampsOnlyWhatTheUnitHolds) {
    const CLogCapture log;
    const struct {
        ETRANS_MODE mode;
        const char* prefix;  // the first two bytes afterwards; null: as they were
    } modes[] = {
        {UDP_MODE, nullptr}, {MCAST_MODE, nullptr}, {TCP_MODE, "$"}, {RTPOVERRTSP_MODE, "$\x06"}};
    for (const auto& row : modes) {
        TRANS_INFO info = MakeTransInfo(row.mode);
        CRtpSession session(row.mode);
        // Where it fails (127.0.0.1 is no group), the parameters are kept all the same.
        EXPECT_EQ(session.open(&info), row.mode == MCAST_MODE ? -1 : 0);
        for (size_t len = 0; len <= 20; ++len) {
            SCOPED_TRACE(testing::Message() << "mode " << row.mode << ", length " << len);
            std::vector<uint8_t> block(len + 1, 0xE7);  // the unit starts at an odd address
            Bytes expected(block.begin() + 1, block.end());
            if (len >= 4 && row.prefix != nullptr) {
                std::copy_n(row.prefix, 2, expected.begin());
                expected[2] = 0;
                expected[3] = row.mode == TCP_MODE ? 0 : static_cast<uint8_t>(len - 4);
            }
            if (len >= 16) {
                const uint8_t ssrc[] = {0x11, 0x22, 0x33, 0x44};
                std::copy_n(ssrc, 4, expected.begin() + 12);
            }
            EXPECT_EQ(session.buff_process(block.data() + 1, static_cast<int>(len)), 0);
            EXPECT_EQ(Bytes(block.begin() + 1, block.end()), expected);
        }
    }
    CInterleaved interleaved;
    Bytes unit = MakeUnit({96, 1, 0, 1388, 0x5A});
    ASSERT_EQ(unit.size(), 1404U);
    EXPECT_EQ(interleaved.Send(TextOf(unit)), 1404);
    EXPECT_TRUE(interleaved.connection.ReadAll() == FrameOf(unit, 0x11223344, 6));
}

TEST(RtpSession, ReportsSequenceGapsOfVideoAndSendsOn) {
    const struct {
        uint8_t payloadType;
        uint16_t sequence;
        const char* line;
    } rows[] = {
        {96, 10, nullptr},
        {96, 12, "cur[12],except[11]"},
        {96, 13, nullptr},
        {8, 500, nullptr},  // audio is never checked
        {8, 7, nullptr},
        {0x80 | 96, 13, "cur[13],except[14]"},  // the marker is no part of the payload type
        {96, 65535, "cur[65535],except[14]"},
        {96, 300, nullptr},  // kept: behind the wrap nothing is expected
        {96, 302, "cur[302],except[301]"},
    };
    CInterleaved interleaved;
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << int{row.payloadType} << " " << row.sequence);
        const CLogCapture log;
        const Bytes unit = MakeUnit({row.payloadType, row.sequence, 0, 10, 1});
        EXPECT_EQ(interleaved.Send(TextOf(unit)), 26);
        EXPECT_EQ(interleaved.connection.ReadAll(), FrameOf(unit, 0x11223344, 6));
        EXPECT_EQ(log.Count("[RTSPS "), row.line != nullptr ? 1 : 0);
        EXPECT_TRUE(row.line == nullptr ||
                    log.Has(std::string(" rtp seq error, ") + row.line + "\n"));
    }
    const CLogCapture log;
    for (const char* unit : {"$\0\0\3\x80\x60\0", "$\0\0\4\x80\x60\1\1"}) {  // without, with number
        interleaved.Send(std::string(unit, unit[3] == 3 ? 7 : 8));
    }
    EXPECT_EQ(log.Count("rtp seq error, "), 1);
    EXPECT_TRUE(log.Has("cur[257],except[303]"));
}

TEST(RtpSession, RepliesPassUnchangedOnTheSharedConnectionOnly) {
    CInterleaved interleaved;
    for (const char* text : {"RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n", "rtsp", "RTSP/", "RTS"}) {
        EXPECT_EQ(interleaved.Send(text), static_cast<int>(strlen(text)));
        EXPECT_EQ(interleaved.connection.ReadAll(), text);
    }
    EXPECT_EQ(interleaved.Send("RTSX/1.0 200 OK\r\n"), 17);
    EXPECT_EQ(interleaved.connection.ReadAll(),
              std::string("$\x06\0\x0D/1.0 200\x11\x22\x33\x44\n", 17));

    const CTestSocket peer = CTestSocket::BindUdp();
    TRANS_INFO info = MakeTransInfo(UDP_MODE, 0, peer.Port());
    CRtpSession udp(UDP_MODE);
    ASSERT_EQ(udp.open(&info), 0);
    std::string text = "RTSP/1.0 200 OK\r\n";
    EXPECT_EQ(udp.send(text.data(), 17, 0), 17);
    EXPECT_EQ(peer.Receive(), "/1.0 200\x11\x22\x33\x44\n");
}

TEST(RtpSession, WithoutAUsableTransmitterNothingIsSent) {
    const CLogCapture log;
    CRtpSession unopened(UDP_MODE);
    char unit[20] = "as it was";
    EXPECT_EQ(unopened.send(unit, 20, 0), 0);
    EXPECT_TRUE(log.Has(" m_pTransmitter is NULL!!! \n"));
    EXPECT_STREQ(unit, "as it was");

    CInterleaved interleaved;
    interleaved.session.GetTransmitter()->set_status(STAUTS_ERROR);
    EXPECT_EQ(interleaved.Send("RTSP/1.0 200 OK\r\n"), 0);
    EXPECT_TRUE(log.HasLines("E m_pTransmitter status mode [4]!!"));
    EXPECT_EQ(interleaved.session.open(&interleaved.info), -1);  // a second time
    EXPECT_TRUE(log.HasLines("E m_pTransmitter != NULL, mode [4]|W error inittransmitter !"));

    CRtpSession none(NON_MODE);
    EXPECT_EQ(none.open(&interleaved.info), -1);
    EXPECT_TRUE(log.HasLines("E Unsupported! mode! [0]|E Error m_pTransmitter == NULL! mode! [0]"));
}

}  // namespace
