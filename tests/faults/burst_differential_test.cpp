// SPDX-License-Identifier: MIT
// Compares a run of units that is sent in few system calls with the same run sent unit by unit: for
// clients, host and log the two must be the same. A time-out other than 0 switches bursts off. The
// modelled sockets never wait, so it has no other effect there.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <random>
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

// Five pushes of a host. Most units continue a burst: they have its size and the next number.
std::vector<Bytes> RandomPushes(unsigned seed) {
    std::mt19937 random(seed);
    const auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };
    const struct {
        size_t units;
        size_t payload;
    } scales[] = {{7, 8}, {7, 16}, {150, 18}, {60, 1400}, {3, 65523}};
    const auto& scale = scales[seed % std::size(scales)];
    CTestUnit unit{96, 65530};
    std::vector<Bytes> pushes(5);
    for (Bytes& run : pushes) {
        for (size_t i = 0; i < scale.units; ++i) {
            // Sometimes a gap, or the same number again.
            unit.sequence = static_cast<uint16_t>(unit.sequence + (below(12) == 0 ? below(30) : 1));
            unit.payloadType = below(12) == 0 ? static_cast<uint8_t>(below(256)) : 96;
            unit.payload = below(6) == 0 ? below(scale.payload + 1) : scale.payload;
            unit.fill = static_cast<uint8_t>(below(256));
            Bytes bytes = MakeUnit(unit);
            if (below(20) == 0) {  // no whole header
                bytes.resize(4 + below(12));
                WriteBe16(&bytes[2], static_cast<uint16_t>(bytes.size() - 4));
            } else if (below(40) == 0) {  // reads like a reply; "SP" and "sp" are the length
                const std::string prefix = below(2) == 0 ? "RTSP" : "rtsp";
                bytes.resize(4 + static_cast<size_t>(prefix[2] << 8 | prefix[3]));
                std::copy(prefix.begin(), prefix.end(), bytes.begin());
            }
            run.insert(run.end(), bytes.begin(), bytes.end());
        }
        const size_t missing[] = {0, 0, 1, 21};
        run.resize(run.size() - missing[below(std::size(missing))]);
    }
    return pushes;
}

// The result of a path that takes no more data, and the calls that get it.
enum EScope { LASTS, TOLD_ONCE, BURSTS_ONLY };
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

// EINVAL and EIO: the path does not support segmentation.
const CWall DATAGRAM_WALLS[] = {{0, 0},
                                {POLLWRNORM, EAGAIN},
                                {POLLWRNORM, ENOBUFS},
                                {POLLWRNORM | POLLERR, EMSGSIZE, TOLD_ONCE},
                                {POLLWRNORM | POLLERR, ECONNREFUSED, TOLD_ONCE},
                                {0, ENOBUFS, BURSTS_ONLY},
                                {0, EAGAIN, BURSTS_ONLY},
                                {0, EMSGSIZE, BURSTS_ONLY},
                                {0, EINVAL, BURSTS_ONLY},
                                {0, EIO, BURSTS_ONLY}};

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
        m_media = m_media == -1 ? fd : m_media;  // written to before the reports' socket
        return Meets(fd, false) ? m_wall.events : short{POLLWRNORM};
    }
    ssize_t Send(int fd, const char* data, size_t size) override {
        return Meets(fd, false) ? Fail() : Take(fd, data, static_cast<int64_t>(size));
    }
    ssize_t SendMessage(int fd, const msghdr& message) override {
        ++bursts;
        ssize_t taken = Meets(fd, true) ? Fail() : 0;
        for (size_t i = 0; taken >= 0 && i < message.msg_iovlen; ++i) {
            const iovec& part = message.msg_iov[i];
            taken +=
                Take(fd, static_cast<char*>(part.iov_base), static_cast<int64_t>(part.iov_len));
        }
        return taken;
    }

    std::string wire;
    int64_t metAt = ALL;
    int bursts = 0;

  private:
    bool Meets(int fd, bool isBurst) {
        const bool meets = fd == m_media && m_room <= 0 && (isBurst || m_wall.scope != BURSTS_ONLY);
        metAt = meets ? m_rooms[1] - m_room : metAt;
        return meets;
    }
    ssize_t Fail() {
        m_clock.Set(m_now);
        m_room = m_wall.scope == TOLD_ONCE ? ALL : m_room;
        errno = m_wall.error;
        return -1;
    }
    ssize_t Take(int fd, const char* data, int64_t size) {
        m_clock.Set(m_now);
        const bool isDatagram = fd < SUBJECT;
        const int64_t taken = fd == SUBJECT ? std::min(size, m_room) : size;
        m_room -= fd != m_media ? 0 : isDatagram ? 1 : taken;
        wire.append(data, static_cast<size_t>(taken));
        wire += !isDatagram ? "" : fd == m_media ? " media\n" : " report\n";
        return static_cast<ssize_t>(taken);
    }

    CWall m_wall;
    std::vector<int64_t> m_rooms;
    CFakeClock m_clock{NOON};
    int64_t m_now = NOON;
    int64_t m_room = ALL;
    int m_media = -1;
};

class CBurstTest : public ::testing::TestWithParam<unsigned> {
  protected:
    // Makes five pushes with bursts and five without. Returns where the second push reached the
    // wall. The kernel reports a fault between two calls, so without bursts the datagrams fail at
    // the same place.
    int64_t Compare(ETRANS_MODE mode, const CWall& wall, std::vector<int64_t> rooms, int64_t step) {
        int64_t metAt = ALL;
        std::string outcomes[2];
        for (const int flag : {BURSTS, NO_BURSTS}) {
            const CLogCapture log;
            CNetwork network(wall, rooms);
            TRANS_INFO info = MakeTransInfo(mode, m_port, m_port, SUBJECT);
            CTransCtrl clients[] = {CTransCtrl(nullptr), CTransCtrl(nullptr)};
            for (CTransCtrl& client : clients) {
                client.SetVideoTransInfo(&info);
                EXPECT_EQ(client.Open(nullptr, TRANS_STREAM_VIDEO), 0);
                info = MakeTransInfo(RTPOVERRTSP_MODE, 0, 0, NEXT);
            }
            for (int i = 0; i < 5; ++i) {
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
    uint16_t m_port = FreeDataPortRange();
    const std::vector<Bytes> m_pushes = RandomPushes(GetParam());
};

TEST_P(CBurstTest, InterleavedMeetsAFullOrBrokenConnectionAtEveryByte) {
    const auto run = static_cast<int64_t>(m_pushes[0].size());
    // Every byte of a short run; sanitizers and emulators are slow.
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
    const bool isSlow = !IsPlainBuild();
    const auto steps = isSlow ? std::vector<int64_t>{5} : std::vector<int64_t>{0, 2, 5, -20};
    const int64_t everyDatagram = isSlow ? 2 : 8;  // up to this one
    for (const int64_t step : steps) {
        for (const CWall& wall : DATAGRAM_WALLS) {
            int64_t metAt = 0;
            for (int64_t at = 0; metAt != ALL && !HasFailure(); at += at < everyDatagram ? 1 : 31) {
                SCOPED_TRACE(testing::Message() << "clock " << step << ", wall "
                                                << &wall - DATAGRAM_WALLS << " at " << at);
                metAt = Compare(UDP_MODE, wall, {ALL, at, ALL, ALL, ALL}, step);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Send, CBurstTest, ::testing::Range(0U, 15U),
                         [](const auto& row) { return "seed" + std::to_string(row.param); });

}  // namespace
