// SPDX-License-Identifier: MIT
// A run of units that leaves in few system calls compared with the same run sent unit by unit: no
// client, no host and no log line may tell the two apart. A time-out other than 0 switches bursts
// off; over modelled sockets, which never wait, it changes nothing else.
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "faults/interpose.h"
#include "rtsps_server_api.h"
#include "rtsps_text.h"
#include "rtsps_trans_ctrl.h"
#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

constexpr int64_t NOON = 1700000000;
constexpr int BURSTS = 0;
constexpr int NO_BURSTS = 1;
constexpr size_t MAX_DATAGRAM = 65507;

// A run of units that a host pushes. From push to push its sequence numbers rise by `step`.
struct CShape {
    const char* name;
    int step;
    const char* units;  // each "sequence/length of the packet[/payload type[/prefix]]"
    int repeat = 1;
    size_t missing = 0;  // bytes at the end

    Bytes Push(int number) const {
        Bytes run;
        for (int i = 0; i < repeat; ++i) {
            std::istringstream words(units);
            for (std::string word; words >> word;) {
                int sequence = 0;
                int length = 0;
                int payloadType = 96;
                char prefix[5] = "";
                sscanf(word.c_str(), "%d/%d/%d/%4s", &sequence, &length, &payloadType, prefix);
                sequence += i + number * step;
                Bytes unit =
                    MakeUnit({static_cast<uint8_t>(payloadType), static_cast<uint16_t>(sequence),
                              static_cast<uint32_t>(run.size()),
                              static_cast<size_t>(std::max(length, 12) - 12),
                              static_cast<uint8_t>(37 * sequence + number)});
                unit.resize(4 + static_cast<size_t>(length));
                WriteBe16(unit.data() + 2, static_cast<uint16_t>(length));
                memcpy(unit.data(), prefix, strlen(prefix));
                run.insert(run.end(), unit.begin(), unit.end());
            }
        }
        run.resize(run.size() - missing);
        return run;
    }
};

const CShape SHAPES[] = {
    {"equal_sizes", 4, "1/30", 4},
    {"odd_sizes", 7, "1/28 2/28 3/17 4/28 5/31 6/31 7/12"},
    {"gaps", 20, "1/20 2/20 3/20 7/20 8/20 9/20 5/20 6/20 7/20"},
    {"the_same_numbers_again", 0, "1/20", 4},
    {"wrap", 1, "65533/16 65534/16 65535/16 9/16 10/16 0/16 1/16"},
    {"other_payload_types", 2, "70/20/8 3/20/8 1/20 9/20/136 2/20/224 50/20/97"},
    {"tiny_units", 6, "1/20 2/20 3/11 4/12 5/3 6/4 6/0 7/20 8/20"},
    {"cut_off_in_a_unit", 3, "1/20", 4, 1},
    {"cut_off_in_a_prefix", 3, "1/20", 4, 21},
    {"reads_like_a_reply", 5, "1/24 2/24 3/21328/96/RTSP 4/24 5/29552/96/rtsp"},
    {"many", 150, "1/30", 150},
    {"large", 60, "1/1400", 60},
    {"huge", 3, "1/65535 2/65500 3/65535"},
    {"huge_and_small", 4, "1/64990 2/12 3/12 4/12"},
};

void PrintTo(const CShape& shape, std::ostream* out) {
    *out << shape.name;
}

// The client under test, and next to it an interleaved one on socket NEXT that takes everything:
// what it receives of the buffers that the first one's transport has written into counts as well.
constexpr int SUBJECT = 100000;
constexpr int NEXT = 100001;

class CModel : public CSocketModel {
  public:
    virtual void Begin(size_t push) = 0;
    std::string wire;  // what was sent since the last push; the sizes of datagrams in front of each
    std::string next;

  protected:
    static ssize_t Fail(int error) {
        errno = error;
        return -1;
    }
    ssize_t ToNext(const char* data, size_t size) {
        next.append(data, size);
        return static_cast<ssize_t>(size);
    }
};

// What shows outside, in the order in which it happens.
using COutcome = std::vector<std::string>;

