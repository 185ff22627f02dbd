// A queue manager in the test's own process, on an in-memory store: its
// administration calls and sessions, with no socket in between.
#pragma once

#include <gtest/gtest.h>
#include <jx/jxai.h>

#include <memory>
#include <string>
#include <vector>

#include "administration.hpp"
#include "qm_paths.hpp"
#include "queue_manager.hpp"
#include "session.hpp"
#include "store.hpp"

namespace coretest {

// A session's far side: what the queue manager told it.
struct RecordingPeer final : jxqm::Peer {
  std::vector<jxqm::GetResult> answers;
  int endings = 0;
  void getAnswered(jxqm::GetResult &&r) override { answers.push_back(std::move(r)); }
  void ended() override { ++endings; }
};

class Core : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string err;
    ASSERT_TRUE(store_.open(":memory:", true, err)) << err;
    restart();
  }
  // A new queue manager on the same store, as after a stop and a start;
  // the sessions end with the old one.
  void restart() {
    if (qm_) {
      EXPECT_TRUE(qm_->endTurn());
    }
    admin_.reset();
    qm_.reset();
    qm_ = std::make_unique<jxqm::QueueManager>("CORE", store_);
    ASSERT_TRUE(qm_->load());
    admin_ = std::make_unique<jxqm::Administration>(*qm_);
  }
  jxqm::Session &session(const std::string &user = "alice",
                         int32_t authority = jxqm::kAuthConnect) {
    peers_.push_back(std::make_unique<RecordingPeer>());
    jxqm::QueueManager::SessionInfo info{{user, authority}, JXTRANSPORT_TCP, 4242, "app"};
    return qm_->startSession(std::move(info), peers_.back().get());
  }
  int32_t open(jxqm::Session &s, const std::string &queue, int32_t options) {
    jxqp::OpenRequest r{.options = options, .obj = {.objectType = JXOT_Q}};
    jxqp::setField(r.obj.objectName, JX_Q_NAME_LENGTH, queue);
    jxqp::OpenReply reply = s.open(r);
    EXPECT_EQ(reply.rc, JXRC_NONE) << queue;
    return reply.hobj;
  }
  jxqp::PutReply put(jxqm::Session &s, int32_t hobj, std::string_view data,
                     int32_t options = JXPMO_NO_SYNCPOINT, JXMD md = JXMD_DEFAULT) {
    return s.put({.hobj = hobj, .options = options, .md = md, .data = data});
  }
  std::optional<jxqm::GetResult> get(jxqm::Session &s, int32_t hobj,
                                     int32_t options = JXGMO_NO_SYNCPOINT, int32_t wait = 0) {
    return s.get({.hobj = hobj, .options = options, .waitInterval = wait, .bufferLength = 1024});
  }
  // One integer or string attribute of a queue, through the administration calls.
  jxqm::AttrValue attribute(const std::string &queue, int32_t selector) {
    jxqm::AttrList out;
    EXPECT_TRUE(admin_->inquireQueue(queue, {selector}, out).ok()) << queue << " " << selector;
    return out.empty() ? jxqm::AttrValue{} : out[0];
  }
  void create(const std::string &queue, const jxqm::AttrList &attrs = {},
              int32_t type = JXQT_LOCAL) {
    jxqm::AdminResult r = admin_->createQueue(queue, type, attrs, false);
    ASSERT_TRUE(r.ok()) << queue << ": " << r.rc << " " << r.parameter;
  }

  jxqm::Store store_;
  std::unique_ptr<jxqm::QueueManager> qm_;
  std::unique_ptr<jxqm::Administration> admin_;
  std::vector<std::unique_ptr<RecordingPeer>> peers_;
};

}  // namespace coretest
