// SPDX-License-Identifier: MIT
// Compares a run of units that is sent in few system calls with the same run sent unit by unit: for
// clients, host and log the two must be the same. A time-out other than 0 switches bursts off. The
// modelled sockets never wait, so it has no other effect there.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "faults/interpose.h"
#include "rtsps_text.h"
#include "rtsps_trans_ctrl.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/trans_info.h"

namespace {

constexpr int64_t NOON = 1700000000;
constexpr int BURSTS = 0;
constexpr int NO_BURSTS = 1;
constexpr int64_t ALL = int64_t{1} << 40;

struct CShapeUnit {
    int sequence;
    int length;  // of the packet
    int payloadType = 96;
    std::string prefix = {};  // overwrites the start of the unit
};

// A run of units that a host pushes. From push to push its sequence numbers rise by `step`.
struct CShape {
    const char* name;
    int step;
    std::vector<CShapeUnit> units;
    int repeat = 1;
    size_t missing = 0;  // bytes at the end

    Bytes Push(int number) const {
        Bytes run;
        for (int i = 0; i < repeat; ++i) {
            for (const CShapeUnit& shape : units) {
                const int sequence = shape.sequence + i + number * step;
                const auto payload = static_cast<size_t>(std::max(shape.length, 12) - 12);
                Bytes unit =
                    MakeUnit({static_cast<uint8_t>(shape.payloadType),
                              static_cast<uint16_t>(sequence), static_cast<uint32_t>(run.size()),
                              payload, static_cast<uint8_t>(37 * sequence + number)});
                unit.resize(4 + static_cast<size_t>(shape.length));
                WriteBe16(unit.data() + 2, static_cast<uint16_t>(shape.length));
                std::copy(shape.prefix.begin(), shape.prefix.end(), unit.begin());
                run.insert(run.end(), unit.begin(), unit.end());
            }
        }
        run.resize(run.size() - missing);
        return run;
    }
};

const CShape SHAPES[] = {
    {"equal_sizes", 4, {{1, 30}}, 4},
    {"odd_sizes", 7, {{1, 28}, {2, 28}, {3, 17}, {4, 28}, {5, 31}, {6, 31}, {7, 12}}},
    {"gaps", 20, {{1, 20}, {2, 20}, {3, 20}, {7, 20}, {8, 20}, {9, 20}, {5, 20}, {6, 20}, {7, 20}}},
    {"the_same_numbers_again", 0, {{1, 20}}, 4},
    {"wrap", 1, {{65533, 16}, {65534, 16}, {65535, 16}, {9, 16}, {10, 16}, {0, 16}, {1, 16}}},
    {"other_payload_types",
     2,
     {{70, 20, 8}, {3, 20, 8}, {1, 20}, {9, 20, 136}, {2, 20, 224}, {50, 20, 97}}},
    {"tiny_units",
     6,
     {{1, 20}, {2, 20}, {3, 11}, {4, 12}, {5, 3}, {6, 4}, {6, 0}, {7, 20}, {8, 20}}},
    {"cut_off_in_a_unit", 3, {{1, 20}}, 4, 1},
    {"cut_off_in_a_prefix", 3, {{1, 20}}, 4, 21},
    // The length is the last two letters of the prefix.
    {"reads_like_a_reply",
     5,
     {{1, 24}, {2, 24}, {3, 21328, 96, "RTSP"}, {4, 24}, {5, 29552, 96, "rtsp"}}},
    {"many", 150, {{1, 30}}, 150},
    {"large", 60, {{1, 1400}}, 60},
    {"huge", 3, {{1, 65535}, {2, 65500}, {3, 65535}}},
    {"huge_and_small", 4, {{1, 64990}, {2, 12}, {3, 12}, {4, 12}}},
};

// The result of a path that takes no more data, and the calls that get it.
enum EScope { LASTS, TOLD_ONCE, BURSTS_ONLY, PEER_GONE };
struct CWall {
    short events;
    int error;
    EScope scope = LASTS;
};

const CWall STREAM_WALLS[] = {{0, 0},
                              {POLLWRNORM, EAGAIN},
                              {POLLERR | POLLHUP, EAGAIN},
                              {POLLWRNORM | POLLERR, EPIPE},
                              {POLLWRNORM | POLLERR | POLLHUP, ECONNRESET}};

// EINVAL and EIO: the path does not support segmentation. For the last row, the kernel reports the
// error itself.
const CWall DATAGRAM_WALLS[] = {{0, 0},
                                {POLLWRNORM, EAGAIN},
                                {POLLWRNORM, ENOBUFS},
                                {POLLWRNORM | POLLERR, EMSGSIZE, TOLD_ONCE},
                                {POLLWRNORM | POLLERR, ECONNREFUSED, TOLD_ONCE},
                                {0, ENOBUFS, BURSTS_ONLY},
                                {0, EAGAIN, BURSTS_ONLY},
                                {0, EMSGSIZE, BURSTS_ONLY},
                                {0, EINVAL, BURSTS_ONLY},
                                {0, EIO, BURSTS_ONLY},
                                {0, 0, PEER_GONE}};

// The descriptors of the client under test, when it is interleaved, and of a second client, which
// is interleaved and takes all data. The second one receives the same buffers after the transport
// of the first has written into them, and its data is compared too.
constexpr int SUBJECT = 100000;
constexpr int NEXT = 100001;

// A path that takes a given number of bytes or datagrams in each push. A wait lasts a millisecond.
// Sending sets the clock back, so that the times in reports do not depend on the number of waits.
class CNetwork final : public CSocketModel {
  public:
    CNetwork(const CWall& wall, const std::vector<int64_t>& rooms) : m_wall(wall), m_rooms(rooms) {}

