// One queue manager as jxadmin reaches it: a connection made with the
// public calls, and commands run through jxExecute with every reply read
// back into plain records.
#pragma once

#include <jx/jxai.h>
#include <jx/jxqm.h>

#include <cstdint>
#include <string>
#include <vector>

namespace jxadmin {

// One parameter of a request or one item of a reply.
struct Item {
  int32_t selector = 0;
  bool isString = false;
  int32_t number = 0;
  std::string text;  // trailing blanks removed
};
using Record = std::vector<Item>;

struct Failure {
  int32_t reason = 0;
  int32_t parameter = 0;  // the selector in error, 0 when the reply named none
};

// What one command did on one queue manager: the replies that succeeded as
// records, and a failure for every reply that did not (or for the call).
struct Outcome {
  std::string qmgr;
  std::vector<Record> records;
  std::vector<Failure> failures;
  bool failed() const { return !failures.empty() && records.empty(); }
  bool partial() const { return !failures.empty() && !records.empty(); }
};

// Where a queue manager is: its name, and a host:port when over TCP.
struct Target {
  std::string qmgr;
  std::string server;
  std::string label() const { return qmgr.empty() ? server : qmgr; }
};

struct Credentials {
  std::string user;
  std::string password;
};

struct Request {
  int32_t command = 0;
  std::vector<Item> params;      // repeated selectors become lists
  std::vector<int32_t> inquire{};  // the attributes asked for; none: all of them
};

class Session {
 public:
  Session() = default;
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;
  ~Session();

  // The reason of the connect; 0 once connected.
  int32_t connect(const Target &target, const Credentials &credentials);
  JXHCONN hconn() const { return hconn_; }
  // Runs a command; waitMs < 0 keeps the library's default wait.
  Outcome execute(const Request &request, int32_t waitMs) const;

 private:
  JXHCONN hconn_ = JXHC_UNUSABLE_HCONN;
  bool connected_ = false;
  std::string label_;
};

// The user items of a bag, in their order.
std::vector<Item> readItems(JXHBAG bag, int32_t &reason);
// The first value of a selector, or null.
const Item *find(const Record &record, int32_t selector);

}  // namespace jxadmin
