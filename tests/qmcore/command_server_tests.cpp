// The command server in-process: the table's parameter checks in their
// order, and a long command answered in slices that stay numbered in order
// while queues go away under it.
#include <cstring>

#include "command_server.hpp"
#include "command_table.hpp"
#include "core_fixture.hpp"
#include "pcf_message.hpp"
#include "qmgr_files.hpp"

namespace {

using jxqm::PcfParameter;

PcfParameter str(int32_t selector, std::string s) {
  return {selector, false, false, {}, {std::move(s)}};
}
PcfParameter num(int32_t selector, int32_t v) {
  return {selector, true, false, {v}, {}};
}
PcfParameter list(int32_t selector, std::vector<int32_t> v) {
  return {selector, true, true, std::move(v), {}};
}

// The first failure wins: parameters in their order, then the missing
// ones, then values.
TEST(CommandTable, ParameterChecksInTheirOrder) {
  struct Case {
    int32_t command;
    std::vector<PcfParameter> given;
    int32_t reason, parameter;
  };
  const Case cases[] = {
      {JXCMD_CREATE_QUEUE, {str(JXCA_Q_NAME, "A"), num(JXIA_Q_TYPE, 1)}, 0, 0},
      {JXCMD_CREATE_QUEUE,
       {num(JXSEL_PURGE, 1), num(9999, 1)},
       JXRCCF_PARM_NOT_ALLOWED,
       JXSEL_PURGE},
      {JXCMD_CREATE_QUEUE,
       {str(JXCA_Q_NAME, "A"), str(JXCA_Q_NAME, "B")},
       JXRCCF_PARM_REPEATED,
       JXCA_Q_NAME},
      {JXCMD_CREATE_QUEUE,
       {num(JXCA_Q_NAME, 1), num(JXSEL_PURGE, 1)},
       JXRCCF_PARM_TYPE,
       JXCA_Q_NAME},
      {JXCMD_CREATE_QUEUE,
       {str(JXCA_Q_NAME, "A"), list(JXIA_Q_TYPE, {1})},
       JXRCCF_PARM_TYPE,
       JXIA_Q_TYPE},
      {JXCMD_CREATE_QUEUE,
       {str(JXCA_Q_NAME, "A"), num(JXIA_MAX_Q_DEPTH, 1), str(JXCA_Q_DESC, "d")},
       JXRCCF_PARM_MISSING,
       JXIA_Q_TYPE},
      {JXCMD_CREATE_QUEUE,
       {str(JXCA_Q_NAME, "A"), str(JXIA_MAX_Q_DEPTH, "1")},
       JXRCCF_PARM_TYPE,
       JXIA_MAX_Q_DEPTH},
      {JXCMD_CREATE_QUEUE,
       {str(JXCA_Q_NAME, "A*"), num(JXIA_Q_TYPE, 3)},
       JXRCCF_PARM_VALUE,
       JXCA_Q_NAME},
      {JXCMD_CREATE_QUEUE,
       {str(JXCA_Q_NAME, "A"), num(JXIA_Q_TYPE, 3)},
       JXRCCF_PARM_VALUE,
       JXIA_Q_TYPE},
      {JXCMD_CREATE_QUEUE,
       {str(JXCA_Q_NAME, "A"), num(JXIA_Q_TYPE, 1), num(JXSEL_REPLACE, 2)},
       JXRCCF_PARM_VALUE,
       JXSEL_REPLACE},
      {JXCMD_CHANGE_QUEUE,
       {str(JXCA_Q_NAME, "A"), num(JXIA_Q_TYPE, 1), num(JXIA_DEFINITION_TYPE, 1)},
       JXRCCF_PARM_NOT_ALLOWED,
       JXIA_DEFINITION_TYPE},
      {JXCMD_CHANGE_QUEUE,
       {str(JXCA_Q_NAME, "A"), num(JXIA_CURRENT_Q_DEPTH, 1)},
       JXRCCF_PARM_NOT_ALLOWED,
       JXIA_CURRENT_Q_DEPTH},
      {JXCMD_INQUIRE_QUEUE, {str(JXCA_Q_NAME, "A*"), list(JXSEL_QUEUE_ATTRS, {3, 15})}, 0, 0},
      {JXCMD_INQUIRE_QUEUE,
       {str(JXCA_Q_NAME, "*"), list(JXSEL_QUEUE_ATTRS, {3, 201})},
       JXRCCF_PARM_VALUE,
       JXSEL_QUEUE_ATTRS},
      {JXCMD_INQUIRE_QUEUE_STATUS,
       {list(JXSEL_Q_STATUS_ATTRS, {JXIA_MAX_Q_DEPTH})},
       JXRCCF_PARM_VALUE,
       JXSEL_Q_STATUS_ATTRS},
      {JXCMD_INQUIRE_QUEUE_STATUS, {}, 0, 0},
      {JXCMD_INQUIRE_QMGR, {list(JXSEL_QMGR_ATTRS, {JXIA_AUTHORITY_EVENT})}, 0, 0},
      {JXCMD_CHANGE_QMGR,
       {num(JXIA_MAX_MSG_LENGTH, 5)},
       JXRCCF_PARM_NOT_ALLOWED,
       JXIA_MAX_MSG_LENGTH},
      {JXCMD_PING_QMGR, {num(JXIA_Q_TYPE, 1)}, JXRCCF_PARM_NOT_ALLOWED, JXIA_Q_TYPE},
      {JXCMD_COPY_QUEUE,
       {str(JXSEL_FROM_QUEUE_NAME, "A"), num(JXIA_Q_TYPE, 1)},
       JXRCCF_PARM_MISSING,
       JXSEL_TO_QUEUE_NAME},
  };
  for (const Case &c : cases) {
    jxqm::CommandInput input;
    jxqm::AdminResult r = jxqm::checkParameters(*jxqm::findCommand(c.command), c.given, input);
    EXPECT_EQ(r.rc, c.reason) << "command " << c.command << " case of " << c.given.size();
    EXPECT_EQ(r.parameter, c.parameter) << "command " << c.command;
  }
  EXPECT_EQ(jxqm::findCommand(99), nullptr);
}

class CommandCore : public coretest::Core {
 protected:
  // Puts a request on the command queue as an administrator would.
  void request(const pcftest::Msg &m, int32_t hobj, jxqm::Session &s) {
    JXMD md = JXMD_DEFAULT;
    md.MsgType = JXMT_REQUEST;
    std::memcpy(md.Format, JXFMT_ADMIN, JX_FORMAT_LENGTH);
    jxqp::setField(md.ReplyToQ, JX_Q_NAME_LENGTH, "RQ");
    ASSERT_EQ(
        put(s, hobj, std::string_view(reinterpret_cast<const char *>(m.data.data()), m.data.size()),
            JXPMO_NO_SYNCPOINT, md)
            .rc,
        JXRC_NONE);
  }
  // The replies on RQ as their headers and first names.
  std::vector<std::pair<jxqm::PcfHeader, std::string>> replies(jxqm::Session &s, int32_t hobj) {
    std::vector<std::pair<jxqm::PcfHeader, std::string>> out;
    while (auto g = get(s, hobj, JXGMO_NO_SYNCPOINT, 0)) {
      if (g->reply.cc != JXCC_OK) break;
      jxqm::PcfHeader h;
      std::vector<jxqm::PcfParameter> p;
      EXPECT_TRUE(codec_.decode(g->data, h, p));
      out.emplace_back(h, p.empty() || p[0].texts.empty() ? "" : p[0].texts[0]);
    }
    return out;
  }
  jxqm::PcfCodec codec_;
};

TEST_F(CommandCore, LongCommandRunsInSlicesNumberedInOrder) {
  constexpr int kQueues = 200, kGone = 50;
  create(jxqm::kCommandQueue);
  create("RQ", {{JXIA_MAX_Q_DEPTH, 1000, {}}});
  for (int i = 0; i < kQueues; ++i) create("SLICE." + std::to_string(1000 + i));
  jxqm::CommandServer server(*qm_);
  ASSERT_TRUE(server.start());
  EXPECT_EQ(attribute(jxqm::kCommandQueue, JXIA_OPEN_INPUT_COUNT).number, 1);
  jxqm::Session &admin = session("root", jxqm::kAuthAdmin);
  const int32_t cmd = open(admin, jxqm::kCommandQueue, JXOO_OUTPUT);
  const int32_t rq = open(admin, "RQ", JXOO_INPUT_SHARED);
  request(pcftest::Msg()
              .header(JXPCF_TYPE_COMMAND, JXCMD_INQUIRE_QUEUE, 2)
              .string(JXCA_Q_NAME, "SLICE.*")
              .intList(JXSEL_QUEUE_ATTRS, {JXIA_CURRENT_Q_DEPTH}),
          cmd, admin);
  // One turn answers one slice (a step's time of objects, far fewer than
  // those that go below); the last reply of a slice waits for the next.
  EXPECT_EQ(server.turn(jxqm::QueueManager::nowMs()), 0);
  auto first = replies(admin, rq);
  ASSERT_LT(first.size(), size_t(kQueues - kGone - 1));
  // Queues that go meanwhile have no reply, and the numbering has no gap.
  for (int i = kQueues - kGone; i < kQueues; ++i)
    ASSERT_TRUE(admin_->deleteQueue("SLICE." + std::to_string(1000 + i), false).ok());
  while (server.turn(jxqm::QueueManager::nowMs()) == 0) {
  }
  auto all = first;
  for (auto &r : replies(admin, rq)) all.push_back(r);
  ASSERT_EQ(all.size(), size_t(kQueues - kGone));
  for (size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].first.sequence, int32_t(i + 1));
    EXPECT_EQ(all[i].first.control, i + 1 == all.size() ? JXPCF_CONTROL_LAST : 0);
    EXPECT_EQ(all[i].second, "SLICE." + std::to_string(1000 + i));
  }
}

}  // namespace
