// Malformed, truncated and oversized frames, and clients that vanish, end
// their own connection only.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "qm_harness.hpp"
#include "qm_protocol.hpp"

using namespace qmtest;

namespace {

class Robustness : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!serverAvailable()) GTEST_SKIP() << "no native jxqmgr (set JX_NATIVE_BIN_DIR)";
    qm_ = std::make_unique<QueueManagerProcess>();
    hconn_ = connect(qm_->name());
    q_ = openQueue(hconn_, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  }
  void TearDown() override {
    if (hconn_ > 0) disconnect(hconn_);
    qm_.reset();
  }
  int rawSocket() {
    std::string path = std::string(getenv("JX_DATA_PATH")) + "/qmgrs/" + qm_->name() + "/qm.sock";
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un sun{};
    sun.sun_family = AF_UNIX;
    std::strncpy(sun.sun_path, path.c_str(), sizeof sun.sun_path - 1);
    EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr *>(&sun), sizeof sun), 0);
    timeval tv{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    return fd;
  }
  // True when the server closes the connection without answering.
  static bool closedByServer(int fd) {
    char b;
    ssize_t n;
    do n = recv(fd, &b, 1, 0);
    while (n > 0);
    return n == 0;
  }
  static jxqp::Bytes hello() {
    jxqp::Writer w;
    char name[48] = {};
    jxqp::encodeHello(w, name, "", "", 1);
    return jxqp::frame(static_cast<uint8_t>(jxqp::Op::Hello), w);
  }
  void stillServing() {
    ASSERT_EQ(put(hconn_, q_, "still here"), JXRC_NONE);
    EXPECT_EQ(get(hconn_, q_).data, "still here");
    int32_t h = connect(qm_->name());
    disconnect(h);
  }
  std::unique_ptr<QueueManagerProcess> qm_;
  int32_t hconn_ = 0, q_ = 0;
};

TEST_F(Robustness, GarbageBytesEndOnlyThatConnection) {
  int fd = rawSocket();
  std::string junk(200, '\x5a');
  ASSERT_EQ(send(fd, junk.data(), junk.size(), 0), 200);
  EXPECT_TRUE(closedByServer(fd));
  close(fd);
  stillServing();
}

TEST_F(Robustness, BadVersionFlagsAndOversizedLengthAreRefused) {
  for (int variant = 0; variant < 3; ++variant) {
    jxqp::Bytes f = hello();
    if (variant == 0) f[4] = 99;     // version
    if (variant == 1) f[6] = 1;      // flags
    if (variant == 2) f[11] = 0x7f;  // length far above the limit
    int fd = rawSocket();
    ASSERT_EQ(send(fd, f.data(), f.size(), 0), static_cast<ssize_t>(f.size()));
    EXPECT_TRUE(closedByServer(fd)) << "variant " << variant;
    close(fd);
  }
  stillServing();
}

TEST_F(Robustness, RequestsBeforeHelloAndMalformedPayloadsAreRefused) {
  // An open before the hello.
  jxqp::Writer w;
  JXOD od = JXOD_DEFAULT;
  w.i32(JXOO_OUTPUT);
  jxqp::encodeObject(w, od);
  jxqp::Bytes open = jxqp::frame(static_cast<uint8_t>(jxqp::Op::Open), w);
  int fd = rawSocket();
  ASSERT_EQ(send(fd, open.data(), open.size(), 0), static_cast<ssize_t>(open.size()));
  EXPECT_TRUE(closedByServer(fd));
  close(fd);
  // A hello, then a close request one byte short, then an unknown op.
  for (uint8_t op : {static_cast<uint8_t>(jxqp::Op::Close), static_cast<uint8_t>(77)}) {
    fd = rawSocket();
    jxqp::Bytes h = hello();
    ASSERT_EQ(send(fd, h.data(), h.size(), 0), static_cast<ssize_t>(h.size()));
    uint8_t reply[512];
    ASSERT_GT(recv(fd, reply, sizeof reply, 0), 12);
    jxqp::Writer bad;
    bad.i32(1);
    bad.u8(0);
    bad.u8(0);
    bad.u8(0);
    jxqp::Bytes f = jxqp::frame(op, bad);
    ASSERT_EQ(send(fd, f.data(), f.size(), 0), static_cast<ssize_t>(f.size()));
    EXPECT_TRUE(closedByServer(fd));
    close(fd);
  }
  stillServing();
}

TEST_F(Robustness, TruncatedFramesAndVanishingClients) {
  // Half a frame, then the client goes.
  jxqp::Bytes f = hello();
  int fd = rawSocket();
  ASSERT_EQ(send(fd, f.data(), f.size() / 2, 0), static_cast<ssize_t>(f.size() / 2));
  close(fd);
  // A header announcing a large payload that never comes, left open while others work.
  fd = rawSocket();
  jxqp::Writer big;
  big.blob(std::string(100000, 'x').data(), 100000);
  jxqp::Bytes bf = jxqp::frame(static_cast<uint8_t>(jxqp::Op::Hello), big);
  ASSERT_EQ(send(fd, bf.data(), 5000, 0), 5000);
  stillServing();
  close(fd);
  // A client that vanishes while its get waits.
  int fd2 = rawSocket();
  jxqp::Bytes h = hello();
  ASSERT_EQ(send(fd2, h.data(), h.size(), 0), static_cast<ssize_t>(h.size()));
  uint8_t reply[512];
  ASSERT_GT(recv(fd2, reply, sizeof reply, 0), 12);
  close(fd2);
  stillServing();
}