    void Begin(size_t push, int64_t now) {
        m_room = m_rooms[push];
        m_now = now;
        m_clock.Set(now);
    }
    short Poll(int fd) override {
        m_clock.Set(m_now, 1000);
        m_media = m_media == -1 ? fd : m_media;  // connected before the reports' socket
        if (Meets(fd, false)) {
            return m_wall.events;
        }
        pollfd kernel = {fd, POLLWRNORM, POLLWRNORM};
        const timespec zero = {};
        return fd < SUBJECT && ppoll(&kernel, 1, &zero, nullptr) == 0 ? short{0} : kernel.revents;
    }
    ssize_t Send(int fd, const char* data, size_t size) override {
        m_clock.Set(m_now);
        if (Meets(fd, false)) {
            return Fail();
        }
        if (fd < SUBJECT) {
            return Count(sendto(fd, data, size, 0, nullptr, 0), fd == m_media ? 1 : 0);
        }
        const int64_t taken = std::min(static_cast<int64_t>(size), fd == NEXT ? ALL : m_room);
        wire.append(data, static_cast<size_t>(taken));
        return Count(static_cast<ssize_t>(taken), fd == NEXT ? 0 : taken);
    }
    ssize_t SendMessage(int fd, const msghdr& message) override {
        ++bursts;
        return Meets(fd, true) ? Fail()
                               : Count(syscall(SYS_sendmsg, fd, &message, 0),
                                       static_cast<int64_t>(message.msg_iovlen));
    }

    std::string wire;
    int64_t metAt = ALL;
    int bursts = 0;

  private:
    bool Meets(int fd, bool isBurst) {
        const bool meets = fd == m_media && m_room <= 0 && m_wall.scope != PEER_GONE &&
                           (isBurst || m_wall.scope != BURSTS_ONLY);
        metAt = meets ? m_rooms[1] - m_room : metAt;
        return meets;
    }
    ssize_t Fail() {
        m_room = m_wall.scope == TOLD_ONCE ? ALL : m_room;
        errno = m_wall.error;
        return -1;
    }
    ssize_t Count(ssize_t result, int64_t taken) {
        m_room -= result < 0 ? 0 : taken;
        return result;
    }

