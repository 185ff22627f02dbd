// Feeds arbitrary bytes to a queue manager as one connection's input. The
// queue manager lives for the whole run (in-memory store), so state left by
// one input (queues, messages) shapes the next, as on a real server.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "administration.hpp"
#include "client_link.hpp"
#include "queue_manager.hpp"
#include "store.hpp"

namespace {

jxqm::QueueManager &queueManager() {
  static jxqm::Store store;
  static jxqm::QueueManager *qm = [] {
    std::string err;
    if (!store.open(":memory:", true, err)) std::abort();
    auto *q = new jxqm::QueueManager("FUZZ", store);
    if (!q->load()) std::abort();
    jxqm::Administration admin(*q);
    const jxqm::AttrList depth = {{JXIA_MAX_Q_DEPTH, 1000, {}}};
    const jxqm::AttrList persistent = {{JXIA_MAX_Q_DEPTH, 1000, {}}, {JXIA_DEF_PERSISTENCE, 1, {}}};
    const jxqm::AttrList permanent = {{JXIA_DEFINITION_TYPE, JXQDT_PERMANENT_DYNAMIC, {}}};
    bool ok = admin.createQueue("Q1", JXQT_LOCAL, depth, false).ok() &&
              admin.createQueue("PQ", JXQT_LOCAL, persistent, false).ok() &&
              admin.createQueue("SYSTEM.DEFAULT.MODEL.QUEUE", JXQT_MODEL, depth, false).ok() &&
              admin.createQueue("PERM.MODEL", JXQT_MODEL, permanent, false).ok() &&
              admin.createQueue("SYSTEM.ADMIN.COMMAND.QUEUE", JXQT_LOCAL, depth, false).ok();
    if (!ok || !q->endTurn()) std::abort();
    return q;
  }();
  return *qm;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  jxqm::QueueManager &qm = queueManager();
  static uint32_t nextLink = 1;
  {
    jxqm::ClientLink link(qm, nullptr, nextLink++, {false, geteuid(), "fuzz", "fuzz"}, nullptr);
    link.in.assign(data, data + size);
    link.processInput();
    qm.expireWaits(jxqm::QueueManager::nowMs());
    // The store is in memory: a commit that fails is a fault of the core.
    if (!qm.endTurn()) std::abort();
  }
  if (!qm.endTurn()) std::abort();
  return 0;
}
