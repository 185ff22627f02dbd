// Malformed, truncated and oversized frames, and clients that vanish, end
// their own connection only.
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "qm_harness.hpp"
#include "qm_protocol.hpp"

using namespace qmtest;

namespace {

class Robustness : public ConnectedTest {
 protected:
  void SetUp() override {
    ConnectedTest::SetUp();
    if (IsSkipped()) return;
    q_ = openQueue(hconn_, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  }
  static jxqp::Bytes hello() {
    jxqp::Writer w;
    jxqp::encode(w, jxqp::HelloRequest{.user = {}, .password = {}, .pid = 1, .applName = {}});
    return jxqp::frame(static_cast<uint8_t>(jxqp::Op::Hello), w);
  }
  // A fresh connection that has said hello and read the reply.
  int greeted() {
    int fd = rawSocket(qm_->name());
    jxqp::Bytes h = hello();
    EXPECT_EQ(send(fd, h.data(), h.size(), 0), static_cast<ssize_t>(h.size()));
    uint8_t reply[512];
    EXPECT_GT(recv(fd, reply, sizeof reply, 0), 12);
    return fd;
  }
  void stillServing() {
    ASSERT_EQ(put(hconn_, q_, "still here"), JXRC_NONE);
    EXPECT_EQ(get(hconn_, q_).data, "still here");
    int32_t h = connect(qm_->name());
    disconnect(h);
  }
  int32_t q_ = 0;
};

jxqp::Bytes patched(jxqp::Bytes f, size_t offset, uint8_t value) {
  f[offset] = value;
  return f;
}

TEST_F(Robustness, BadFramesEndOnlyTheirConnection) {
  jxqp::Writer open;
  jxqp::encode(open, jxqp::OpenRequest{.options = JXOO_OUTPUT, .obj = {.objectType = JXOT_Q}});
  // A close request is one handle of four bytes: three are one short.
  jxqp::Writer shortClose;
  shortClose.i32(1);
  for (int i = 0; i < 3; ++i) shortClose.u8(0);
  const struct {
    const char *name;
    jxqp::Bytes bytes;
    bool afterHello;
  } frames[] = {
      {"garbage", jxqp::Bytes(200, 0x5a), false},
      {"version", patched(hello(), 4, 99), false},
      {"flags", patched(hello(), 6, 1), false},
      {"length far above the limit", patched(hello(), 11, 0x7f), false},
      {"open before hello", jxqp::frame(static_cast<uint8_t>(jxqp::Op::Open), open), false},
      {"close one byte short", jxqp::frame(static_cast<uint8_t>(jxqp::Op::Close), shortClose),
       true},
      {"unknown operation", jxqp::frame(77, shortClose), true},
  };
  for (const auto &f : frames) {
    SCOPED_TRACE(f.name);
    int fd = f.afterHello ? greeted() : rawSocket(qm_->name());
    ASSERT_EQ(send(fd, f.bytes.data(), f.bytes.size(), 0), static_cast<ssize_t>(f.bytes.size()));
    EXPECT_TRUE(closedByServer(fd));
    close(fd);
  }
  stillServing();
}

// Clients that vanish part-way, or stall with a frame half sent while
// others work.
TEST_F(Robustness, TruncatedFramesAndVanishingClients) {
  const jxqp::Bytes f = hello();
  int fd = rawSocket(qm_->name());
  ASSERT_EQ(send(fd, f.data(), f.size() / 2, 0), static_cast<ssize_t>(f.size() / 2));
  close(fd);
  close(greeted());
  fd = rawSocket(qm_->name());
  jxqp::Writer big;
  big.blob(std::string(100000, 'x').data(), 100000);
  const jxqp::Bytes bf = jxqp::frame(static_cast<uint8_t>(jxqp::Op::Hello), big);
  ASSERT_EQ(send(fd, bf.data(), 5000, 0), 5000);
  stillServing();
  close(fd);
}

TEST_F(Robustness, ALiveConnectionSeesTheServerGoAsBroken) {
  qm_->kill9();
  EXPECT_EQ(put(hconn_, q_, "x"), JXRC_CONNECTION_BROKEN);
  EXPECT_EQ(get(hconn_, q_).rc, JXRC_CONNECTION_BROKEN);
  int32_t cc, rc;
  zstJXDISC(&hconn_, 0, &cc, &rc);
  EXPECT_EQ(rc, JXRC_CONNECTION_BROKEN);
  EXPECT_EQ(hconn_, JXHC_UNUSABLE_HCONN);
  int32_t h = 0;
  EXPECT_EQ(tryConnect(qm_->name(), h), JXRC_Q_MGR_NOT_AVAILABLE);
  ASSERT_TRUE(qm_->start());
}

// CPU time (clock ticks) the process has used so far.
long cpuTicks(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(in, line);
  std::istringstream rest(line.substr(line.rfind(')') + 2));
  std::string field;
  long utime = 0, stime = 0;
  for (int i = 3; i <= 15 && rest >> field; ++i) {
    if (i == 14) utime = std::stol(field);
    if (i == 15) stime = std::stol(field);
  }
  return utime + stime;
}

using ConnectionFlood = ServerTest;

// With 64 descriptors the connection cap is met first; with 40 the server
// runs out of descriptors before it, and accept fails with EMFILE.
TEST_F(ConnectionFlood, MoreConnectionsThanDescriptorsDoNotStopTheServer) {
  for (const rlim_t limit : {64, 40}) {
    SCOPED_TRACE(limit);
#ifdef __SANITIZE_ADDRESS__
    // The sanitizer's own descriptors leave a server of 40 none to serve with.
    if (limit == 40) continue;
#endif
    QueueManagerProcess qm({"Q1"}, {}, false);
    const auto fewDescriptors = [limit] {
      rlimit lim{limit, limit};
      if (setrlimit(RLIMIT_NOFILE, &lim) != 0) _exit(98);
    };
    ASSERT_EQ(jxqm({"start", qm.name()}, "", fewDescriptors).status, 0);

    std::vector<int> flood;
    for (int i = 0; i < 100; ++i) {
      int fd = rawSocket(qm.name());
      if (fd >= 0) flood.push_back(fd);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    long before = cpuTicks(qm.pid());
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_LT(cpuTicks(qm.pid()) - before, 10) << "the server spins on its listener";
    const std::string log = qmLog(qm.name());
    EXPECT_EQ(
        log.find("accept: Too many open files; not accepting connections") != std::string::npos,
        limit == 40)
        << log;
    for (int fd : flood) close(fd);
    int32_t rc = JXRC_Q_MGR_NOT_AVAILABLE, h = 0;
    for (int i = 0; i < 100 && rc != JXRC_NONE; ++i) {
      rc = tryConnect(qm.name(), h);
      if (rc != JXRC_NONE) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_EQ(rc, JXRC_NONE);
    int32_t q = openQueue(h, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
    ASSERT_EQ(put(h, q, "after the flood"), JXRC_NONE);
    EXPECT_EQ(get(h, q).data, "after the flood");
    disconnect(h);
  }
}

using HelloTimeout = ServerTest;

TEST_F(HelloTimeout, SilentPeersAreClosedAndIdleClientsKept) {
  QueueManagerProcess qm({"Q1"}, {"--hello-timeout", "1"});
  int32_t h = connect(qm.name());
  int fd = rawSocket(qm.name());
  ASSERT_GE(fd, 0);
  ASSERT_EQ(send(fd, "JXQP", 4, 0), 4);  // part of a header, then silence
  char b;
  auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(recv(fd, &b, 1, 0), 0) << "closed by the server";
  EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(8));
  close(fd);
  // A connection that said hello may stay idle.
  int32_t q = openQueue(h, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  ASSERT_EQ(put(h, q, "idle but known"), JXRC_NONE);
  EXPECT_EQ(get(h, q).data, "idle but known");
  disconnect(h);
}

using Polling = ServerTest;

// Out-of-range values are refused with the control tool's arguments.
TEST_F(Polling, PollingOffStillServesAndWaits) {
  QueueManagerProcess qm({"Q1"}, {"--poll-us", "0"});
  int32_t h = connect(qm.name());
  int32_t q = openQueue(h, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(put(h, q, "unpolled " + std::to_string(i)), JXRC_NONE);
    EXPECT_EQ(get(h, q).data, "unpolled " + std::to_string(i));
  }
  EXPECT_EQ(get(h, q, JXGMO_WAIT, 100).rc, JXRC_NO_MSG_AVAILABLE);
  disconnect(h);
  // A stop ends the unpolled loop cleanly: only a clean end says "ended".
  ASSERT_TRUE(qm.stop());
  const std::string log = qmLog(qm.name());
  EXPECT_NE(log.find("queue manager " + qm.name() + " ended"), std::string::npos) << log;
}

}  // namespace