TEST_F(Robustness, ALiveConnectionSeesTheServerGoAsBroken) {
  qm_->kill9();
  EXPECT_EQ(put(hconn_, q_, "x"), JXRC_CONNECTION_BROKEN);
  EXPECT_EQ(get(hconn_, q_).rc, JXRC_CONNECTION_BROKEN);
  int32_t cc, rc;
  zstJXDISC(&hconn_, 0, &cc, &rc);
  EXPECT_EQ(rc, JXRC_CONNECTION_BROKEN);
  EXPECT_EQ(hconn_, JXHC_UNUSABLE_HCONN);
  char name[48] = {};
  setName(name, qm_->name());
  int32_t h = 0;
  zstJXCONN(name, &h, &cc, &rc, 0);
  EXPECT_EQ(rc, JXRC_Q_MGR_NOT_AVAILABLE);
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

TEST(ConnectionFlood, MoreConnectionsThanDescriptorsDoNotStopTheServer) {
  if (!serverAvailable()) GTEST_SKIP() << "no native jxqmgr (set JX_NATIVE_BIN_DIR)";
  QueueManagerProcess qm({"Q1"}, {}, false);
  pid_t starter = fork();
  if (starter == 0) {
    rlimit lim{64, 64};
    if (setrlimit(RLIMIT_NOFILE, &lim) != 0) _exit(98);
    std::string prog = binDir() + "/jxqm";
    execl(prog.c_str(), prog.c_str(), "start", qm.name().c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  int status = 0;
  waitpid(starter, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

  std::string path = std::string(getenv("JX_DATA_PATH")) + "/qmgrs/" + qm.name() + "/qm.sock";
  std::vector<int> flood;
  for (int i = 0; i < 100; ++i) {
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un sun{};
    sun.sun_family = AF_UNIX;
    std::strncpy(sun.sun_path, path.c_str(), sizeof sun.sun_path - 1);
    if (::connect(fd, reinterpret_cast<sockaddr *>(&sun), sizeof sun) == 0)
      flood.push_back(fd);
    else
      close(fd);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  long before = cpuTicks(qm.pid());
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_LT(cpuTicks(qm.pid()) - before, 10) << "the server spins on its listener";
  for (int fd : flood) close(fd);
  int32_t rc = JXRC_Q_MGR_NOT_AVAILABLE, h = 0, cc;
  char name[48] = {};
  setName(name, qm.name());
  for (int i = 0; i < 100 && rc != JXRC_NONE; ++i) {
    zstJXCONN(name, &h, &cc, &rc, 0);
    if (rc != JXRC_NONE) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_EQ(rc, JXRC_NONE);
  int32_t q = openQueue(h, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  ASSERT_EQ(put(h, q, "after the flood"), JXRC_NONE);
  EXPECT_EQ(get(h, q).data, "after the flood");
  disconnect(h);
}

TEST(HelloTimeout, SilentPeersAreClosedAndIdleClientsKept) {
  if (!serverAvailable()) GTEST_SKIP() << "no native jxqmgr (set JX_NATIVE_BIN_DIR)";
  QueueManagerProcess qm({"Q1"}, {"--hello-timeout", "1"});
  int32_t h = connect(qm.name());
  std::string path = std::string(getenv("JX_DATA_PATH")) + "/qmgrs/" + qm.name() + "/qm.sock";
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un sun{};
  sun.sun_family = AF_UNIX;
  std::strncpy(sun.sun_path, path.c_str(), sizeof sun.sun_path - 1);
  ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr *>(&sun), sizeof sun), 0);
  ASSERT_EQ(send(fd, "JXQP", 4, 0), 4);  // part of a header, then silence
  timeval tv{10, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
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
  EXPECT_EQ(jxqm({"start", qm.name(), "--hello-timeout"}).status, 2);
}

// Runs jxqmgr itself; returns its exit status once it ends, or -1 when it
// is still running after `waitMs`, leaving `pid` set.
int runServer(const std::vector<std::string> &args, pid_t &pid, int waitMs) {
  std::string prog = binDir() + "/jxqmgr";
  pid = fork();
  if (pid == 0) {
    std::vector<char *> argv{const_cast<char *>(prog.c_str())};
    for (auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    int devnull = open("/dev/null", O_WRONLY);
    dup2(devnull, 2);
    execv(prog.c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  for (int i = 0; i < waitMs / 10; ++i) {
    if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return -1;
}

TEST(Polling, OutOfRangeValuesAreRefusedAndPollingOffStillServes) {
  if (!serverAvailable()) GTEST_SKIP() << "no native jxqmgr (set JX_NATIVE_BIN_DIR)";
  QueueManagerProcess qm({"Q1"}, {}, false);
  pid_t pid;
  for (const char *bad : {"-1", "10001", "fast", ""})
    EXPECT_EQ(runServer({qm.name(), "--poll-us", bad}, pid, 5000), 2) << bad;
  ASSERT_EQ(runServer({qm.name(), "--poll-us", "0"}, pid, 300), -1);
  for (int i = 0; i < 100 && jxqm({"status", qm.name()}).status != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  int32_t h = connect(qm.name());
  int32_t q = openQueue(h, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(put(h, q, "unpolled " + std::to_string(i)), JXRC_NONE);
    EXPECT_EQ(get(h, q).data, "unpolled " + std::to_string(i));
  }
  Got g = get(h, q, JXGMO_WAIT, 100);
  EXPECT_EQ(g.rc, JXRC_NO_MSG_AVAILABLE);
  disconnect(h);
  kill(pid, SIGTERM);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
