// What the messaging tests share: one queue manager for the suite and a
// connection per test, bags that clean up after themselves, a look at what a
// bag holds, and a command server played by a thread of the test.
#pragma once

#include <gtest/gtest.h>
#include <jx/jxai.h>
#include <jx/jxcs.h>
#include <string.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "jxiz.h"
#include "outcome.hpp"
#include "pcf_message.hpp"
#include "qm_call_log.hpp"
#include "qm_harness.hpp"

using pcftest::Msg;
using Replies = std::vector<Msg>;

struct ApiBag {
  explicit ApiBag(int32_t options = 0) { call(jxCreateBag, options, &h); }
  ~ApiBag() { call(jxDeleteBag, &h); }
  ApiBag &add(int32_t selector, int32_t value) {
    EXPECT_EQ(call(jxAddInteger, h, selector, value), kOk);
    return *this;
  }
  ApiBag &add(int32_t selector, const std::string &s) {
    EXPECT_EQ(call(jxAddString, h, selector, int32_t(s.size()), s.data()), kOk);
    return *this;
  }
  ApiBag &set(int32_t selector, int32_t value) {
    EXPECT_EQ(call(jxSetInteger, h, selector, JXIDX_ONLY, value), kOk);
    return *this;
  }
  JXHBAG h = JXHB_NONE;
};

inline int32_t integerOf(JXHBAG bag, int32_t selector, int32_t index = JXIDX_ONLY) {
  int32_t v = -1;
  EXPECT_EQ(call(jxInquireInteger, bag, selector, index, &v), kOk) << "selector " << selector;
  return v;
}
inline std::string stringOf(JXHBAG bag, int32_t selector, int32_t index = JXIDX_ONLY) {
  std::string s(16384, '\0');
  int32_t length = 0;
  EXPECT_EQ(
      call(jxInquireString, bag, selector, index, int32_t(s.size()), s.data(), &length, nullptr),
      kOk);
  return s.substr(0, size_t(length));
}
inline int32_t countOf(JXHBAG bag, int32_t selector) {
  int32_t n = -1;
  EXPECT_EQ(call(jxCountItems, bag, selector, &n), kOk);
  return n;
}
// Every item as "selector/type=value" in bag order (a nested bag shows its handle).
inline std::vector<std::string> contents(JXHBAG bag) {
  std::vector<std::string> out;
  int32_t selector, type, v = 0;
  for (int32_t i = 0; call(jxInquireItemInfo, bag, JXSEL_ANY, i, &selector, &type) == kOk; ++i) {
    if (type != JXITEM_STRING)
      call(type == JXITEM_BAG ? jxInquireBag : jxInquireInteger, bag, JXSEL_ANY, i, &v);
    out.push_back(std::to_string(selector) + "/" + std::to_string(type) + "=" +
                  (type == JXITEM_STRING ? stringOf(bag, JXSEL_ANY, i) : std::to_string(v)));
  }
  return out;
}
// A 48-byte name field up to its first blank or null.
inline std::string nameOf(const char *field) {
  const std::string s(field, JX_Q_NAME_LENGTH);
  return s.substr(0, s.find_first_of(std::string(" \0", 2)));
}

// A reply of the command server: PCF type 2 with the given control,
// completion code, reason and parameter count.
inline Msg reply(int32_t control, int32_t compCode = 0, int32_t reason = 0, int32_t count = 0,
                 int32_t sequence = 1) {
  return Msg().header(JXPCF_TYPE_RESPONSE, JXCMD_INQUIRE_QUEUE, count, sequence, control, compCode,
                      reason);
}

// Replies carry this CCSID in their descriptors.
inline constexpr int32_t kReplyCcsid = 1208;

// Serves one queue on a connection of its own: keeps every request and
// answers it with the replies `answer` makes, put to its reply-to queue.
class Responder {
 public:
  using Answer = std::function<Replies(const qmtest::Got &)>;
  Responder(const std::string &qmgr, const std::string &queue, Answer answer)
      : answer_(std::move(answer)) {
    QmCallLog::Pause pause;
    hconn_ = qmtest::connect(qmgr);
    hobj_ = qmtest::openQueue(hconn_, queue, JXOO_INPUT_SHARED);
    thread_ = std::thread([this] {
      while (!stop_) {
        qmtest::Got g = qmtest::get(hconn_, hobj_, JXGMO_WAIT | JXGMO_NO_SYNCPOINT, 20, 65536);
        if (g.cc != JXCC_OK) continue;
        for (auto &m : answer_(g)) send(g.md, m);
        std::lock_guard<std::mutex> lock(mu_);
        requests_.push_back(g);
      }
    });
  }
  ~Responder() {
    stop_ = true;
    thread_.join();
    qmtest::disconnect(hconn_);
  }
  std::vector<qmtest::Got> requests() {
    std::lock_guard<std::mutex> lock(mu_);
    return requests_;
  }

 private:
  void send(const JXMD &request, Msg &message) {
    JXOD od = JXOD_DEFAULT;
    memcpy(od.ObjectName, request.ReplyToQ, sizeof od.ObjectName);
    JXMD md = JXMD_DEFAULT;
    md.MsgType = JXMT_REPLY;
    md.CodedCharSetId = kReplyCcsid;
    memcpy(md.Format, JXFMT_ADMIN, sizeof md.Format);
    memcpy(md.CorrelId, request.MsgId, sizeof md.CorrelId);
    JXPMO pmo = JXPMO_DEFAULT;
    int32_t cc, rc;
    zstJXPUT1(hconn_, &od, &md, &pmo, message.size(), message.data.data(), &cc, &rc);
    // A call that gave up has deleted its reply queue already.
    EXPECT_TRUE(rc == JXRC_NONE || rc == JXRC_UNKNOWN_OBJECT_NAME) << "reply put: " << rc;
  }

  Answer answer_;
  int32_t hconn_ = 0, hobj_ = 0;
  std::atomic<bool> stop_{false};
  std::mutex mu_;
  std::vector<qmtest::Got> requests_;
  std::thread thread_;
};

inline constexpr const char *kRequestQueue = "REQ";
inline constexpr const char *kReplyQueue = "REP";
inline constexpr const char *kBagQueue = "BAGS";

// One queue manager for the suite, a connection for each test. The test
// plays the command server, so the queue manager runs without its own.
class MessagingTest : public qmtest::SuiteQueueManagerTest {
 protected:
  static void SetUpTestSuite() {
    if (qmtest::serverAvailable())
      qm() = std::make_unique<qmtest::QueueManagerProcess>(
          std::vector<std::string>{kRequestQueue, kReplyQueue, kBagQueue},
          std::vector<std::string>{"--no-command-server"});
  }
  void TearDown() override {
    if (hconn_ > 0)
      for (const char *q : {kRequestQueue, kReplyQueue, kBagQueue}) qmtest::drainQueue(hconn_, q);
    SuiteQueueManagerTest::TearDown();
  }
  int32_t open(const char *queue, int32_t options) {
    QmCallLog::Pause pause;
    return qmtest::openQueue(hconn_, queue, options);
  }
  int32_t depth(const char *queue) {
    QmCallLog::Pause pause;
    int32_t h = open(queue, JXOO_INQUIRE), selector = JXIA_CURRENT_Q_DEPTH, n = -1, cc, rc;
    zstJXINQ(hconn_, h, 1, &selector, 1, &n, 0, nullptr, &cc, &rc);
    zstJXCLOSE(hconn_, &h, JXCO_NONE, &cc, &rc);
    return n;
  }
};