COutcome Play(ETRANS_MODE mode, uint16_t port, const std::vector<Bytes>& pushes, int64_t clockStep,
              CModel& model, int flag) {
    const CLogCapture log;
    CWallClock clock;
    clock.StandAt(NOON);
    CTransCtrl subject(nullptr);
    CTransCtrl next(nullptr);
    TRANS_INFO info = MakeTransInfo(mode, port, 9, SUBJECT);
    subject.SetVideoTransInfo(&info);
    info = MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, NEXT);
    next.SetVideoTransInfo(&info);
    EXPECT_EQ(subject.Open(nullptr, TRANS_STREAM_VIDEO), 0);
    EXPECT_EQ(next.Open(nullptr, TRANS_STREAM_VIDEO), 0);
    COutcome outcome;
    for (size_t i = 0; i < pushes.size(); ++i) {
        clock.StandAt(NOON + static_cast<int64_t>(i) * clockStep);
        model.Begin(i);
        Bytes copy = pushes[i];
        const int size = static_cast<int>(copy.size());
        const int result = subject.SendStream(copy.data(), size, TRANS_STREAM_VIDEO, flag);
        next.SendStream(copy.data(), size, TRANS_STREAM_VIDEO, NO_BURSTS);
        tagRtspServerTotals totals{};
        subject.GetTotals(&totals);
        outcome.push_back(std::to_string(result) + ", packets " +
                          std::to_string(totals.qwVideoPackets) + ", bytes " +
                          std::to_string(totals.qwVideoBytes));
        outcome.push_back(std::exchange(model.wire, ""));
        outcome.push_back(std::exchange(model.next, ""));
    }
    subject.Close();
    next.Close();
    outcome.push_back(log.Text());
    return outcome;
}

std::string Difference(const COutcome& bursts, const COutcome& plain) {
    for (size_t i = 0; i < std::min(bursts.size(), plain.size()); ++i) {
        if (bursts[i] != plain[i]) {
            return "entry " + std::to_string(i) + ":\n" + bursts[i].substr(0, 300) +
                   "\nunit by unit:\n" + plain[i].substr(0, 300);
        }
    }
    return bursts.size() == plain.size() ? "" : "one has more";
}

class CBurstTest : public ::testing::TestWithParam<CShape> {
  protected:
    void SetUp() override {
        for (int i = 0; i < 5; ++i) {
            m_pushes.push_back(GetParam().Push(i));
        }
    }
    CLogCapture m_dump{2};  // addresses in hexadecimal
    uint16_t m_port = FreeDataPortRange(2);
    std::vector<Bytes> m_pushes;
};

// A connection that takes so many more bytes in each push, and what it says then.
enum EWall { FULL, WOULD_BLOCK, HANG_UP, BROKEN_PIPE, RESET, WALLS };

class CStreamModel final : public CModel {
  public:
    CStreamModel(int wall, std::vector<size_t> rooms) : m_wall(wall), m_rooms(std::move(rooms)) {}

    void Begin(size_t push) override { m_room = m_rooms[push]; }
    short Poll(int fd) override {
        const short events[WALLS] = {0, POLLWRNORM, POLLERR | POLLHUP, POLLWRNORM | POLLERR,
                                     POLLWRNORM | POLLERR | POLLHUP};
        return fd == NEXT || m_room > 0 ? short{POLLWRNORM} : events[m_wall];
    }
    ssize_t Send(int fd, const char* data, size_t size) override {
        if (fd == NEXT) {
            return ToNext(data, size);
        }
        if (m_room == 0) {
            return Fail(m_wall == BROKEN_PIPE ? EPIPE : m_wall == RESET ? ECONNRESET : EAGAIN);
        }
        const size_t taken = std::min(size, m_room);
        wire.append(data, taken);
        m_room -= taken;
        return static_cast<ssize_t>(taken);
    }
    ssize_t SendMessage(int /*fd*/, const msghdr& /*message*/) override { return Fail(ENOSYS); }

  private:
    int m_wall;
    std::vector<size_t> m_rooms;
    size_t m_room = 0;
};

