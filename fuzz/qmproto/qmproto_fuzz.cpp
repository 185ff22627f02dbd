// Feeds arbitrary bytes to a queue manager as one connection's input. The
// queue manager lives for the whole run (in-memory store), so state left by
// one input (queues, messages) shapes the next, as on a real server.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "queue_manager.hpp"
#include "store.hpp"

namespace {

jxqm::QueueManager &queueManager() {
  static jxqm::Store store;
  static jxqm::QueueManager *qm = [] {
    std::string err;
    if (!store.open(":memory:", true, err)) std::abort();
    jxqm::QueueDef local;
    local.name = "Q1";
    local.maxDepth = 1000;
    jxqm::QueueDef persistent = local;
    persistent.name = "PQ";
    persistent.defPersistence = 1;
    jxqm::QueueDef model = local;
    model.name = "SYSTEM.DEFAULT.MODEL.QUEUE";
    model.qtype = JXQT_MODEL;
    model.defType = JXQDT_TEMPORARY_DYNAMIC;
    jxqm::QueueDef perm = model;
    perm.name = "PERM.MODEL";
    perm.defType = JXQDT_PERMANENT_DYNAMIC;
    jxqm::QueueDef command = local;
    command.name = "SYSTEM.ADMIN.COMMAND.QUEUE";
    for (const auto &d : {local, persistent, model, perm, command})
      if (!store.saveQueue(d)) std::abort();
    auto *q = new jxqm::QueueManager("FUZZ", store);
    if (!q->load()) std::abort();
    return q;
  }();
  return *qm;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  jxqm::QueueManager &qm = queueManager();
  jxqm::Conn &c = qm.addConn(-1, false, geteuid(), "fuzz");
  uint32_t id = c.id;
  c.in.assign(data, data + size);
  qm.processInput(c);
  qm.expireWaits(jxqm::QueueManager::nowMs());
  qm.endTurn();
  qm.dropConn(id);
  qm.endTurn();
  return 0;
}
