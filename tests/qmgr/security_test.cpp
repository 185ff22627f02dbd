// Who may connect, read the command queue and change objects: local peers
// by their credentials, TCP clients by user and password (over TLS, trusting
// the queue manager's certificate through JX_TLS_TRUST, which the harness sets).
#include <fcntl.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

constexpr uid_t kNobody = 65534;

// The handle stays at kUntouched when the connect fails.
constexpr int32_t kUntouched = 123;

int32_t connectTcp(const std::string &where, const std::string &user, const std::string &pw,
                   int32_t &rc) {
  int32_t h = kUntouched;
  rc = tcpConnect(where, user, pw, h);
  return h;
}

// What connect authority allows: commands may be sent (the command server
// checks each) but not read, and no object changed.
void expectConnectAuthorityOnly(int32_t h, const std::string &queue) {
  EXPECT_EQ(openReason(h, queue, JXOO_OUTPUT), JXRC_NONE);
  EXPECT_EQ(openReason(h, "SYSTEM.ADMIN.COMMAND.QUEUE", JXOO_OUTPUT), JXRC_NONE);
  EXPECT_EQ(openReason(h, "SYSTEM.ADMIN.COMMAND.QUEUE", JXOO_INPUT_SHARED), JXRC_NOT_AUTHORIZED);
  EXPECT_EQ(openReason(h, queue, JXOO_SET), JXRC_NOT_AUTHORIZED);
}

using Tcp = ServerTest;