TEST_P(CBurstTest, InterleavedMeetsAFullOrBrokenConnectionAtEveryByte) {
    constexpr size_t ALL = SIZE_MAX / 2;
    const size_t run = m_pushes[0].size();
    // Every byte of a short run; sanitizers are slow.
    const size_t step = !IsPlainBuild() ? run / 3 : run > 250 ? run / 23 : 1;
    for (size_t cut = 0; cut < run; cut += step) {
        for (int wall = FULL; wall < WALLS; ++wall) {
            // What opens up again for the third push: nothing, too little for what waits, enough
            // for it and for a part of the push, all.
            for (const size_t room : {size_t{0}, size_t{7}, run + run / 3, ALL}) {
                COutcome outcomes[2];
                for (const int flag : {BURSTS, NO_BURSTS}) {
                    CStreamModel model(wall, {ALL, cut, room, 13, ALL});
                    outcomes[flag] = Play(RTPOVERRTSP_MODE, 0, m_pushes, 2, model, flag);
                }
                ASSERT_EQ(Difference(outcomes[BURSTS], outcomes[NO_BURSTS]), "")
                    << "cut " << cut << ", wall " << wall << ", then " << room;
            }
        }
    }
}

// A path that cuts bursts into datagrams like the kernel, whole or not at all. In the second push
// it has a fault, met by the first media send with `faultAt` datagrams behind it or more.
enum EFaultKind { TIME_OUT, LASTS, TOLD_ONCE, BURSTS_ONLY, NEVER_BURSTS };
constexpr struct {
    EFaultKind kind;
    int error;
} FAULTS[] = {{TIME_OUT, 0},          {LASTS, EAGAIN},           {LASTS, ENOBUFS},
              {TOLD_ONCE, EMSGSIZE},  {TOLD_ONCE, ECONNREFUSED}, {TOLD_ONCE, EHOSTUNREACH},
              {BURSTS_ONLY, ENOBUFS}, {BURSTS_ONLY, EAGAIN},     {BURSTS_ONLY, ENOMEM},
              {NEVER_BURSTS, EINVAL}, {NEVER_BURSTS, EIO},       {NEVER_BURSTS, EOPNOTSUPP},
              {BURSTS_ONLY, EMSGSIZE}};

class CDatagramModel final : public CModel {
  public:
    CDatagramModel(size_t fault, size_t at)
        : faultAt(at), m_kind(FAULTS[fault].kind), m_error(FAULTS[fault].error) {}

    void Begin(size_t push) override {
        m_isOn = push == 1;
        m_sent = 0;
    }
    short Poll(int fd) override {
        m_media = m_media == -1 ? fd : m_media;  // connected before the reports' socket
        if (m_kind >= BURSTS_ONLY || !Meets(fd)) {
            return POLLWRNORM;
        }
        return m_kind == TIME_OUT ? short{0} : m_kind == LASTS ? POLLWRNORM : POLLWRNORM | POLLERR;
    }
    ssize_t Send(int fd, const char* data, size_t size) override {
        if (m_kind < BURSTS_ONLY && Meets(fd)) {
            m_isOn = m_kind != TOLD_ONCE;
            return Fail(m_error);
        }
        return fd == NEXT ? ToNext(data, size) : SendAll(fd, {data, size}, size);
    }
    ssize_t SendMessage(int fd, const msghdr& message) override {
        ++bursts;
        if (Meets(fd)) {
            EXPECT_FALSE(m_isRefused) << "it has learned that nothing is segmented";
            m_isRefused = m_kind == NEVER_BURSTS;
            m_isOn = m_kind != TOLD_ONCE;
            return Fail(m_error);
        }
        uint16_t segment = 0;
        memcpy(&segment, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof(segment));
        std::string all;
        for (size_t i = 0; i < message.msg_iovlen; ++i) {
            all.append(static_cast<const char*>(message.msg_iov[i].iov_base),
                       message.msg_iov[i].iov_len);
        }
        EXPECT_TRUE(segment > 0 && all.size() <= segment * size_t{64});
        return SendAll(fd, all, segment);
    }

    size_t faultAt;  // once it is met: where
    bool met = false;
    int bursts = 0;

