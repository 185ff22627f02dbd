// Sessions in-process: the identity the queue manager gives every message,
// a queue's status and statistics as messages come and go, waiting gets
// answered through the peer, and connections listed and stopped.
#include <cstring>

#include "core_fixture.hpp"

namespace {

using coretest::Core;

class Sessions : public Core {
 protected:
  void SetUp() override {
    Core::SetUp();
    create("Q1");
  }
  std::string userIdentifier(const JXMD &md) {
    return jxqp::fieldString(md.UserIdentifier, JX_USER_IDENTIFIER_LENGTH);
  }
};

TEST_F(Sessions, TheQueueManagerGivesEveryMessageItsPuttersIdentity) {
  jxqm::Session &s = session("a-rather-long-user", jxqm::kAuthConnect);
  int32_t h = open(s, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  JXMD forged = JXMD_DEFAULT;
  std::memcpy(forged.UserIdentifier, "admin", 5);
  forged.Persistence = JXPER_PERSISTENT;
  jxqp::Put1Request byName{.obj = {.objectType = JXOT_Q}, .md = forged, .data = "by put1"};
  jxqp::setField(byName.obj.objectName, JX_Q_NAME_LENGTH, "Q1");
  const jxqp::PutReply put1Reply = s.put1(byName);
  jxqp::PutReply putReply = put(s, h, "by put", JXPMO_NO_SYNCPOINT, forged);
  JXMD own = JXMD_DEFAULT;
  ASSERT_TRUE(admin_->putMessage("Q1", own, "by the queue manager").ok());
  for (const JXMD &md : {put1Reply.md, putReply.md})
    EXPECT_EQ(userIdentifier(md), "a-rather-lon") << "the first 12 characters";
  EXPECT_EQ(userIdentifier(own), qm_->identity().user.substr(0, JX_USER_IDENTIFIER_LENGTH));
  // The whole name and its authority stay with the message, and in the store.
  restart();
  const jxqm::QueuePtr q = qm_->findQueue("Q1");
  ASSERT_EQ(q->msgs.size(), 2u) << "the persistent ones";
  for (const auto &[seq, m] : q->msgs) {
    EXPECT_EQ(m.putter, "a-rather-long-user");
    EXPECT_EQ(m.authority, jxqm::kAuthConnect);
    EXPECT_EQ(userIdentifier(m.md), "a-rather-lon");
  }
}

TEST_F(Sessions, StatusAndStatisticsFollowTheMessages) {
  const std::vector<int32_t> watched = {JXIA_CURRENT_Q_DEPTH,  JXIA_MSG_ENQ_COUNT,
                                        JXIA_MSG_DEQ_COUNT,    JXIA_HIGH_Q_DEPTH,
                                        JXIA_UNCOMMITTED_MSGS, JXIA_OLDEST_MSG_AGE};
  auto numbers = [&] {
    jxqm::AttrList out;
    EXPECT_TRUE(admin_->inquireQueue("Q1", watched, out).ok());
    std::vector<int32_t> n;
    for (const jxqm::AttrValue &v : out) n.push_back(v.number);
    return n;
  };
  EXPECT_EQ(numbers(), (std::vector<int32_t>{0, 0, 0, 0, 0, -1})) << "empty";
  EXPECT_EQ(attribute("Q1", JXCA_LAST_PUT_DATE).text, std::string(JX_DATE_LENGTH, ' '));
  jxqm::Session &s = session();
  int32_t h = open(s, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  put(s, h, "one");
  put(s, h, "two");
  put(s, h, "held", JXPMO_SYNCPOINT);
  ASSERT_TRUE(get(s, h)->reply.rc == JXRC_NONE);
  ASSERT_TRUE(get(s, h, JXGMO_SYNCPOINT)->reply.rc == JXRC_NONE);
  // Depth counts the uncommitted put; put and got count what is committed.
  EXPECT_EQ(numbers(), (std::vector<int32_t>{2, 2, 1, 3, 2, 0}));
  const std::string date = attribute("Q1", JXCA_LAST_GET_DATE).text;
  ASSERT_EQ(date.size(), static_cast<size_t>(JX_DATE_LENGTH));
  EXPECT_TRUE(date[4] == '-' && date[7] == '-') << date;
  EXPECT_EQ(attribute("Q1", JXCA_LAST_PUT_TIME).text[2], '.');
  s.commit();
  EXPECT_EQ(numbers(), (std::vector<int32_t>{1, 3, 2, 3, 0, 0}));

  jxqm::AttrList before;
  ASSERT_TRUE(admin_->resetQueueStatistics("Q1", before).ok());
  ASSERT_EQ(before.size(), 4u);
  EXPECT_EQ(std::vector<int32_t>({before[0].number, before[1].number, before[2].number}),
            (std::vector<int32_t>{3, 2, 3}));
  EXPECT_GE(before[3].number, 0);
  EXPECT_EQ(numbers(), (std::vector<int32_t>{1, 0, 0, 1, 0, 0})) << "counting again";
}

TEST_F(Sessions, WaitingGetsHearThroughTheirPeer) {
  jxqm::Session &reader = session();
  int32_t h = open(reader, "Q1", JXOO_INPUT_SHARED);
  EXPECT_FALSE(get(reader, h, JXGMO_WAIT, JXWI_UNLIMITED).has_value()) << "waits";
  EXPECT_TRUE(reader.waiting());
  JXMD md = JXMD_DEFAULT;
  ASSERT_TRUE(admin_->putMessage("Q1", md, "served").ok());
  ASSERT_EQ(peers_[0]->answers.size(), 1u);
  EXPECT_EQ(peers_[0]->answers[0].data, "served");
  EXPECT_FALSE(reader.waiting());
  // A queue deleted under a waiting get ends it with 2052.
  create("GONE");
  int32_t g = open(reader, "GONE", JXOO_INPUT_SHARED);
  EXPECT_FALSE(get(reader, g, JXGMO_WAIT, 60000).has_value());
  jxqm::QueuePtr gone = qm_->findQueue("GONE");
  ASSERT_EQ(qm_->deleteQueue(gone), JXRC_NONE);
  ASSERT_EQ(peers_[0]->answers.size(), 2u);
  EXPECT_EQ(peers_[0]->answers[1].reply.rc, JXRC_Q_DELETED);
  EXPECT_EQ(qm_->expireWaits(jxqm::QueueManager::nowMs() + 120000), -1) << "no wait left";
}

TEST_F(Sessions, ConnectionsAreListedAndStopped) {
  jxqm::Session &first = session("alice");
  jxqm::Session &second = session("bob");
  int32_t h = open(second, "Q1", JXOO_OUTPUT | JXOO_INPUT_SHARED);
  put(second, h, "taken back");
  ASSERT_TRUE(get(second, h, JXGMO_SYNCPOINT)->reply.rc == JXRC_NONE);
  std::vector<jxqm::AttrList> list = admin_->connections();
  ASSERT_EQ(list.size(), 2u);
  auto field = [&](const jxqm::AttrList &c, int32_t selector) {
    for (const jxqm::AttrValue &v : c)
      if (v.selector == selector) return v;
    ADD_FAILURE() << "no " << selector;
    return jxqm::AttrValue{};
  };
  EXPECT_EQ(field(list[0], JXCA_CONNECTION_ID).text, first.connectionId());
  EXPECT_EQ(field(list[1], JXCA_USER_ID).text.substr(0, 4), "bob ");
  EXPECT_EQ(field(list[1], JXIA_HANDLE_COUNT).number, 1);
  EXPECT_EQ(field(list[1], JXIA_PROCESS_ID).number, 4242);
  EXPECT_EQ(field(list[1], JXIA_TRANSPORT).number, JXTRANSPORT_TCP);
  EXPECT_EQ(field(list[1], JXCA_APPL_NAME).text.substr(0, 4), "app ");
  EXPECT_NE(first.connectionId(), second.connectionId());

  ASSERT_TRUE(admin_->stopConnection(second.connectionId()).ok());
  EXPECT_EQ(peers_[1]->endings, 1);
  EXPECT_EQ(peers_[0]->endings, 0);
  EXPECT_EQ(admin_->connections().size(), 1u);
  // Its unit of work is backed out and its handle closed.
  EXPECT_EQ(attribute("Q1", JXIA_CURRENT_Q_DEPTH).number, 1);
  EXPECT_EQ(attribute("Q1", JXIA_UNCOMMITTED_MSGS).number, 0);
  EXPECT_EQ(attribute("Q1", JXIA_OPEN_INPUT_COUNT).number, 0);
  EXPECT_EQ(qm_->findQueue("Q1")->msgs.begin()->second.md.BackoutCount, 1);
}

}  // namespace
