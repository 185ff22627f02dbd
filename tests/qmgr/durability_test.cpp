// The store failing at each write, at each commit, at each read and on a
// full disk: the caller hears 2102, the queue manager goes on serving, and after a restart
// (a stop or a kill -9) exactly the messages and queues whose calls
// succeeded are there. Faults come from JX_STORE_FAULT (store.hpp).
#include <jx/jxai.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "admin_call.hpp"
#include "qm_harness.hpp"

using namespace qmtest;

namespace {

// Queues the scenarios use; NQ carries only non-persistent messages.
const std::vector<std::string> kQueues = {"PQ --max-depth 100000", "NQ", "DQ"};
const char *const kQueueNames[] = {"PQ", "NQ", "DQ", "NEWQ"};

bool startWith(QueueManagerProcess &qm, const std::string &fault) {
  if (!fault.empty()) setenv("JX_STORE_FAULT", fault.c_str(), 1);
  const bool ok = qm.start();
  unsetenv("JX_STORE_FAULT");
  return ok;
}

// What the clients were told: the queues that exist and the persistent
// messages on each.
using Model = std::map<std::string, std::multiset<std::string>>;

// Large messages carry their text followed by this many bytes of padding,
// which the model leaves out.
constexpr int32_t kLargest = 128 * 1024;

std::string textOf(const std::string &data, size_t padding) {
  return data.substr(0, data.size() >= padding ? data.size() - padding : data.size());
}

// One connection whose every call either succeeds or fails with 2102, and
// a model that follows the calls that succeeded.
class Client {
 public:
  Client(const std::string &qmgr, Model &model, size_t padding = 0)
      : h_(connect(qmgr)), model_(model), padding_(padding, 'x') {}
  ~Client() { disconnect(h_); }
  int failures() const { return failures_; }
  bool has(const std::string &queue) const { return model_.count(queue); }

  void put(const std::string &queue, const std::string &text,
           int32_t options = JXPMO_NO_SYNCPOINT) {
    const bool persistent = queue != "NQ";
    int32_t rc = qmtest::put(h_, handle(queue, JXOO_OUTPUT), text + padding_, nullptr, options,
                             persistent ? JXPER_PERSISTENT : JXPER_NOT_PERSISTENT);
    if (!check(rc, "put " + text) || !persistent) return;
    if (options & JXPMO_SYNCPOINT)
      uowPuts_.emplace_back(queue, text);
    else
      model_[queue].insert(text);
  }
  void get(const std::string &queue, int32_t options = JXGMO_NO_SYNCPOINT) {
    Got g = qmtest::get(h_, handle(queue, JXOO_INPUT_SHARED), options, 0, kLargest);
    if (!check(g.rc, "get from " + queue)) return;
    g.data = textOf(g.data, padding_.size());
    if (options & JXGMO_SYNCPOINT) {
      uowGets_.emplace_back(queue, g.data);
      return;
    }
    auto it = model_[queue].find(g.data);
    ASSERT_NE(it, model_[queue].end()) << "got a message nobody put: " << g.data;
    model_[queue].erase(it);
  }
  // A failed commit backs the unit of work out.
  void commit() {
    int32_t cc = 0, rc = 0;
    zstJXCMIT(h_, &cc, &rc);
    if (check(rc, "commit")) {
      for (auto &[q, text] : uowPuts_) model_[q].insert(text);
      for (auto &[q, text] : uowGets_) model_[q].erase(model_[q].find(text));
    }
    uowPuts_.clear();
    uowGets_.clear();
  }
  void admin(int32_t command, const std::string &queue) {
    closeAll();
    jxqp::AdminRequest request;
    request.command = command;
    request.name = queue;
    request.queueType = JXQT_LOCAL;
    request.flags = jxqp::kAdminPurge;
    jxqp::AdminReply reply;
    zstAdminCommand(h_, request, reply);
    if (!check(reply.rc, "administration command " + std::to_string(command) + " on " + queue))
      return;
    if (command == JXCMD_CREATE_QUEUE) model_[queue];
    if (command == JXCMD_DELETE_QUEUE) model_.erase(queue);
    if (command == JXCMD_CLEAR_QUEUE) model_[queue].clear();
  }
  // Calls that need no store still work.
  void expectServing() {
    JXMD md = JXMD_DEFAULT;
    ASSERT_EQ(qmtest::put(h_, handle("NQ", JXOO_OUTPUT), "ping", &md), JXRC_NONE);
    EXPECT_EQ(qmtest::get(h_, handle("NQ", JXOO_INPUT_SHARED), JXGMO_NO_SYNCPOINT, 0, 4096, &md,
                          JXMO_MATCH_MSG_ID)
                  .data,
              "ping");
  }

