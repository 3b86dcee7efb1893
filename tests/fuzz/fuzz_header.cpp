// SPDX-License-Identifier: MIT
// Each header form with rules of its own, and what reads it. The first byte selects the form.
#include <memory>

#include "fuzz_support.h"
#include "rtsp_clock_time.h"
#include "rtsp_msg.h"
#include "rtsp_msg_parser.h"
#include "rtsp_nptime.h"
#include "rtsps_mpte.h"

namespace {

// A time that is not negative is written so that it is read as the same second.
template <class Time>
void CheckTime(const std::string& text) {
    Time time(text.data(), static_cast<int>(text.size()));
    FUZZ_CHECK(time.usec() >= 0 && time.usec() < 1000000);
    Time again;
    again.FromString(time.to_string());
    FUZZ_CHECK(time.to_sec() < 0 || again.to_sec() == time.to_sec());
    again += time;
    again -= time;
}

void CheckTransport(const CRtspHeader& header) {
    const trans_protocol protocol = CRtspTransport::GetTransProtocol(header);
    FUZZ_CHECK(protocol >= protocol_udp && protocol <= protocol_over_rtsp);
    CRtspTransport::GetTransType(header);
    CRtspTransport::GetClientPort(header);
    CRtspTransport::GetServerPort(header);
    CRtspTransport::GetClientAddress(header);
    int nFirst = 0;
    int nSecond = 0;
    CRtspTransport::GetInterleavedFlag(header, &nFirst, &nSecond);
}

void CheckRange(const CRtspHeader& header, const std::string& value, const std::string& written) {
    CheckTime<NPTime>(value);
    CheckTime<ClockTime>(value);
    SMPTETimeCode(value.data(), static_cast<int>(value.size())).to_string();
    const auto* pRange = dynamic_cast<const CRtspRangeValue*>(header.GetHeaderValue());
    // Ends below 0 make no range that anybody reads.
    if (pRange != nullptr && pRange->Type() == TR_NPT &&
        (pRange->Begin() | pRange->End()) <= INT32_MAX) {
        CRtspHeader again("Range");
        CRtspMsgParser().ParseRangeValue(written.data(), static_cast<int>(written.size()), &again);
        FUZZ_CHECK(WrittenBy(again) == written);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    static constexpr const char* NAMES[] = {"Transport", "Range",  "Session", "Authorization",
                                            "RTP-Info",  "Public", "CSeq"};
    CFuzzInput input(pData, nSize);
    const std::string name = NAMES[input.Byte() % std::size(NAMES)];
    const std::string value = input.Text();
    const std::string line = name + ":" + value;
    CRtspRequest request;
    CRtspMsgParser parser;
    request.AddHeader(parser.ParseHeader(line.data(), static_cast<int>(line.size())).release());
    const CRtspHeader* pHeader = request.GetHeader(name.c_str());
    FUZZ_CHECK(pHeader != nullptr);
    const std::string written = WrittenBy(*pHeader);
    FUZZ_CHECK(written.find("\r\n") == written.size() - 2);
    if (name == "Range") {
        CheckRange(*pHeader, value, written);
        return 0;  // a copy is a plain value, without the unit
    }
    FUZZ_CHECK(WrittenBy(*std::unique_ptr<CRtspHeader>(pHeader->clone())) == written);
    CheckTransport(*pHeader);
    FUZZ_CHECK(name != "Authorization" || pHeader->GetHeaderValue()->ParameterCount() == 1);
    FUZZ_CHECK(CRtspResponse::CheckSessionId(&request, 12345678U) != 0 ||
               (name == "Session" && value.find("12345678") != value.npos));
    return 0;
}
