// Helpers for tests that run real queue managers: the control tool, unique
// queue-manager names, connections and small message helpers.
#pragma once

#include <gtest/gtest.h>
#include <jx/jxqm.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "jxiz.h"

namespace qmtest {

// Folder holding jxqm and jxqmgr (native even in the i386 build); empty when unknown.
std::string binDir();
// Skips the current test when no native server programs are known.
bool serverAvailable();

struct ToolResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out;  // stdout and stderr together
};
// Runs jxqm with the arguments; `input` goes to its standard input.
ToolResult jxqm(const std::vector<std::string> &args, const std::string &input = "");

std::string uniqueName(const char *prefix);

// A created and started queue manager, stopped and deleted at the end.
class QueueManagerProcess {
 public:
  // Queues: each "NAME[ options...]" is passed to `jxqm define` before the start.
  explicit QueueManagerProcess(const std::vector<std::string> &queues = {"Q1"},
                               const std::vector<std::string> &startArgs = {},
                               bool startNow = true);
  ~QueueManagerProcess();
  const std::string &name() const { return name_; }
  pid_t pid() const;
  bool start(const std::vector<std::string> &args = {});
  bool stop();
  void kill9();

 private:
  std::string name_;
};

// Connects to the named queue manager; fails the test on error.
int32_t connect(const std::string &qmgr);
void disconnect(int32_t &hconn);
int32_t openQueue(int32_t hconn, const std::string &queue, int32_t options);
// Puts `data` with the given persistence and options; returns the reason.
int32_t put(int32_t hconn, int32_t hobj, const std::string &data, JXMD *mdOut = nullptr,
            int32_t options = JXPMO_NO_SYNCPOINT, int32_t persistence = JXPER_NOT_PERSISTENT);
struct Got {
  int32_t cc = -1, rc = -1, dataLength = -1;
  std::string data;
  JXMD md = JXMD_DEFAULT;
};
Got get(int32_t hconn, int32_t hobj, int32_t options = JXGMO_NO_SYNCPOINT, int32_t wait = 0,
        int32_t bufferLength = 4096, const JXMD *selector = nullptr,
        int32_t match = JXMO_MATCH_MSG_ID | JXMO_MATCH_CORREL_ID);
void setName(char *field, const std::string &s);

}  // namespace qmtest