 private:
  int32_t handle(const std::string &queue, int32_t options) {
    auto key = std::make_pair(queue, options);
    auto it = handles_.find(key);
    if (it == handles_.end()) it = handles_.emplace(key, openQueue(h_, queue, options)).first;
    return it->second;
  }
  void closeAll() {
    for (auto &[key, hobj] : handles_) {
      int32_t cc = 0, rc = 0;
      zstJXCLOSE(h_, &hobj, JXCO_NONE, &cc, &rc);
    }
    handles_.clear();
  }
  bool check(int32_t rc, const std::string &what) {
    EXPECT_TRUE(rc == JXRC_NONE || rc == JXRC_RESOURCE_PROBLEM) << what << ": reason " << rc;
    failures_ += rc == JXRC_RESOURCE_PROBLEM;
    return rc == JXRC_NONE;
  }

  int32_t h_;
  Model &model_;
  std::string padding_;
  int failures_ = 0;
  std::map<std::pair<std::string, int32_t>, int32_t> handles_;
  std::vector<std::pair<std::string, std::string>> uowPuts_, uowGets_;
};

// After a restart every queue of the model is there holding exactly its
// messages, and no other queue is. Drains what it checks.
void expectModel(const std::string &qmgr, Model &model, size_t padding = 0) {
  int32_t h = connect(qmgr);
  for (const char *name : kQueueNames) {
    const bool wanted = model.count(name);
    const int32_t rc = openReason(h, name, JXOO_INPUT_SHARED);
    EXPECT_EQ(rc, wanted ? JXRC_NONE : JXRC_UNKNOWN_OBJECT_NAME) << name;
    if (!wanted || rc != JXRC_NONE) continue;
    std::map<std::string, int> expected, seen;
    for (const std::string &text : model[name]) ++expected[text];
    const int32_t q = openQueue(h, name, JXOO_INPUT_SHARED);
    for (Got g; (g = get(h, q, JXGMO_NO_SYNCPOINT, 0, kLargest)).rc == JXRC_NONE;)
      ++seen[textOf(g.data, padding)];
    EXPECT_EQ(seen, expected) << name;
    model[name].clear();
  }
  disconnect(h);
}

struct Scenario {
  const char *name;
  void (*seed)(Client &, int n);  // with a sound store, before the fault
  void (*run)(Client &, int n);
};

std::string text(const char *what, int n, int i) {
  return std::string(what) + " " + std::to_string(n) + "." + std::to_string(i);
}

const Scenario kScenarios[] = {
    {"messages", [](Client &c, int n) { c.put("PQ", text("seed", n, 1)); },
     [](Client &c, int n) {
       c.put("PQ", text("put", n, 1));
       c.put("NQ", text("plain", n, 1));
       c.get("PQ");
       c.put("PQ", text("put", n, 2));
     }},
    {"unit of work", [](Client &c, int n) { c.put("PQ", text("seed", n, 1)); },
     [](Client &c, int n) {
       c.put("PQ", text("uow", n, 1), JXPMO_SYNCPOINT);
       c.put("NQ", text("plain", n, 1), JXPMO_SYNCPOINT);
       c.get("PQ", JXGMO_SYNCPOINT);
       c.put("PQ", text("uow", n, 2), JXPMO_SYNCPOINT);
       c.commit();
     }},
    {"definitions",
     [](Client &c, int n) {
       if (!c.has("DQ")) c.admin(JXCMD_CREATE_QUEUE, "DQ");
       c.put("DQ", text("doomed", n, 1));
       c.put("PQ", text("cleared", n, 1));
       if (c.has("NEWQ")) c.admin(JXCMD_DELETE_QUEUE, "NEWQ");
     },
     [](Client &c, int) {
       c.admin(JXCMD_CREATE_QUEUE, "NEWQ");
       c.admin(JXCMD_CLEAR_QUEUE, "PQ");
       c.admin(JXCMD_DELETE_QUEUE, "DQ");
     }},
};

// Generous: no scenario makes this many writes or commits.
constexpr int kMaxFaults = 12;

using Durability = ServerTest;

// As an allocation-failure loop does: the Nth write (or commit) fails for
// N = 1, 2, ... until the scenario runs without meeting the fault.
TEST_F(Durability, EveryFailingWriteAndCommitIsReportedAndTakenBack) {
  QueueManagerProcess qm(kQueues);
  Model model = {{"PQ", {}}, {"NQ", {}}, {"DQ", {}}};
  ASSERT_TRUE(qm.stop());
  for (const char *kind : {"write", "commit"}) {
    for (const Scenario &s : kScenarios) {
      SCOPED_TRACE(std::string(kind) + " faults, " + s.name);
      ASSERT_TRUE(qm.start());
      expectModel(qm.name(), model);
      {
        Client seeder(qm.name(), model);
        s.seed(seeder, 0);
      }
      ASSERT_TRUE(qm.stop());
      int n = 1;
      for (; n <= kMaxFaults; ++n) {
        SCOPED_TRACE("fault at " + std::to_string(n));
        ASSERT_TRUE(startWith(qm, std::string(kind) + ":" + std::to_string(n)));
        int failures = 0;
        {
          Client c(qm.name(), model);
          s.run(c, n);
          c.expectServing();
          failures = c.failures();
        }
        if (n % 2)
          qm.kill9();
        else
          ASSERT_TRUE(qm.stop());
        ASSERT_TRUE(qm.start());
        expectModel(qm.name(), model);
        {
          Client seeder(qm.name(), model);
          s.seed(seeder, n);
          EXPECT_EQ(seeder.failures(), 0);
        }
        ASSERT_TRUE(qm.stop());
        if (failures == 0) break;
      }
      EXPECT_GT(n, 1) << "the fault was never met";
      EXPECT_LE(n, kMaxFaults) << "the scenario never ran whole";
    }
  }
}

// The Nth read fails, N = 1, 2, ...: a start that meets it stops, saying
// why; a login that meets it is refused with 2102, not as a user the store
// does not know, and the next login goes through.
TEST_F(Durability, EveryFailingReadIsReported) {
  const std::string where = freeTcpAddress();
  QueueManagerProcess qm(kQueues, {}, false);
  ASSERT_EQ(jxqm({"adduser", qm.name(), "alice"}, "s3cret-pw\n").status, 0);
  setenv("JX_TLS_TRUST", certificateFile(qm.name()).c_str(), 1);
  auto login = [&] { return tcpLogin(where, "alice", "s3cret-pw"); };
  int n = 1, failedStarts = 0;
  for (; n <= kMaxFaults; ++n) {
    SCOPED_TRACE("read fault at " + std::to_string(n));
    const size_t logged = qmLog(qm.name()).size();
    setenv("JX_STORE_FAULT", ("read:" + std::to_string(n)).c_str(), 1);
    const ToolResult started = jxqm({"start", qm.name(), "--listen", where});
    unsetenv("JX_STORE_FAULT");
    if (started.status != 0) {
      const std::string why = qmLog(qm.name(), logged);
      EXPECT_NE(why.find("(injected)"), std::string::npos) << why;
      ++failedStarts;
      continue;
    }
    const int32_t first = login();
    if (first != JXRC_NONE) {
      EXPECT_EQ(first, JXRC_RESOURCE_PROBLEM);
      EXPECT_EQ(login(), JXRC_NONE);
    }
    ASSERT_TRUE(qm.stop());
    if (first == JXRC_NONE) break;
  }
  EXPECT_GT(failedStarts, 0);
  EXPECT_GT(n, failedStarts + 1) << "no login met the fault";
  EXPECT_LE(n, kMaxFaults) << "the logins never ran whole";
}

// Several clients share each commit; when one fails every client in it
// hears 2102, the others' later puts go on, and a restart finds exactly the
// acknowledged messages.
TEST_F(Durability, AFailedGroupCommitFailsEveryHeldReply) {
  constexpr int kClients = 4, kPuts = 40;
  QueueManagerProcess qm(kQueues, {}, false);
  ASSERT_TRUE(startWith(qm, "commit:30"));
  Reporters clients(kClients, [&](int client, int fd) {
    int32_t h = 0;
    if (tryConnect(qm.name(), h) != JXRC_NONE) _exit(1);
    const int32_t q = openQueue(h, "PQ", JXOO_OUTPUT);
    for (int i = 0; i < kPuts; ++i) {
      const std::string t = text("group", client, i);
      const int32_t rc = qmtest::put(h, q, t, nullptr, JXPMO_NO_SYNCPOINT, JXPER_PERSISTENT);
      if (rc != JXRC_NONE && rc != JXRC_RESOURCE_PROBLEM) _exit(3);
      const std::string line = (rc == JXRC_NONE ? "ok " : "failed ") + t + "\n";
      if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) _exit(2);
    }
    _exit(0);
  });
  clients.drain();
  for (int c = 0; c < kClients; ++c) EXPECT_TRUE(clients.endedCleanly(c)) << "client " << c;
  std::set<std::string> acked;
  int failed = 0;
  std::istringstream lines(clients.lines());
  for (std::string word, t; lines >> word && std::getline(lines >> std::ws, t);) {
    if (word == "ok")
      acked.insert(t);
    else
      ++failed;
  }
  EXPECT_GE(failed, 1);
  EXPECT_EQ(acked.size() + static_cast<size_t>(failed), size_t{kClients * kPuts});
  qm.kill9();
  ASSERT_TRUE(qm.start());
  int32_t h = connect(qm.name());
  expectAcknowledgedOnce(acked, drainQueue(h, "PQ"), 0);
  disconnect(h);
}

