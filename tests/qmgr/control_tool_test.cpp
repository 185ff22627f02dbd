// jxqm: the life cycle of a queue manager and the refusals on the way.
#include <filesystem>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

using ControlTool = ServerTest;

TEST_F(ControlTool, LifeCycle) {
  std::string qm = uniqueName("LC");
  std::string dir = qmgrDir(qm);
  EXPECT_EQ(jxqm({"status", qm}).status, 2) << "unknown before create";
  auto r = jxqm({"create", qm});
  ASSERT_EQ(r.status, 0) << r.out;
  r = jxqm({"create", qm});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("already exists"), std::string::npos) << r.out;
  EXPECT_EQ(jxqm({"status", qm}).status, 3);
  EXPECT_EQ(jxqm({"stop", qm}).status, 3) << "stopping a stopped queue manager";

  ASSERT_EQ(jxqm({"start", qm}).status, 0);
  EXPECT_TRUE(std::filesystem::exists(dir + "/qm.sock"));
  r = jxqm({"start", qm});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("already running"), std::string::npos) << r.out;
  r = jxqm({"status", qm});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("running (pid"), std::string::npos) << r.out;
  r = jxqm({"delete", qm});
  EXPECT_EQ(r.status, 1) << "a running queue manager is not deleted";
  // Definitions go to a running queue manager, refused as the calls refuse them.
  r = jxqm({"define", qm, "LIVE.Q", "--max-depth", "7"});
  EXPECT_EQ(r.status, 0) << r.out;
  r = jxqm({"define", qm, "LIVE.Q"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("reason 2100 (object already exists)"), std::string::npos) << r.out;

  int32_t h = connect(qm);  // a client still connected does not hold up the stop
  ASSERT_EQ(jxqm({"stop", qm}).status, 0);
  EXPECT_EQ(jxqm({"status", qm}).status, 3);
  EXPECT_FALSE(std::filesystem::exists(dir + "/qm.sock"));
  int32_t cc, rc;
  zstJXDISC(&h, 0, &cc, &rc);
  EXPECT_EQ(rc, JXRC_CONNECTION_BROKEN);

  // And to a stopped one alike.
  EXPECT_EQ(jxqm({"define", qm, "LIVE.Q"}).status, 1) << "defined twice";
  ASSERT_EQ(jxqm({"alter", qm, "LIVE.Q", "--max-depth", "9"}).status, 0);
  r = jxqm({"undefine", qm, "SYSTEM.DEFAULT.LOCAL.QUEUE"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("reason 4004 (parameter value not valid), --name"), std::string::npos)
      << r.out;
  ASSERT_EQ(jxqm({"undefine", qm, "LIVE.Q"}).status, 0);
  EXPECT_EQ(jxqm({"alter", qm, "LIVE.Q", "--max-depth", "9"}).status, 1) << "gone";
  ASSERT_EQ(jxqm({"delete", qm}).status, 0);
  EXPECT_FALSE(std::filesystem::exists(dir));
}

TEST_F(ControlTool, RefusesBadArguments) {
  EXPECT_EQ(jxqm({}).status, 2);
  EXPECT_EQ(jxqm({"create", "bad/name"}).status, 2);
  EXPECT_EQ(jxqm({"create", std::string(49, 'A')}).status, 2);
  EXPECT_EQ(jxqm({"frobnicate", "QM"}).status, 2);
  std::string qm = uniqueName("BA");
  ASSERT_EQ(jxqm({"create", qm}).status, 0);
  EXPECT_EQ(jxqm({"define", qm, "bad queue"}).status, 2);
  EXPECT_EQ(jxqm({"define", qm, "Q", "--max-depth", "-1"}).status, 2);
  EXPECT_EQ(jxqm({"define", qm, "Q", "--max-message-length", "x"}).status, 2);
  EXPECT_EQ(jxqm({"define", qm, "Q", "--current-depth", "1"}).status, 2) << "not settable";
  EXPECT_EQ(jxqm({"alter", qm, "Q"}).status, 2) << "nothing to change";
  EXPECT_EQ(jxqm({"adduser", qm, "bob"}, "").status, 2) << "no password given";
  EXPECT_EQ(jxqm({"authorize", qm, "bob", "root"}).status, 2);
  EXPECT_EQ(jxqm({"deluser", qm, "nobody-here"}).status, 1);
  ASSERT_EQ(jxqm({"adduser", qm, "bob"}, "pw\n").status, 0);
  auto r = jxqm({"users", qm});
  EXPECT_EQ(r.out, "bob connect\n");
  EXPECT_EQ(jxqm({"start", qm, "--listen", "not-an-address"}).status, 1);
  EXPECT_EQ(jxqm({"start", qm, "--poll-us", "lots"}).status, 1) << "the server refuses it";
  EXPECT_EQ(jxqm({"start", qm, "--poll-us"}).status, 2) << "no value";
  EXPECT_EQ(jxqm({"status", qm}).status, 3) << "a failed start leaves it stopped";
  ASSERT_EQ(jxqm({"start", qm, "--poll-us", "0"}).status, 0);
  EXPECT_EQ(jxqm({"stop", qm}).status, 0);
  EXPECT_EQ(jxqm({"delete", qm}).status, 0);
}

TEST_F(ControlTool, AFolderRenamedByHandIsNotServed) {
  std::string qm = uniqueName("MV"), moved = uniqueName("MOVED");
  ASSERT_EQ(jxqm({"create", qm}).status, 0);
  std::filesystem::rename(qmgrDir(qm), qmgrDir(moved));
  auto r = jxqm({"start", moved});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("did not start"), std::string::npos) << r.out;
  EXPECT_EQ(jxqm({"delete", moved}).status, 0);
}

}  // namespace
