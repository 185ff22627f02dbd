// TLS on TCP: a client trusts a queue manager only through the trust file or
// fingerprint it is given, the password never crosses in clear, and a peer
// that stalls its handshake holds up no one.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

constexpr const char *kUser = "alice";
constexpr const char *kPassword = "pw-never-in-clear-7Q";
constexpr int32_t kUntouched = 123;

// Copies `s` into a fixed field, zero filled and cut at its width.
template <size_t N>
void setField(char (&field)[N], const std::string &s) {
  std::memset(field, 0, N);
  std::memcpy(field, s.data(), std::min(s.size(), N));
}

struct Trust {
  std::string file, fingerprint;
  int32_t version = JXCNO_VERSION_2;
};

// Connects as alice through `where` and returns the reason; the handle is
// left at kUntouched on failure.
int32_t connectWith(const std::string &where, const Trust &trust, int32_t &hconn) {
  JXCNO cno = JXCNO_DEFAULT;
  cno.Version = trust.version;
  setField(cno.ConnectionName, where);
  setField(cno.UserId, kUser);
  setField(cno.Password, kPassword);
  setField(cno.TlsTrustFile, trust.file);
  setField(cno.TlsFingerprint, trust.fingerprint);
  char name[JX_Q_MGR_NAME_LENGTH] = {};
  int32_t cc = -1, rc = -1;
  hconn = kUntouched;
  zstJXCONNX(name, &cno, &hconn, &cc, &rc, 0);
  return rc;
}

std::string fingerprintOf(const std::string &qmgr) {
  ToolResult r = jxqm({"fingerprint", qmgr});
  EXPECT_EQ(r.status, 0) << r.out;
  return r.out.substr(0, r.out.find('\n'));
}

// The same fingerprint as a person may write it: upper case, with colons.
std::string withColons(const std::string &hex) {
  std::string out;
  for (size_t i = 0; i < hex.size(); i += 2) {
    if (i) out += ':';
    out += static_cast<char>(std::toupper(hex[i]));
    out += static_cast<char>(std::toupper(hex[i + 1]));
  }
  return out;
}

// A queue manager listening on TCP with one user; no trust in the
// environment, so that each case trusts exactly what it names.
class Tls : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    if (IsSkipped()) return;
    where_ = freeTcpAddress();
    qm_ = std::make_unique<QueueManagerProcess>(std::vector<std::string>{"Q1"},
                                                std::vector<std::string>{"--listen", where_});
    ASSERT_EQ(jxqm({"adduser", qm_->name(), kUser}, std::string(kPassword) + "\n").status, 0);
    unsetenv("JX_TLS_TRUST");
  }
  void TearDown() override { qm_.reset(); }

  // Puts and gets one message over a connection, and disconnects it.
  void roundTrip(int32_t hconn, const std::string &data) {
    int32_t q = openQueue(hconn, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
    EXPECT_EQ(put(hconn, q, data), JXRC_NONE);
    EXPECT_EQ(get(hconn, q).data, data);
    disconnect(hconn);
  }

  std::string where_;
  std::unique_ptr<QueueManagerProcess> qm_;
};

