// SPDX-License-Identifier: MIT
#include "arguments.h"

#include <getopt.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

struct CParsed {
    explicit CParsed(std::vector<std::string> words) {
        words.insert(words.begin(), "live_host");
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        optind = 0;  // getopt starts again
        ok = ParseArguments(static_cast<int>(words.size()), argv.data(), "/media", arguments);
    }
    bool ok = false;
    CArguments arguments;
};

TEST(LiveHostArguments, WithoutOptionsItPlaysTheClip) {
    const CParsed parsed({});
    EXPECT_TRUE(parsed.ok);
    EXPECT_EQ(parsed.arguments.strVideo, "/media/clip.h264");
    EXPECT_EQ(parsed.arguments.strAudio, "/media/clip.alaw");
    EXPECT_EQ(parsed.arguments.nPort, 8554);
    EXPECT_TRUE(parsed.arguments.bLoop && parsed.arguments.bCue);
}

TEST(LiveHostArguments, ReadsEveryOption) {
    const CParsed parsed({"--port", "65535", "--channel", "0", "--video", "a.hevc", "--audio", "b",
                          "--fps", "30000/1001", "--no-loop", "--no-cue", "--seconds", "9",
                          "--data-ports", "1024-65533", "--log", "l", "--debug"});
    ASSERT_TRUE(parsed.ok);
    const CArguments& arguments = parsed.arguments;
    EXPECT_EQ(arguments.nPort, 65535);
    EXPECT_EQ(arguments.nChannel, 0);
    EXPECT_EQ(arguments.strVideo + arguments.strAudio, "a.hevcb");
    EXPECT_TRUE(arguments.emCodec == EVideoCodec::eH265) << "by its name";
    EXPECT_EQ(arguments.nFrames, 30000);
    EXPECT_EQ(arguments.nFrameSeconds, 1001);
    EXPECT_EQ(arguments.nSeconds, 9);
    EXPECT_EQ(arguments.nMinDataPort, 1024);
    EXPECT_EQ(arguments.nMaxDataPort, 65533);
    EXPECT_EQ(arguments.strLog, "l");
    EXPECT_TRUE(arguments.bDebug && !arguments.bLoop && !arguments.bCue && !arguments.bHelp);
}

TEST(LiveHostArguments, APipeEndsAndCannotJumpAhead) {
    const CParsed parsed({"--video", "-", "--codec", "h265"});
    EXPECT_TRUE(parsed.ok && parsed.arguments.emCodec == EVideoCodec::eH265);
    EXPECT_FALSE(parsed.arguments.bLoop || parsed.arguments.bCue);
    EXPECT_EQ(parsed.arguments.strAudio, "") << "the clip's sound does not match this video";
}

TEST(LiveHostArguments, InvalidOnesPrintOneLineOnStandardError) {
    const struct {
        std::vector<std::string> words;
        const char* reason = "";
    } rows[] = {
        {{"--port", "0"}},
        {{"--port", "65536"}},
        {{"--port", "80x"}},
        {{"--channel", "-1"}},
        {{"--video", ""}},
        {{"--codec", "h264"}},
        {{"--codec", "vp9"}},
        {{"--fps", "0"}},
        {{"--fps", "1001"}},
        {{"--fps", "30/0"}},
        {{"--seconds", "0"}},
        {{"--audio", ""}},
        {{"--log", ""}},
        {{"--unknown"}},
        {{"clip.h264"}},
        {{"--video", "-", "--loop"}},
        {{"--audio", "a", "--no-audio"}},
        {{"--data-ports", "20000"}},
        {{"--data-ports", "20000-65534"}, "both from 1024 to 65533"},
        {{"--data-ports", "80-20000"}, "both from 1024 to 65533"},
        {{"--data-ports", "20010-20000"}, "MIN is above MAX"},
        {{"--data-ports", "20001-20010"}, "MIN must be even"},
        {{"--data-ports", "20000-20001"}, "too few"},
    };
    for (const auto& row : rows) {
        const CLogCapture errors(2);
        EXPECT_FALSE(CParsed(row.words).ok) << row.words.back();
        EXPECT_EQ(errors.Count("\n"), 1) << row.words.back();
        EXPECT_TRUE(errors.Has(row.reason)) << row.words.back();
    }
    EXPECT_TRUE(CParsed({"--data-ports", "20000-20002"}).ok);
    EXPECT_TRUE(CParsed({"--data-ports", "20000-20000", "--no-audio"}).ok);
}

}  // namespace
