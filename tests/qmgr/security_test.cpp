// Who may connect, read the command queue and change objects: local peers
// by their credentials, TCP clients by user and password.
#include <fcntl.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

constexpr uid_t kNobody = 65534;

int freePort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(fd, reinterpret_cast<sockaddr *>(&sa), sizeof sa);
  socklen_t len = sizeof sa;
  getsockname(fd, reinterpret_cast<sockaddr *>(&sa), &len);
  close(fd);
  return ntohs(sa.sin_port);
}

// The handle stays at kUntouched when the connect fails.
constexpr int32_t kUntouched = 123;

int32_t connectTcp(const std::string &where, const std::string &user, const std::string &pw,
                   int32_t &rc) {
  JXCNO cno = JXCNO_DEFAULT;
  std::strncpy(cno.ConnectionName, where.c_str(), sizeof cno.ConnectionName - 1);
  std::strncpy(cno.UserId, user.c_str(), sizeof cno.UserId - 1);
  std::strncpy(cno.Password, pw.c_str(), sizeof cno.Password - 1);
  char name[JX_Q_MGR_NAME_LENGTH] = {};
  int32_t h = kUntouched, cc;
  zstJXCONNX(name, &cno, &h, &cc, &rc, 0);
  return h;
}

using Tcp = ServerTest;

TEST_F(Tcp, UserAndPasswordAreRequiredAndChecked) {
  std::string where = "127.0.0.1:" + std::to_string(freePort());
  QueueManagerProcess qm({"Q1"}, {"--listen", where});
  ASSERT_EQ(jxqm({"adduser", qm.name(), "alice"}, "s3cret-pw\n").status, 0);
  ASSERT_EQ(jxqm({"adduser", qm.name(), "root_admin", "--admin"}, "adm1n-pw\n").status, 0);

  int32_t rc = -1;
  int32_t h = connectTcp(where, "alice", "s3cret-pw", rc);
  ASSERT_EQ(rc, JXRC_NONE);
  int32_t q = openQueue(h, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  ASSERT_EQ(put(h, q, "over tcp"), JXRC_NONE);
  EXPECT_EQ(get(h, q).data, "over tcp");
  // Anyone may send commands (the command server checks each); only
  // administrators may read them.
  EXPECT_EQ(openReason(h, "SYSTEM.ADMIN.COMMAND.QUEUE", JXOO_OUTPUT), JXRC_NONE);
  EXPECT_EQ(openReason(h, "SYSTEM.ADMIN.COMMAND.QUEUE", JXOO_INPUT_SHARED), JXRC_NOT_AUTHORIZED);
  EXPECT_EQ(openReason(h, "Q1", JXOO_SET), JXRC_NOT_AUTHORIZED);
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

  // Revoked users are refused from the next connection on.
  ASSERT_EQ(jxqm({"authorize", qm.name(), "alice", "none"}).status, 0);
  connectTcp(where, "alice", "s3cret-pw", rc);
  EXPECT_EQ(rc, JXRC_NOT_AUTHORIZED);

  // JX_SERVER with JX_USER and JX_PASSWORD serves the plain connect.
  setenv("JX_SERVER", where.c_str(), 1);
  setenv("JX_USER", "root_admin", 1);
  setenv("JX_PASSWORD", "adm1n-pw", 1);
  char name[JX_Q_MGR_NAME_LENGTH] = {};
  int32_t cc;
  zstJXCONN(name, &h, &cc, &rc, 1);
  unsetenv("JX_SERVER");
  unsetenv("JX_USER");
  unsetenv("JX_PASSWORD");
  EXPECT_EQ(rc, JXRC_NONE);
  if (rc == JXRC_NONE) disconnect(h);

  // Passwords are stored only as salted hashes.
  for (const char *file : {"/qm.db", "/qm.db-wal"}) {
    std::ifstream in(qmgrDir(qm.name()) + file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(bytes.find("s3cret-pw"), std::string::npos) << file;
  }
}

// The descriptor's user identifier is the queue manager's to give: the
// authenticated user of the connection, whatever a put wrote there.
TEST_F(Tcp, MessagesCarryTheAuthenticatedUser) {
  std::string where = "127.0.0.1:" + std::to_string(freePort());
  QueueManagerProcess qm({"Q1"}, {"--listen", where});
  ASSERT_EQ(jxqm({"adduser", qm.name(), "alice"}, "s3cret-pw\n").status, 0);
  int32_t rc = -1;
  int32_t remote = connectTcp(where, "alice", "s3cret-pw", rc);
  ASSERT_EQ(rc, JXRC_NONE);
  int32_t local = connect(qm.name());
  const std::string owner = getpwuid(geteuid())->pw_name;
  struct Client {
    int32_t hconn;
    std::string user;
  };
  for (Client c : {Client{remote, "alice"}, Client{local, owner}}) {
    int32_t q = openQueue(c.hconn, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
    JXMD md = JXMD_DEFAULT;
    std::memcpy(md.UserIdentifier, "mallory", 7);
    ASSERT_EQ(put(c.hconn, q, "who", &md), JXRC_NONE);
    const std::string expected = c.user.substr(0, JX_USER_IDENTIFIER_LENGTH);
    Got g = get(c.hconn, q);
    for (const JXMD *seen : {&md, &g.md})
      EXPECT_EQ(std::string(seen->UserIdentifier,
                            strnlen(seen->UserIdentifier, JX_USER_IDENTIFIER_LENGTH)),
                expected);
    disconnect(c.hconn);
  }
}

TEST_F(Tcp, NoListenerWithoutAListenAddress) {
  QueueManagerProcess qm;
  int32_t rc = -1;
  connectTcp("127.0.0.1:" + std::to_string(freePort()), "alice", "pw", rc);
  EXPECT_EQ(rc, JXRC_HOST_NOT_AVAILABLE);
  JXCNO bad = JXCNO_DEFAULT;
  bad.StrucId[0] = 'X';
  char name[JX_Q_MGR_NAME_LENGTH] = {};
  int32_t h, cc;
  zstJXCONNX(name, &bad, &h, &cc, &rc, 0);
  EXPECT_EQ(rc, JXRC_CNO_ERROR);
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
  EXPECT_EQ(openReason(h, "SYSTEM.DEFAULT.LOCAL.QUEUE", JXOO_OUTPUT), JXRC_NONE);
  // Anyone may send commands (the command server checks each); only
  // administrators may read them.
  EXPECT_EQ(openReason(h, "SYSTEM.ADMIN.COMMAND.QUEUE", JXOO_OUTPUT), JXRC_NONE);
  EXPECT_EQ(openReason(h, "SYSTEM.ADMIN.COMMAND.QUEUE", JXOO_INPUT_SHARED), JXRC_NOT_AUTHORIZED);
  EXPECT_EQ(openReason(h, "SYSTEM.DEFAULT.LOCAL.QUEUE", JXOO_SET), JXRC_NOT_AUTHORIZED);
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

}  // namespace