// The disk fills: persistent puts are refused with 2102 (not a broken
// connection), gets still take messages off, other traffic goes on, and a
// restart on the full disk serves the persistent gets that remain.
void fillAndDrain(QueueManagerProcess &qm, size_t padding, const std::string &fault) {
  Model model = {{"PQ", {}}, {"NQ", {}}, {"DQ", {}}};
  {
    Client c(qm.name(), model, padding);
    for (int i = 0; i < 1000 && c.failures() == 0; ++i) c.put("PQ", text("full", i, 0));
    ASSERT_EQ(c.failures(), 1) << "the disk never filled";
    ASSERT_GT(model["PQ"].size(), 2u);
    c.put("PQ", "refused again");
    EXPECT_EQ(c.failures(), 2);
    c.expectServing();
    c.get("PQ");
    c.get("PQ");
    EXPECT_EQ(c.failures(), 2) << "gets need room to take messages off";
  }
  qm.kill9();
  ASSERT_TRUE(startWith(qm, fault));
  {
    Client c(qm.name(), model, padding);
    c.expectServing();
    const size_t left = model["PQ"].size();
    for (size_t i = 0; i < left; ++i) c.get("PQ");
    EXPECT_EQ(c.failures(), 0);
    EXPECT_TRUE(model["PQ"].empty());
    c.expectServing();
  }
  ASSERT_TRUE(qm.stop());
  ASSERT_TRUE(qm.start());
  expectModel(qm.name(), model, padding);
}

