// jxqm: the life cycle of a queue manager and the refusals on the way.
#include <filesystem>

#include "outcome.hpp"
#include "qm_harness.hpp"

using namespace qmtest;

namespace {

// Runs jxqm: its exit status, and its output says `says`.
void expectTool(const std::vector<std::string> &args, int status, const std::string &says = "") {
  const ToolResult r = jxqm(args);
  EXPECT_EQ(r.status, status) << (args.empty() ? "" : args[0]) << ": " << r.out;
  EXPECT_NE(r.out.find(says), std::string::npos) << r.out;
}

using ControlTool = ServerTest;

TEST_F(ControlTool, LifeCycle) {
  std::string qm = uniqueName("LC");
  std::string dir = qmgrDir(qm);
  expectTool({"status", qm}, 2);  // unknown before create
  ASSERT_EQ(jxqm({"create", qm}).status, 0);
  expectTool({"create", qm}, 1, "already exists");
  expectTool({"status", qm}, 3);
  expectTool({"stop", qm}, 3);  // stopping a stopped queue manager

  ASSERT_EQ(jxqm({"start", qm}).status, 0);
  EXPECT_TRUE(std::filesystem::exists(dir + "/qm.sock"));
  expectTool({"start", qm}, 1, "already running");
  expectTool({"status", qm}, 0, "running (pid");
  expectTool({"delete", qm}, 1);  // a running queue manager is not deleted
  // Definitions go to a running queue manager, refused as the calls refuse them.
  expectTool({"define", qm, "LIVE.Q", "--max-depth", "7"}, 0);
  expectTool({"define", qm, "LIVE.Q"}, 1, "reason 2100 (object already exists)");

  int32_t h = connect(qm);  // a client still connected does not hold up the stop
  ASSERT_EQ(jxqm({"stop", qm}).status, 0);
  expectTool({"status", qm}, 3);
  EXPECT_FALSE(std::filesystem::exists(dir + "/qm.sock"));
  EXPECT_EQ(call(zstJXDISC, &h, 0), failed(JXRC_CONNECTION_BROKEN));

  // And to a stopped one alike.
  expectTool({"define", qm, "LIVE.Q"}, 1, "reason 2100 (object already exists)");
  expectTool({"alter", qm, "LIVE.Q", "--max-depth", "9"}, 0);
  expectTool({"undefine", qm, "SYSTEM.DEFAULT.LOCAL.QUEUE"}, 1,
             "reason 4004 (parameter value not valid), --name");
  expectTool({"undefine", qm, "LIVE.Q"}, 0);
  expectTool({"alter", qm, "LIVE.Q", "--max-depth", "9"}, 1);  // gone
  ASSERT_EQ(jxqm({"delete", qm}).status, 0);
  EXPECT_FALSE(std::filesystem::exists(dir));
}

// Usage errors exit 2; refusals of the queue manager or of the server 1.
TEST_F(ControlTool, RefusesBadArguments) {
  const std::string qm = uniqueName("BA");
  ASSERT_EQ(jxqm({"create", qm}).status, 0);
  const struct {
    std::vector<std::string> args;
    int status;
  } rows[] = {
      {{}, 2},
      {{"create", "bad/name"}, 2},
      {{"create", std::string(49, 'A')}, 2},
      {{"frobnicate", "QM"}, 2},
      {{"define", qm, "bad queue"}, 2},
      {{"define", qm, "Q", "--max-depth", "-1"}, 2},
      {{"define", qm, "Q", "--max-message-length", "x"}, 2},
      {{"define", qm, "Q", "--current-depth", "1"}, 2},  // not settable
      {{"alter", qm, "Q"}, 2},                           // nothing to change
      {{"adduser", qm, "bob"}, 2},                       // no password given
      {{"authorize", qm, "bob", "root"}, 2},
      {{"deluser", qm, "nobody-here"}, 1},
      {{"start", qm, "--poll-us"}, 2},  // no value
      {{"start", qm, "--hello-timeout"}, 2},
      {{"start", qm, "--listen", "not-an-address"}, 1},  // the server refuses these
      {{"start", qm, "--poll-us", "lots"}, 1},
      {{"start", qm, "--poll-us", "-1"}, 1},
      {{"start", qm, "--poll-us", "10001"}, 1},
      {{"status", qm}, 3},  // a failed start leaves it stopped
  };
  for (const auto &r : rows) expectTool(r.args, r.status);
  ASSERT_EQ(jxqm({"adduser", qm, "bob"}, "pw\n").status, 0);
  EXPECT_EQ(jxqm({"users", qm}).out, "bob connect\n");
  // A store that fails the removal is told apart from a user that is not there.
  setenv("JX_STORE_FAULT", "write:1", 1);
  expectTool({"deluser", qm, "bob"}, 1, "cannot remove user bob: disk I/O error");
  setenv("JX_STORE_FAULT", "sideways", 1);
  expectTool({"users", qm}, 2, "JX_STORE_FAULT is write:N");
  unsetenv("JX_STORE_FAULT");
  EXPECT_EQ(jxqm({"users", qm}).out, "bob connect\n");
  EXPECT_EQ(jxqm({"delete", qm}).status, 0);
}

TEST_F(ControlTool, AFolderRenamedByHandIsNotServed) {
  std::string qm = uniqueName("MV"), moved = uniqueName("MOVED");
  ASSERT_EQ(jxqm({"create", qm}).status, 0);
  std::filesystem::rename(qmgrDir(qm), qmgrDir(moved));
  expectTool({"start", moved}, 1, "did not start");
  EXPECT_EQ(jxqm({"delete", moved}).status, 0);
}

}  // namespace