TEST_F(Tls, OnlyWhatTheClientTrustsIsAccepted) {
  QueueManagerProcess other({}, {}, false);  // made, never started: another certificate
  unsetenv("JX_TLS_TRUST");
  const std::string ours = fingerprintOf(qm_->name()), theirs = fingerprintOf(other.name());
  ASSERT_EQ(ours.size(), 64u);
  ASSERT_NE(ours, theirs);
  const std::string ourFile = certificateFile(qm_->name()),
                    theirFile = certificateFile(other.name());
  const struct Case {
    const char *what;
    Trust trust;
    int32_t reason;
  } cases[] = {
      {"our certificate", {ourFile, ""}, JXRC_NONE},
      {"our fingerprint", {"", ours}, JXRC_NONE},
      {"our fingerprint written with colons", {"", withColons(ours)}, JXRC_NONE},
      {"both ours", {ourFile, ours}, JXRC_NONE},
      {"another queue manager's certificate", {theirFile, ""}, JXRC_TLS_PEER_NOT_TRUSTED},
      {"another fingerprint", {"", theirs}, JXRC_TLS_PEER_NOT_TRUSTED},
      {"our certificate, another fingerprint", {ourFile, theirs}, JXRC_TLS_PEER_NOT_TRUSTED},
      {"another certificate, our fingerprint", {theirFile, ours}, JXRC_TLS_PEER_NOT_TRUSTED},
      {"nothing trusted", {"", ""}, JXRC_TLS_TRUST_MISSING},
      {"version 1 options have no trust fields",
       {ourFile, ours, JXCNO_VERSION_1},
       JXRC_TLS_TRUST_MISSING},
      {"no such trust file", {ourFile + ".missing", ""}, JXRC_TLS_TRUST_ERROR},
      {"a trust file without certificates",
       {qmgrDir(qm_->name()) + "/qm.log", ""},
       JXRC_TLS_TRUST_ERROR},
      {"a short fingerprint", {"", ours.substr(2)}, JXRC_TLS_TRUST_ERROR},
      {"a fingerprint that is not hexadecimal", {"", "g" + ours.substr(1)}, JXRC_TLS_TRUST_ERROR},
      {"a trailing colon", {"", ours + ":"}, JXRC_TLS_TRUST_ERROR},
  };
  for (const Case &c : cases) {
    int32_t h = 0;
    EXPECT_EQ(connectWith(where_, c.trust, h), c.reason) << c.what;
    if (c.reason == JXRC_NONE)
      roundTrip(h, c.what);
    else
      EXPECT_EQ(h, kUntouched) << c.what;
  }

  // The environment fills what the options leave blank.
  const struct {
    const char *variable;
    std::string value;
    int32_t reason;
  } environment[] = {{"JX_TLS_TRUST", ourFile, JXRC_NONE},
                     {"JX_TLS_FINGERPRINT", ours, JXRC_NONE},
                     {"JX_TLS_TRUST", theirFile, JXRC_TLS_PEER_NOT_TRUSTED},
                     {"JX_TLS_FINGERPRINT", theirs, JXRC_TLS_PEER_NOT_TRUSTED}};
  for (const auto &e : environment) {
    setenv(e.variable, e.value.c_str(), 1);
    int32_t h = 0;
    EXPECT_EQ(connectWith(where_, {}, h), e.reason) << e.variable << "=" << e.value;
    unsetenv(e.variable);
    if (e.reason == JXRC_NONE) roundTrip(h, e.variable);
  }
  // Options win over the environment.
  setenv("JX_TLS_FINGERPRINT", theirs.c_str(), 1);
  int32_t h = 0;
  EXPECT_EQ(connectWith(where_, {"", ours}, h), JXRC_NONE);
  unsetenv("JX_TLS_FINGERPRINT");
  roundTrip(h, "options first");
}

// Copies one connection's bytes both ways between a client and the queue
// manager, and keeps them.
class Recorder {
 public:
  explicit Recorder(const std::string &server) {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof sa;
    if (bind(listener_, reinterpret_cast<sockaddr *>(&sa), len) != 0 || listen(listener_, 1) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr *>(&sa), &len) != 0)
      return;
    address_ = "127.0.0.1:" + std::to_string(ntohs(sa.sin_port));
    thread_ = std::thread([this, server] { relay(server); });
  }
  ~Recorder() {
    if (thread_.joinable()) thread_.join();
    close(listener_);
  }
  const std::string &address() const { return address_; }
  // Waits until both sides have closed.
  std::string bytes() {
    if (thread_.joinable()) thread_.join();
    return seen_[0] + seen_[1];
  }
  size_t sent(int direction) const { return seen_[direction].size(); }

 private:
  void relay(const std::string &to) {
    const int client = accept(listener_, nullptr, nullptr);
    const int server = rawTcpSocket(to, 10);
    if (client < 0 || server < 0) return;
    pollfd fds[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
    char buf[65536];
    for (bool open = true; open;) {
      if (poll(fds, 2, 10000) <= 0) break;
      for (int i = 0; i < 2 && open; ++i) {
        if (!fds[i].revents) continue;
        const ssize_t n = read(fds[i].fd, buf, sizeof buf);
        open = n > 0 && write(fds[1 - i].fd, buf, static_cast<size_t>(n)) == n;
        if (open) seen_[i].append(buf, static_cast<size_t>(n));
      }
    }
    close(client);
    close(server);
  }

  int listener_ = -1;
  std::string address_;
  std::string seen_[2];  // from the client, from the queue manager
  std::thread thread_;
};

TEST_F(Tls, NoPasswordOrMessageCrossesInClear) {
  Recorder recorder(where_);
  ASSERT_FALSE(recorder.address().empty());
  int32_t h = 0;
  ASSERT_EQ(connectWith(recorder.address(), {"", fingerprintOf(qm_->name())}, h), JXRC_NONE);
  const std::string message = "message-body-visible-only-inside-tls";
  roundTrip(h, message);
  const std::string bytes = recorder.bytes();
  // Both ways carried TLS records (the client's first one a handshake
  // record) with the hello, the put and the get inside.
  ASSERT_GT(recorder.sent(0), message.size());
  EXPECT_GT(recorder.sent(1), message.size());
  EXPECT_EQ(bytes.substr(0, 2), "\x16\x03");
  for (const std::string &secret : {std::string(kPassword), message, std::string("Q1\0\0", 4)})
    EXPECT_EQ(bytes.find(secret), std::string::npos) << secret;
}