    CWall m_wall;
    std::vector<int64_t> m_rooms;
    CFakeClock m_clock{NOON};
    int64_t m_now = NOON;
    int64_t m_room = ALL;
    int m_media = -1;
};

class CBurstTest : public ::testing::TestWithParam<size_t> {
  protected:
    // Makes five pushes with bursts and five without. Returns where the second push reached the
    // wall. The kernel reports a fault between two calls, so without bursts the datagrams fail at
    // the same place.
    int64_t Compare(ETRANS_MODE mode, const CWall& wall, std::vector<int64_t> rooms, int64_t step) {
        const auto peerPort = static_cast<uint16_t>(m_port + 2);
        int64_t metAt = ALL;
        std::string outcomes[2];
        std::string packet(65536, '\0');
        for (const int flag : {BURSTS, NO_BURSTS}) {
            const CLogCapture log;
            CTestSocket peers[] = {BindUdpAt(peerPort),
                                   BindUdpAt(static_cast<uint16_t>(peerPort + 1))};
            CNetwork network(wall, rooms);
            TRANS_INFO info = MakeTransInfo(mode, m_port, peerPort, SUBJECT);
            CTransCtrl clients[] = {CTransCtrl(nullptr), CTransCtrl(nullptr)};
            for (CTransCtrl& client : clients) {
                client.SetVideoTransInfo(&info);
                EXPECT_EQ(client.Open(nullptr, TRANS_STREAM_VIDEO), 0);
                info = MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, NEXT);
            }
            for (int i = 0; i < 5; ++i) {
                if (wall.scope == PEER_GONE && i >= 2) {
                    peers[0] = i < 4 ? CTestSocket() : BindUdpAt(peerPort);
                }
                network.Begin(static_cast<size_t>(i), NOON + i * step);
                Bytes run = m_pushes[static_cast<size_t>(i)];
                for (CTransCtrl& client : clients) {
                    const int result = client.SendStream(run.data(), static_cast<int>(run.size()),
                                                         TRANS_STREAM_VIDEO,
                                                         &client == clients ? flag : NO_BURSTS);
                    tagRtspServerTotals totals{};
                    client.GetTotals(&totals);
                    network.wire += " result " + std::to_string(result) + ", packets " +
                                    std::to_string(totals.qwVideoPackets) + ", bytes " +
                                    std::to_string(totals.qwVideoBytes) + "\n";
                }
                for (const CTestSocket& peer : peers) {
                    for (ssize_t n = 0; n >= 0;) {
                        n = recv(peer.Fd(), packet.data(), packet.size(), MSG_DONTWAIT);
                        network.wire += std::to_string(n) + "\n";
                        network.wire.append(packet, 0,
                                            static_cast<size_t>(std::max<ssize_t>(n, 0)));
                    }
                }
            }
            outcomes[flag] = network.wire + log.Text();
            m_reportsOneByte |= log.Has("remain bufsize=1\n");
            EXPECT_TRUE(flag == BURSTS || network.bursts == 0);
            metAt = flag == BURSTS ? network.metAt : metAt;
            rooms[1] = mode == UDP_MODE ? metAt : rooms[1];
        }
        EXPECT_TRUE(outcomes[BURSTS] == outcomes[NO_BURSTS]);
        return metAt;
    }

    bool m_reportsOneByte = false;  // that waits for the socket
    CLogCapture m_dump{2};          // addresses in hexadecimal
    uint16_t m_port = FreeDataPortRange(2);
    const CShape& m_shape = SHAPES[GetParam()];
    std::vector<Bytes> m_pushes = {m_shape.Push(0), m_shape.Push(1), m_shape.Push(2),
                                   m_shape.Push(3), m_shape.Push(4)};
};

TEST_P(CBurstTest, InterleavedMeetsAFullOrBrokenConnectionAtEveryByte) {
    const auto run = static_cast<int64_t>(m_pushes[0].size());
    // Every byte of a short run; sanitizers are slow.
    const int64_t step = !IsPlainBuild() ? run / 3 : run > 250 ? run / 23 : 1;
    for (const CWall& wall : STREAM_WALLS) {
        for (int64_t cut = 0; cut < run && !HasFailure(); cut += step) {
            // The room for the third push: none, less than the waiting bytes, enough for them and a
            // part of the push, or unlimited.
            for (const int64_t room : {int64_t{0}, int64_t{7}, run + run / 3, ALL}) {
                SCOPED_TRACE(testing::Message() << wall.events << " at " << cut << ", " << room);
                Compare(RTPOVERRTSP_MODE, wall, {ALL, cut, room, 13, ALL}, 2);
            }
        }
    }
    EXPECT_TRUE(step > 1 || m_reportsOneByte);
}

TEST_P(CBurstTest, UdpMeetsAFaultAtEveryDatagramWithAndWithoutReports) {
    for (const int64_t step : {0, 2, 5, -20}) {
        for (const CWall& wall : DATAGRAM_WALLS) {
            int64_t metAt = 0;
            for (int64_t at = 0; metAt != ALL && !HasFailure();
                 at += m_shape.repeat > 20 ? 31 : 1) {
                SCOPED_TRACE(testing::Message() << "clock " << step << ", wall "
                                                << &wall - DATAGRAM_WALLS << " at " << at);
                metAt = Compare(UDP_MODE, wall, {ALL, at, ALL, ALL, ALL}, step);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Send, CBurstTest, ::testing::Range(size_t{0}, std::size(SHAPES)),
                         [](const auto& row) { return std::string(SHAPES[row.param].name); });

}  // namespace
