// SPDX-License-Identifier: MIT
#include "rtsp_msg_parser.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "rtsp_msg.h"
#include "rtsps_debug.h"
#include "support/log_capture.h"

namespace {

// Parses a copy that is exactly as long as the text and is freed before the message is used. The
// sanitizers then find reads beyond the data and slices that are used too long.
std::unique_ptr<CRtspMsg> Parse(const std::string& text) {
    const std::vector<char> copy(text.begin(), text.end());
    return std::unique_ptr<CRtspMsg>(
        CRtspMsgParser().parse(copy.data(), static_cast<int>(copy.size())));
}

const std::string NO_MESSAGE = "(null)";

// The message written back.
std::string Written(const std::string& text) {
    const auto msg = Parse(text);
    std::vector<char> out(65536);
    if (msg != nullptr) {
        msg->as_string(out.data());
    }
    return msg != nullptr ? out.data() : NO_MESSAGE;
}

std::string RequestWith(const std::string& headers) {
    return "PLAY u RTSP/1.0\r\n" + headers + "\r\n";
}

std::string Many(const std::string& text, int n) {
    return n == 0 ? "" : Many(text, n / 2) + Many(text, n - n / 2 - 1) + text;
}

struct CWrittenRow {
    const char* why;
    std::string text;
    std::string written;
};

TEST(RtspMsgParser, MessagesAreWrittenBack) {
    const std::string end = "\r\n\r\n";
    const CWrittenRow rows[] = {
        {"leading line ends and blanks", "\r\n\r\n \tOPTIONS u RTSP/1.0" + end,
         "OPTIONS u RTSP/1.0" + end},
        {"another protocol", "PLAY rtsp://a/b HTTP/1.1" + end, "PLAY rtsp://a/b RTSP/1.0" + end},
        {"text after the version", "PLAY u RTSP/2.7 trailing" + end, "PLAY u RTSP/2.7" + end},
        {"a quote in the version", "PLAY u \"RTSP/1.0" + end, "PLAY u RTSP/1.0" + end},
        {"methods are in capitals", "play u RTSP/1.0" + end, "ERROR u RTSP/1.0" + end},
        {"a URL is cut", "PLAY " + Many("x", 8000) + " RTSP/1.0" + end,
         "PLAY " + Many("x", 511) + " RTSP/1.0" + end},
        {"a line end in the first line", "PLAY\r\n u\r\n RTSP/1.0" + end, NO_MESSAGE},
        {"a NUL", std::string("PLAY\0 u RTSP/1.0\r\n\r\n", 20), NO_MESSAGE},
        {"no version", "DESCRIBE rtsp://a/b" + end, NO_MESSAGE},
        {"a reply", "RTSP/2.1 454 Whatever\r\nCSeq: 3" + end,
         "RTSP/2.1 454 Session Not Found\r\nCSeq: 3" + end},
        {"no number in the version", "RTSP/x 200 OK" + end, "RTSP/0.0 200 OK" + end},
        {"an unknown status cannot be written", "RTSP/1.0 999 x" + end, ""},
        {"kept: a quoted slice starts at its quote", "RTSP/1.0 \"200\" OK" + end, ""},
        {"a quote within quotes", "\"PL\\\"Y\" u RTSP/1.0" + end, "ERROR u RTSP/1.0" + end},
        {"no status", "RTSP/1.0" + end, NO_MESSAGE},
        {"a line end", "\r\n", NO_MESSAGE},
        {"a quote without an end", "\"\\", NO_MESSAGE},
        {"without a blank line", "PLAY u RTSP/1.0\r\nA: 1\r\nB: 2",
         "PLAY u RTSP/1.0\r\nA: 1\r\nB: 2\r\n\r\n"},
        {"kept: without a blank line the body is the front", "PLAY u RTSP/1.0\r\nContent-length: 4",
         RequestWith("Content-length: 4\r\n") + "PLAY"},
        {"line feeds alone", "PLAY u RTSP/1.0\nA: 1\n\nB: 2\n", "PLAY u RTSP/1.0\r\nA: 1\r\n\r\n"},
        {"128 headers are kept, and the body is found",
         RequestWith("Content-length: 2\r\n" + Many("N: v\r\n", 300)) + "ab",
         RequestWith("Content-length: 2\r\n" + Many("N: v\r\n", 127)) + "ab"},
        {"a header without a name", RequestWith(": nameless\r\n"), RequestWith("")},
    };
    for (const CWrittenRow& row : rows) {
        EXPECT_EQ(Written(row.text), row.written) << row.why;
    }
    CRtspMsgParser parser;
    EXPECT_EQ(parser.parse(nullptr, 5), nullptr);
    EXPECT_EQ(parser.parse("x", -5), nullptr);
    CDebugInfo::Instance()->SetDebugSwitch(true);
    const CLogCapture log;
    EXPECT_EQ(parser.parse("x", 1), nullptr);
    CDebugInfo::Instance()->SetDebugSwitch(false);
    EXPECT_TRUE(log.Has("msg length=0\n")) << "a single byte is valid, but no message";
    EXPECT_FALSE(log.Has("pasre parameter error!"));
}

TEST(RtspMsgParser, HeaderLines) {
    setenv("TZ", "UTC", 1);
    tzset();
    const std::string leapDay = "Range: clock=20240229T235959Z-20240301T000000Z";
    const CWrittenRow rows[] = {
        {"blanks before the colon belong to the name", "Session :  1234 ", "Session : 1234 "},
        {"trailing blanks stay", "Transport:RTP/AVP; unicast ;client_port=5-6, b",
         "Transport: RTP/AVP;unicast ;client_port=5-6,b"},
        {"a part without a first token, an empty part", "N: a=,;x,b==c;;d", "N: a,b==c"},
        {"quotes and an empty element", "N: a,q=\"1, 2\",,b", "N: a,q=\"1,2\""},
        {"credentials are one value", "Authorization: Digest a=1, b=2",
         "Authorization: Digest a=1, b=2"},
        {"headers without a value", "RTP-Info:\r\nLocation: \t ", "RTP-Info: \r\nLocation: "},
        {"a range in whole seconds", "Range: npt=1:00-90.5", "Range: npt=60-90"},
        {"a long number", "Range: npt=" + Many("9", 8000) + "-", "Range: npt=2147483647-"},
        {"no beginning", "Range: npt=-20", "Range: npt=-20"},
        // A shortened word selects its unit, and an empty one selects smpte.
        {"a shortened word", "Range: np=7-", "Range: npt=7-"},
        {"an empty word", "Range: =", "Range: smpte=-"},
        {"a leap day", leapDay, leapDay},
        {"a clock time without T and Z", "Range: clock=20240229-", "Range: clock=-"},
        {"kept: smpte times are divided", "Range: smpte=1:00:00-2:00:00",
         "Range: smpte=00:00:03.18-00:00:07.06"},
        {"a longer word is refused", "Range: nptx=0-", "Range: "},
        {"another case is refused", "Range: NPT=0-", "Range: "},
        {"another case is another header", "range: npt=0-", "range: npt=0-"},
        {"no colon, and no format", "NoColon%n%s", "NoColon%n%s: "},
        {"values without fields", "RTP-Info: url=a;seq=1;rtptime=2, url=b;seq=3", "RTP-Info: ,"},
        {"a URL with a query", "RTP-Info: url=a?x=url=c;rtptime=2", "RTP-Info: "},
        {"folded lines, and bytes above 127", "A: x\r\n\ty\r\n  z\r\nB: \xff;\xff=\xff",
         "A: xyz\r\nB: \xff;\xff=\xff"},
        {"a NUL ends a line", std::string("A: 1\0B: 2", 9), "A: 1\r\nB: 2"},
        {"a long name", Many("x", 8000) + ": v", Many("x", 127) + ": v"},
        {"a long value", "N: " + Many("x", 8000), "N: " + Many("x", 127)},
        {"a long parameter", "N: a=" + Many("x", 8000), "N: a=" + Many("x", 255)},
        {"64 parameters are kept", "N: p" + Many(";p", 300), "N: p" + Many(";p", 63)},
    };
    for (const CWrittenRow& row : rows) {
        EXPECT_EQ(Written(RequestWith(row.text + "\r\n")), RequestWith(row.written + "\r\n"))
            << row.why;
    }
}

TEST(RtspMsgParser, BodiesHaveTheLengthThatIsAnnounced) {
    constexpr int REFUSED = -1;
    const struct {
        const char* why;
        std::string headers, body;
        int length;
    } rows[] = {
        {"incomplete", "Content-length: 10", "1234", REFUSED},
        {"exactly", "Content-length: 10", "12345678901", 10},
        {"one byte", "Content-length: 1", "b", 1},
        {"the first header counts", "Content-length: 3\r\nContent-length: 9999",
         std::string("a\0b", 3), 3},
        {"a blank at the front", "Content-length: 3", " ab", 3},
        {"the longest", "Content-length: 2048", Many("b", 2048), 2048},
        {"a byte too long", "Content-length: 2049", Many("b", 2049), REFUSED},
        {"negative", "Content-length: -5", "12", 0},
        {"beyond an int", "Content-length: 99999999999999999999", "12", REFUSED},
        {"no number", "Content-length:", "12", 0},
        {"kept: another spelling is not read", "Content-Length: 10", "12", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const auto msg = Parse(RequestWith(row.headers + "\r\n") + row.body);
        ASSERT_EQ(msg == nullptr ? REFUSED : msg->ContentLen(), row.length);
        EXPECT_TRUE(msg == nullptr || std::string(msg->Content(), msg->Content() + row.length) ==
                                          row.body.substr(0, static_cast<size_t>(row.length)));
    }
}

}  // namespace