  private:
    bool Meets(int fd) {
        const bool meets = m_isOn && fd == m_media && m_sent >= faultAt;
        faultAt = meets ? m_sent : faultAt;
        met = met || meets;
        return meets;
    }
    ssize_t SendAll(int fd, const std::string& all, size_t segment) {
        if (all.size() > MAX_DATAGRAM) {
            return Fail(EMSGSIZE);
        }
        size_t at = 0;
        do {
            const std::string packet = all.substr(at, segment);
            wire += "[" + std::to_string(packet.size()) + "]" + packet;
            m_sent += fd == m_media ? 1 : 0;
            at += segment;
        } while (at < all.size());
        return static_cast<ssize_t>(all.size());
    }

    EFaultKind m_kind;
    int m_error;
    bool m_isOn = false;
    bool m_isRefused = false;
    int m_media = -1;
    size_t m_sent = 0;
};

TEST_P(CBurstTest, UdpMeetsAFaultAtEveryDatagramWithAndWithoutReports) {
    for (const int64_t clockStep : {0, 2, 5, -20}) {
        for (size_t fault = 0; fault < std::size(FAULTS); ++fault) {
            bool met = true;
            for (size_t at = 0; met; at += GetParam().repeat > 20 ? 31U : 1U) {
                CDatagramModel bursting(fault, at);
                const COutcome bursts =
                    Play(UDP_MODE, m_port, m_pushes, clockStep, bursting, BURSTS);
                // The kernel tells a fault between two calls: it is met where the bursts met it.
                met = bursting.met;
                CDatagramModel plainly(fault, met ? bursting.faultAt : SIZE_MAX);
                const COutcome plain =
                    Play(UDP_MODE, m_port, m_pushes, clockStep, plainly, NO_BURSTS);
                ASSERT_EQ(Difference(bursts, plain), "")
                    << "clock " << clockStep << ", fault " << fault << " at " << at;
                EXPECT_EQ(plainly.bursts, 0);
            }
        }
    }
}

// Over the loopback interface the kernel cuts the bursts, and tells at once that a client is gone.
TEST_P(CBurstTest, UdpDatagramsAndRefusalsOfTheKernelAreTheSame) {
    COutcome outcomes[2];
    int segmented[2] = {};
    for (const int flag : {BURSTS, NO_BURSTS}) {
        const CInLibrary in;
        const CLogCapture log;
        CTestSocket peer = CTestSocket::BindUdp();
        const uint16_t peerPort = peer.Port();
        segmented[flag] = -CallsInLibrary(ECall::SENDMSG);
        TRANS_INFO info = MakeTransInfo(UDP_MODE, m_port, peerPort);
        CTransCtrl client(nullptr);
        client.SetVideoTransInfo(&info);
        ASSERT_EQ(client.Open(nullptr, TRANS_STREAM_VIDEO), 0);
        for (size_t i = 0; i < m_pushes.size(); ++i) {
            if (i == 2) {
                peer.Reset();
            } else if (i == 4) {
                peer = BindUdpAt(peerPort);
                CBB_SetBuffSize(peer.Fd(), 0, 4 << 20);
            }
            Bytes copy = m_pushes[i];
            outcomes[flag].push_back(std::to_string(client.SendStream(
                copy.data(), static_cast<int>(copy.size()), TRANS_STREAM_VIDEO, flag)));
            char packet[MAX_DATAGRAM];
            for (int n = 0; n >= 0;) {
                n = CBB_RecvWithTimeOut(peer.Fd(), packet, sizeof(packet), 0);
                outcomes[flag].emplace_back(packet, static_cast<size_t>(std::max(n, 0)));
            }
        }
        client.Close();
        outcomes[flag].push_back(log.Text());
        segmented[flag] += CallsInLibrary(ECall::SENDMSG);
    }
    ASSERT_EQ(Difference(outcomes[BURSTS], outcomes[NO_BURSTS]), "");
    EXPECT_EQ(segmented[NO_BURSTS], 0);
    EXPECT_TRUE(!IsPlainBuild() || segmented[BURSTS] > 0 || m_pushes[0].size() > 100000);
}

INSTANTIATE_TEST_SUITE_P(Send, CBurstTest, ::testing::ValuesIn(SHAPES),
                         [](const auto& shape) { return std::string(shape.param.name); });

}  // namespace
