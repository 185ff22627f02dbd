// Temporary dynamic queues: unique names from a model, deletion on close
// with the purge option and when the creating connection ends; permanent
// ones kept across restarts. (A get waiting on a deleted queue: session_tests.)
#include <chrono>
#include <cstring>
#include <thread>

#include "outcome.hpp"
#include "qm_harness.hpp"

using namespace qmtest;

namespace {

class DynamicQueues : public ConnectedTest {
 protected:
  // Opens a model with `dynamicName`; returns the handle and the new name.
  int32_t openModel(int32_t hconn, const std::string &dynamicName, std::string &name,
                    int32_t options = JXOO_INPUT_EXCLUSIVE, int32_t reason = JXRC_NONE,
                    const char *model = "SYSTEM.DEFAULT.MODEL.QUEUE") {
    JXOD od = JXOD_DEFAULT;
    setName(od.ObjectName, model);
    setName(od.DynamicQName, dynamicName);
    int32_t h = 0;
    EXPECT_EQ(call(zstJXOPEN, hconn, &od, options, &h).rc, reason);
    name.assign(od.ObjectName, strnlen(od.ObjectName, JX_Q_NAME_LENGTH));
    return h;
  }
  int32_t definitionType(const std::string &queue) {
    int32_t sel = JXIA_DEFINITION_TYPE, type = 0;
    int32_t h = openQueue(hconn_, queue, JXOO_INQUIRE);
    EXPECT_EQ(call(zstJXINQ, hconn_, h, 1, &sel, 1, &type, 0, nullptr), kOk);
    return type;
  }
};

TEST_F(DynamicQueues, NamesComeFromTheTemplateAndAreUnique) {
  std::string a, b, fixed;
  openModel(hconn_, "JXAI.REPLY.*", a);
  openModel(hconn_, "JXAI.REPLY.*", b);
  EXPECT_EQ(a.rfind("JXAI.REPLY.", 0), 0u) << a;
  EXPECT_GT(a.size(), std::strlen("JXAI.REPLY."));
  EXPECT_NE(a, b);
  // A template as long as a name: the unique part still fits, so each open
  // gets a new name at once rather than waiting for the clock.
  const std::string longPrefix(47, 'L');
  std::string c, d;
  openModel(hconn_, longPrefix + "*", c);
  openModel(hconn_, longPrefix + "*", d);
  EXPECT_EQ(c.size(), 48u);
  EXPECT_EQ(c.rfind(longPrefix.substr(0, 32), 0), 0u) << c;
  EXPECT_NE(c, d);
  openModel(hconn_, "MY.OWN.NAME", fixed);
  EXPECT_EQ(fixed, "MY.OWN.NAME");
  openModel(hconn_, "MY.OWN.NAME", fixed, JXOO_INPUT_SHARED, JXRC_OBJECT_ALREADY_EXISTS);
  const JXOD byDefault = JXOD_DEFAULT;
  openModel(hconn_, byDefault.DynamicQName, fixed, JXOO_INPUT_SHARED);
  EXPECT_EQ(fixed.substr(0, 4), "AJX.") << "the default descriptor's template";
  EXPECT_EQ(definitionType(a), JXQDT_TEMPORARY_DYNAMIC);
}

TEST_F(DynamicQueues, CloseWithPurgeDeletesQueueAndMessages) {
  std::string name;
  int32_t h = openModel(hconn_, "TEMP.*", name, JXOO_INPUT_EXCLUSIVE | JXOO_OUTPUT);
  ASSERT_EQ(put(hconn_, h, "left behind"), JXRC_NONE);
  int32_t copy = h;
  EXPECT_EQ(call(zstJXCLOSE, hconn_, &copy, JXCO_DELETE), failed(JXRC_Q_NOT_EMPTY))
      << "delete without purge keeps a queue with messages";
  ASSERT_EQ(call(zstJXCLOSE, hconn_, &h, JXCO_DELETE_PURGE), kOk);
  EXPECT_EQ(openReason(hconn_, name), JXRC_UNKNOWN_OBJECT_NAME);
  // Re-creating the name gives an empty queue.
  std::string again;
  h = openModel(hconn_, name, again, JXOO_INPUT_EXCLUSIVE);
  EXPECT_EQ(get(hconn_, h).rc, JXRC_NO_MSG_AVAILABLE);
}

TEST_F(DynamicQueues, OthersMayPutButNotDelete) {
  std::string name;
  int32_t h = openModel(hconn_, "REPLY.*", name);
  int32_t other = connect(qm_->name());
  int32_t out = openQueue(other, name, JXOO_OUTPUT);
  ASSERT_EQ(put(other, out, "reply"), JXRC_NONE);
  EXPECT_EQ(call(zstJXCLOSE, other, &out, JXCO_DELETE_PURGE), failed(JXRC_NOT_AUTHORIZED));
  EXPECT_EQ(get(hconn_, h).data, "reply");
  disconnect(other);
}

TEST_F(DynamicQueues, DeletedWhenTheCreatingConnectionIsKilled) {
  HeldChild child = holdInChild([&] {
    int32_t h = connect(qm_->name());
    std::string name;
    int32_t q = openModel(h, "DOOMED.*", name, JXOO_INPUT_EXCLUSIVE | JXOO_OUTPUT);
    put(h, q, "data");
    return name;
  });
  ASSERT_EQ(child.said.rfind("DOOMED.", 0), 0u) << child.said;
  EXPECT_EQ(openReason(hconn_, child.said), JXRC_NONE);
  child.kill();
  int32_t rc = JXRC_NONE;
  for (int i = 0; i < 500 && rc == JXRC_NONE; ++i) {
    rc = openReason(hconn_, child.said);
    if (rc == JXRC_NONE) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(rc, JXRC_UNKNOWN_OBJECT_NAME);
}

class PermanentDynamicQueues : public DynamicQueues {
 protected:
  PermanentDynamicQueues() { queues_ = {"PERM.MODEL --permanent-dynamic --persistent"}; }
};

TEST_F(PermanentDynamicQueues, OutliveTheirConnectionAndTheQueueManager) {
  std::string name;
  int32_t q =
      openModel(hconn_, "KEEP.*", name, JXOO_OUTPUT | JXOO_INQUIRE, JXRC_NONE, "PERM.MODEL");
  ASSERT_EQ(put(hconn_, q, "kept", nullptr, JXPMO_NO_SYNCPOINT, JXPER_AS_Q_DEF), JXRC_NONE);
  EXPECT_EQ(definitionType(name), JXQDT_PERMANENT_DYNAMIC);
  restart();
  q = openQueue(hconn_, name, JXOO_INPUT_SHARED);
  EXPECT_EQ(get(hconn_, q).data, "kept");
  EXPECT_EQ(call(zstJXCLOSE, hconn_, &q, JXCO_DELETE), kOk);
  restart();
  EXPECT_EQ(openReason(hconn_, name), JXRC_UNKNOWN_OBJECT_NAME) << "deleted for good";
}

}  // namespace
