// Temporary dynamic queues: unique names from a model, deletion on close
// with the purge option and when the creating connection ends.
#include <chrono>
#include <cstring>
#include <thread>

#include "qm_harness.hpp"

using namespace qmtest;

namespace {

class DynamicQueues : public ConnectedTest {
 protected:
  // Opens the default model with `dynamicName`; returns the handle and the new name.
  int32_t openModel(int32_t hconn, const std::string &dynamicName, std::string &name,
                    int32_t options = JXOO_INPUT_EXCLUSIVE, int32_t reason = JXRC_NONE) {
    JXOD od = JXOD_DEFAULT;
    setName(od.ObjectName, "SYSTEM.DEFAULT.MODEL.QUEUE");
    setName(od.DynamicQName, dynamicName);
    int32_t h = 0, cc, rc;
    zstJXOPEN(hconn, &od, options, &h, &cc, &rc);
    EXPECT_EQ(rc, reason);
    name.assign(od.ObjectName, strnlen(od.ObjectName, JX_Q_NAME_LENGTH));
    return h;
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
  // The default descriptor's template.
  JXOD od = JXOD_DEFAULT;
  int32_t h, cc, rc;
  setName(od.ObjectName, "SYSTEM.DEFAULT.MODEL.QUEUE");
  zstJXOPEN(hconn_, &od, JXOO_INPUT_SHARED, &h, &cc, &rc);
  ASSERT_EQ(rc, JXRC_NONE);
  EXPECT_EQ(std::string(od.ObjectName, 4), "AJX.");
  int32_t sel = JXIA_DEFINITION_TYPE, type = 0;
  int32_t inq = openQueue(hconn_, a, JXOO_INQUIRE);
  zstJXINQ(hconn_, inq, 1, &sel, 1, &type, 0, nullptr, &cc, &rc);
  EXPECT_EQ(type, JXQDT_TEMPORARY_DYNAMIC);
}

TEST_F(DynamicQueues, CloseWithPurgeDeletesQueueAndMessages) {
  std::string name;
  int32_t h = openModel(hconn_, "TEMP.*", name, JXOO_INPUT_EXCLUSIVE | JXOO_OUTPUT);
  ASSERT_EQ(put(hconn_, h, "left behind"), JXRC_NONE);
  int32_t cc, rc;
  int32_t copy = h;
  zstJXCLOSE(hconn_, &copy, JXCO_DELETE, &cc, &rc);
  EXPECT_EQ(rc, JXRC_Q_NOT_EMPTY) << "delete without purge keeps a queue with messages";
  zstJXCLOSE(hconn_, &h, JXCO_DELETE_PURGE, &cc, &rc);
  ASSERT_EQ(rc, JXRC_NONE);
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
  int32_t cc, rc;
  zstJXCLOSE(other, &out, JXCO_DELETE_PURGE, &cc, &rc);
  EXPECT_EQ(rc, JXRC_NOT_AUTHORIZED);
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

TEST_F(DynamicQueues, ABlockedGetLearnsThatItsQueueWasDeleted) {
  std::string name;
  int32_t h = openModel(hconn_, "SHARED.*", name, JXOO_INPUT_SHARED);
  int32_t other = connect(qm_->name());
  int32_t in = openQueue(other, name, JXOO_INPUT_SHARED);
  Got g;
  std::thread waiter([&] { g = get(other, in, JXGMO_WAIT, 20000); });
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  int32_t cc, rc;
  zstJXCLOSE(hconn_, &h, JXCO_DELETE_PURGE, &cc, &rc);
  waiter.join();
  EXPECT_EQ(rc, JXRC_NONE);
  EXPECT_EQ(g.rc, JXRC_Q_DELETED);
  disconnect(other);
}

using PermanentDynamicQueues = ServerTest;

TEST_F(PermanentDynamicQueues, OutliveTheirConnectionAndTheQueueManager) {
  QueueManagerProcess qm({"PERM.MODEL --permanent-dynamic --persistent"});
  int32_t h = connect(qm.name());
  JXOD od = JXOD_DEFAULT;
  setName(od.ObjectName, "PERM.MODEL");
  setName(od.DynamicQName, "KEEP.*");
  int32_t q, cc, rc;
  zstJXOPEN(h, &od, JXOO_OUTPUT | JXOO_INQUIRE, &q, &cc, &rc);
  ASSERT_EQ(rc, JXRC_NONE);
  std::string name(od.ObjectName, strnlen(od.ObjectName, JX_Q_NAME_LENGTH));
  ASSERT_EQ(put(h, q, "kept", nullptr, JXPMO_NO_SYNCPOINT, JXPER_AS_Q_DEF), JXRC_NONE);
  int32_t sel = JXIA_DEFINITION_TYPE, type = 0;
  zstJXINQ(h, q, 1, &sel, 1, &type, 0, nullptr, &cc, &rc);
  EXPECT_EQ(type, JXQDT_PERMANENT_DYNAMIC);
  disconnect(h);
  ASSERT_TRUE(qm.stop());
  ASSERT_TRUE(qm.start());
  h = connect(qm.name());
  q = openQueue(h, name, JXOO_INPUT_SHARED);
  EXPECT_EQ(get(h, q).data, "kept");
  zstJXCLOSE(h, &q, JXCO_DELETE, &cc, &rc);
  EXPECT_EQ(rc, JXRC_NONE);
  disconnect(h);
  ASSERT_TRUE(qm.stop());
  ASSERT_TRUE(qm.start());
  h = connect(qm.name());
  EXPECT_EQ(openReason(h, name), JXRC_UNKNOWN_OBJECT_NAME) << "deleted for good";
  disconnect(h);
}

}  // namespace