TEST_F(Tcp, UserAndPasswordAreRequiredAndChecked) {
  std::string where = freeTcpAddress();
  // Refusals here are meant: no hold on the logins that follow them.
  QueueManagerProcess qm({"Q1"}, {"--listen", where, "--login-delay-ms", "0"});
  int32_t rc = -1;
  connectTcp(freeTcpAddress(), "alice", "pw", rc);
  EXPECT_EQ(rc, JXRC_HOST_NOT_AVAILABLE) << "no listener there";
  JXCNO bad = JXCNO_DEFAULT;
  bad.StrucId[0] = 'X';
  char name[JX_Q_MGR_NAME_LENGTH] = {};
  int32_t h, cc;
  zstJXCONNX(name, &bad, &h, &cc, &rc, 0);
  EXPECT_EQ(rc, JXRC_CNO_ERROR);
  ASSERT_EQ(jxqm({"adduser", qm.name(), "alice"}, "s3cret-pw\n").status, 0);
  ASSERT_EQ(jxqm({"adduser", qm.name(), "root_admin", "--admin"}, "adm1n-pw\n").status, 0);
  h = connectTcp(where, "alice", "s3cret-pw", rc);
  ASSERT_EQ(rc, JXRC_NONE);
  expectConnectAuthorityOnly(h, "Q1");
  disconnect(h);
  const std::pair<const char *, const char *> refused[] = {
      {"alice", "wrong"}, {"mallory", "s3cret-pw"}, {"", ""}};
  for (const auto &[user, pw] : refused) {
    EXPECT_EQ(connectTcp(where, user, pw, rc), kUntouched) << user;
    EXPECT_EQ(rc, JXRC_NOT_AUTHORIZED) << user;
  }
  h = connectTcp(where, "root_admin", "adm1n-pw", rc);
  ASSERT_EQ(rc, JXRC_NONE);
  EXPECT_EQ(openReason(h, "SYSTEM.ADMIN.COMMAND.QUEUE", JXOO_OUTPUT | JXOO_INQUIRE), JXRC_NONE);
  disconnect(h);

  // The descriptor's user identifier is the queue manager's to give: the
  // authenticated user of the connection, whatever a put wrote there.
  const std::pair<int32_t, std::string> clients[] = {
      {connectTcp(where, "alice", "s3cret-pw", rc), "alice"},
      {connect(qm.name()), getpwuid(geteuid())->pw_name}};
  for (const auto &[hconn, user] : clients) {
    int32_t q = openQueue(hconn, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
    JXMD md = JXMD_DEFAULT;
    std::memcpy(md.UserIdentifier, "mallory", 7);
    ASSERT_EQ(put(hconn, q, "who", &md), JXRC_NONE);
    Got g = get(hconn, q);
    EXPECT_EQ(g.data, "who");
    for (const JXMD *seen : {&md, &g.md})
      EXPECT_EQ(std::string(seen->UserIdentifier,
                            strnlen(seen->UserIdentifier, JX_USER_IDENTIFIER_LENGTH)),
                user.substr(0, JX_USER_IDENTIFIER_LENGTH));
    int32_t done = hconn;
    disconnect(done);
  }

  // Revoked users are refused from the next connection on.
  ASSERT_EQ(jxqm({"authorize", qm.name(), "alice", "none"}).status, 0);
  connectTcp(where, "alice", "s3cret-pw", rc);
  EXPECT_EQ(rc, JXRC_NOT_AUTHORIZED);

  // JX_SERVER with JX_USER and JX_PASSWORD serves the plain connect.
  setenv("JX_SERVER", where.c_str(), 1);
  setenv("JX_USER", "root_admin", 1);
  setenv("JX_PASSWORD", "adm1n-pw", 1);
  zstJXCONN(name, &h, &cc, &rc, 1);
  for (const char *v : {"JX_SERVER", "JX_USER", "JX_PASSWORD"}) unsetenv(v);
  EXPECT_EQ(rc, JXRC_NONE);
  if (rc == JXRC_NONE) disconnect(h);

  // Passwords are stored only as salted hashes.
  for (const char *file : {"/qm.db", "/qm.db-wal"}) {
    std::ifstream in(qmgrDir(qm.name()) + file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes.find("s3cret-pw"), std::string::npos) << file;
  }
}

// Runs jxqm as another user with its own data root.
int jxqmAs(uid_t uid, const std::string &root, const std::vector<std::string> &args) {
  return jxqm(args, "",
              [&] {
                if (setgid(uid) != 0 || setuid(uid) != 0) _exit(99);
                setenv("JX_DATA_PATH", root.c_str(), 1);
              })
      .status;
}

using LocalPeers = ServerTest;

TEST_F(LocalPeers, OnlyAuthorisedUsersConnectAndAdminister) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to run a queue manager as another user";
  // A queue manager owned by nobody, reached by root (who gets through the
  // folder permissions but is not its owner).
  std::string saved = getenv("JX_DATA_PATH");
  std::string root = saved + "/nobody";
  ASSERT_EQ(mkdir(root.c_str(), 0700), 0);
  ASSERT_EQ(chown(root.c_str(), kNobody, kNobody), 0);
  ASSERT_EQ(chmod(saved.c_str(), 0711), 0);
  std::string qm = uniqueName("NB");
  ASSERT_EQ(jxqmAs(kNobody, root, {"create", qm}), 0);
  ASSERT_EQ(jxqmAs(kNobody, root, {"start", qm}), 0);
  setenv("JX_DATA_PATH", root.c_str(), 1);

  int32_t h = 0;
  EXPECT_EQ(tryConnect(qm, h), JXRC_NOT_AUTHORIZED) << "root is not the owner and has no authority";

  EXPECT_EQ(jxqmAs(kNobody, root, {"authorize", qm, "root", "connect"}), 0);
  ASSERT_EQ(tryConnect(qm, h), JXRC_NONE);
  expectConnectAuthorityOnly(h, "SYSTEM.DEFAULT.LOCAL.QUEUE");
  disconnect(h);

  EXPECT_EQ(jxqmAs(kNobody, root, {"authorize", qm, "root", "admin"}), 0);
  ASSERT_EQ(tryConnect(qm, h), JXRC_NONE);
  EXPECT_EQ(openReason(h, "SYSTEM.ADMIN.COMMAND.QUEUE", JXOO_OUTPUT), JXRC_NONE);
  disconnect(h);

  // Another user cannot even reach the private folder.
  EXPECT_EQ(inChild([&] {
              if (setuid(12345) != 0) return 99;
              return tryConnect(qm, h) == JXRC_NOT_AUTHORIZED ? 0 : 1;
            }),
            0);

  struct stat st {};
  ASSERT_EQ(stat((root + "/qmgrs/" + qm).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  ASSERT_EQ(stat((root + "/qmgrs/" + qm + "/qm.sock").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  setenv("JX_DATA_PATH", saved.c_str(), 1);
  EXPECT_EQ(jxqmAs(kNobody, root, {"stop", qm}), 0);
  chmod(saved.c_str(), 0700);
}

// jxqm run by a user who cannot reach the queue manager's folder says so
// in one line and exits 2, whatever the command.
TEST_F(LocalPeers, ControlToolWithoutAccessSaysSo) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to run jxqm as another user";
  QueueManagerProcess qm({"Q1"});
  const auto asNobody = [] {
    if (setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(99);
  };
  const std::vector<std::vector<std::string>> commands = {
      {"status", qm.name()},       {"stop", qm.name()},  {"users", qm.name()},
      {"define", qm.name(), "Q2"}, {"start", qm.name()}, {"delete", qm.name()}};
  for (const auto &args : commands) {
    SCOPED_TRACE(args[0]);
    ToolResult r = jxqm(args, "", asNobody);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1) << r.out;
    EXPECT_NE(r.out.find("no access to queue manager " + qm.name()), std::string::npos) << r.out;
  }
  EXPECT_EQ(jxqm({"status", qm.name()}).status, 0) << "still running";
}

}  // namespace
