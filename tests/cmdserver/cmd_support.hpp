// What the command-server tests share: a queue manager for the suite, a
// command sent through jxExecute with its replies read back, raw requests,
// and the messages of an event queue.
#pragma once

#include <jx/jxai.h>

#include <climits>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "outcome.hpp"
#include "pcf_message.hpp"
#include "qm_harness.hpp"

namespace cmdtest {

struct Item {
  int32_t selector;
  std::variant<int32_t, std::string> value;
};
using Items = std::vector<Item>;
inline Items operator+(Items a, const Items &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// A reply or an event: its header and its parameters, strings trimmed.
struct Reply {
  int32_t cc = -1, rc = -1, command = -1, sequence = -1, control = -1;
  std::map<int32_t, std::vector<int32_t>> ints;
  std::map<int32_t, std::vector<std::string>> texts;
  int32_t number(int32_t selector) const {
    auto it = ints.find(selector);
    return it == ints.end() ? INT_MIN : it->second[0];
  }
  std::string text(int32_t selector) const {
    auto it = texts.find(selector);
    return it == texts.end() ? "<none>" : it->second[0];
  }
};
Reply readBag(JXHBAG bag);
// A reply message read into a bag, which must succeed.
Reply readMessage(const std::string &data);

struct Executed {
  Outcome outcome;
  std::vector<Reply> replies;
};
// With `replyq`, the replies come to that open queue.
Executed execute(int32_t hconn, int32_t command, const Items &items = {}, int32_t replyq = 0);

// The reasons and replies of the events now on an event queue, taken off.
std::vector<Reply> takeEvents(int32_t hconn, const char *queue);

// Puts `m` on the command queue with the given descriptor fields (reply-to
// RQ unless told otherwise); returns the message identifier.
std::string putRaw(int32_t hconn, const pcftest::Msg &m, const char *format = JXFMT_ADMIN,
                   int32_t encoding = JXENC_NATIVE, const char *replyTo = "RQ",
                   int32_t persistence = JXPER_NOT_PERSISTENT, int32_t expiry = JXEI_UNLIMITED);

// One queue manager for the suite (queue RQ for raw replies), a
// connection for each test.
class CommandTest : public qmtest::SuiteQueueManagerTest {
 protected:
  static void SetUpTestSuite();
  Executed run(int32_t command, const Items &items = {}) { return execute(hconn_, command, items); }
  // Runs a command that must answer once with success.
  Reply ok(int32_t command, const Items &items = {});
};

}  // namespace cmdtest