TEST_F(Durability, ASimulatedFullDiskRefusesPutsAndDrains) {
  QueueManagerProcess qm(kQueues, {}, false);
  ASSERT_TRUE(startWith(qm, "full:5"));
  fillAndDrain(qm, 10, "full:0");
}

// A queue manager's folder moved onto a small tmpfs, and back at the end.
class SmallDisk {
 public:
  SmallDisk(QueueManagerProcess &qm, const char *size) : qm_(qm), dir_(qmgrDir(qm.name())) {
    aside_ = dir_.string() + ".aside";
    std::filesystem::rename(dir_, aside_);
    std::filesystem::create_directory(dir_);
    const std::string options = std::string("size=") + size + ",mode=0700";
    mounted_ = mount("tmpfs", dir_.c_str(), "tmpfs", 0, options.c_str()) == 0;
    if (!mounted_) {
      why_ = strerror(errno);
      return;
    }
    for (const auto &f : std::filesystem::directory_iterator(aside_))
      std::filesystem::copy(f.path(), dir_ / f.path().filename());
  }
  ~SmallDisk() {
    if (mounted_) {
      qm_.stop();
      EXPECT_EQ(umount(dir_.c_str()), 0) << strerror(errno);
    }
    std::filesystem::remove(dir_);
    std::filesystem::rename(aside_, dir_);
  }
  bool mounted() const { return mounted_; }
  const std::string &why() const { return why_; }

 private:
  QueueManagerProcess &qm_;
  std::filesystem::path dir_, aside_;
  bool mounted_ = false;
  std::string why_;
};

TEST_F(Durability, ARealFullDiskRefusesPutsAndDrains) {
  if (geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs needs root";
  QueueManagerProcess qm(kQueues, {}, false);
  SmallDisk disk(qm, "12m");
  if (!disk.mounted()) GTEST_SKIP() << "cannot mount a tmpfs here: " << disk.why();
  ASSERT_TRUE(qm.start());
  fillAndDrain(qm, 64 * 1024, "");
}

}  // namespace