TEST_F(Tls, AStalledHandshakeHoldsUpNoOneAndIsEnded) {
  const std::string where = freeTcpAddress();
  QueueManagerProcess qm({"Q1"}, {"--listen", where, "--hello-timeout", "3"});
  ASSERT_EQ(jxqm({"adduser", qm.name(), kUser}, std::string(kPassword) + "\n").status, 0);
  // One peer says nothing; another starts a handshake record and stops.
  const uint8_t halfRecord[] = {0x16, 0x03, 0x01, 0x02, 0x00, 0x01};
  const int stalled[2] = {rawTcpSocket(where, 10), rawTcpSocket(where, 10)};
  ASSERT_GE(std::min(stalled[0], stalled[1]), 0);
  ASSERT_EQ(send(stalled[1], halfRecord, sizeof halfRecord, 0), ssize_t(sizeof halfRecord));

  int32_t h = 0;
  ASSERT_EQ(connectWith(where, {certificateFile(qm.name()), ""}, h), JXRC_NONE);
  int32_t q = openQueue(h, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  EXPECT_EQ(put(h, q, "served meanwhile"), JXRC_NONE);
  EXPECT_EQ(get(h, q).data, "served meanwhile");
  // Served while both stalled peers were still there: a loop that waited on
  // either would have served the client only once the time limit ended them.
  for (int fd : stalled) {
    pollfd p{fd, POLLIN, 0};
    EXPECT_EQ(poll(&p, 1, 0), 0) << "the stalled peer is still connected";
  }

  // The hello time limit ends both; the served client stays.
  for (int fd : stalled) {
    char c;
    EXPECT_EQ(recv(fd, &c, 1, 0), 0) << "closed by the queue manager";
    close(fd);
  }
  EXPECT_EQ(put(h, q, "still served"), JXRC_NONE);
  disconnect(h);
}

TEST_F(Tls, CertificateFilesAreTheOperatorsToReplace) {
  const std::string dir = qmgrDir(qm_->name());
  struct stat st {};
  ASSERT_EQ(stat((dir + "/qm.key").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  const std::string before = fingerprintOf(qm_->name());

  // A new pair is used from the next start; the old fingerprint is then refused.
  ToolResult made = jxqm({"certificate", qm_->name()});
  ASSERT_EQ(made.status, 0) << made.out;
  const std::string after = made.out.substr(0, made.out.find('\n'));
  EXPECT_EQ(after, fingerprintOf(qm_->name()));
  ASSERT_NE(after, before);
  ASSERT_TRUE(qm_->stop());
  ASSERT_TRUE(qm_->start({"--listen", where_}));
  int32_t h = 0;
  EXPECT_EQ(connectWith(where_, {"", before}, h), JXRC_TLS_PEER_NOT_TRUSTED);
  ASSERT_EQ(connectWith(where_, {"", after}, h), JXRC_NONE);
  disconnect(h);
  ASSERT_TRUE(qm_->stop());

  // TCP is not served without a usable key: one others may read, none, or
  // one of another certificate.
  ASSERT_EQ(chmod((dir + "/qm.key").c_str(), 0640), 0);
  ToolResult r = jxqm({"start", qm_->name(), "--listen", where_});
  EXPECT_EQ(r.status, 1) << r.out;
  ASSERT_EQ(chmod((dir + "/qm.key").c_str(), 0600), 0);
  QueueManagerProcess other({}, {}, false);
  ASSERT_EQ(rename((qmgrDir(other.name()) + "/qm.key").c_str(), (dir + "/qm.key").c_str()), 0);
  EXPECT_EQ(jxqm({"start", qm_->name(), "--listen", where_}).status, 1);
  ASSERT_EQ(unlink((dir + "/qm.key").c_str()), 0);
  EXPECT_EQ(jxqm({"start", qm_->name(), "--listen", where_}).status, 1);
  const std::string text = qmLog(qm_->name());
  for (const char *why : {"may be read by others", "cannot use the key", "no key"})
    EXPECT_NE(text.find(why), std::string::npos) << why;
  // The local socket needs none of it.
  ASSERT_TRUE(qm_->start());
  h = connect(qm_->name());
  disconnect(h);
  EXPECT_EQ(jxqm({"fingerprint", qm_->name(), "extra"}).status, 2);
}

}  // namespace
