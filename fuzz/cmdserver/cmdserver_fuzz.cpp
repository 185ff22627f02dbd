// Feeds arbitrary request messages to the command server's request handling
// on a queue manager in this process (in-memory store), with every event
// switch on. The first byte says who put the request and how its
// descriptor reads; the rest is the message. State left by one input
// (queues, messages, events) shapes the next, as on a real server; the
// queue manager starts afresh now and then, so that what the inputs create
// stays bounded.
//
// Every reply must read back as a PCF response to the request's command,
// numbered 1, 2, 3 ... with control 1 on the last one only.
#include <jx/jxai.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "administration.hpp"
#include "command_server.hpp"
#include "queue_manager.hpp"
#include "session.hpp"
#include "store.hpp"

namespace {

constexpr uint8_t kAdministrator = 1;  // flags: put by an administrator
constexpr uint8_t kOtherFormat = 2;    // flags: a format other than JXFMT_ADMIN
constexpr uint8_t kOtherEncoding = 4;  // flags: an encoding other than JXENC_NATIVE
constexpr int kInputsPerLife = 5000;
constexpr size_t kMostQueues = 300;

struct QuietPeer final : jxqm::Peer {
  void getAnswered(jxqm::GetResult &&) override {}
  void ended() override {}
};

struct Core {
  jxqm::Store store;
  std::unique_ptr<jxqm::QueueManager> qm;
  jxqm::PcfCodec codec;
  QuietPeer peers[2];
  int inputs = 0;

  Core() {
    std::string err;
    if (!store.open(":memory:", true, err)) std::abort();
    qm = std::make_unique<jxqm::QueueManager>("FUZZ", store);
    if (!qm->load()) std::abort();
    jxqm::Administration admin(*qm);
    const jxqm::AttrList small = {{JXIA_MAX_Q_DEPTH, 50, {}}};
    const jxqm::AttrList events = {{JXIA_MAX_Q_DEPTH, 50, {}},
                                   {JXIA_Q_DEPTH_HIGH_EVENT, 1, {}},
                                   {JXIA_Q_DEPTH_LOW_EVENT, 1, {}},
                                   {JXIA_Q_FULL_EVENT, 1, {}}};
    bool ok = admin.createQueue("Q1", JXQT_LOCAL, events, false).ok() &&
              admin.createQueue("Q2", JXQT_LOCAL, small, false).ok() &&
              admin.createQueue("M1", JXQT_MODEL, small, false).ok() &&
              admin.createQueue(JXQ_DEFAULT_MODEL, JXQT_MODEL, small, false).ok() &&
              admin.createQueue(JXQ_ADMIN_COMMAND, JXQT_LOCAL, small, false).ok();
    for (const char *q : {JXQ_QMGR_EVENT, JXQ_PERFM_EVENT, JXQ_CONFIG_EVENT})
      ok = ok && admin.createQueue(q, JXQT_LOCAL, small, false).ok();
    ok = ok && admin.changeQueueManager({{JXIA_CONFIGURATION_EVENT, 1, {}}}).ok();
    if (!ok) std::abort();
    // Connections for the inquiries and for a stop to find.
    for (QuietPeer &p : peers)
      qm->startSession({{"fuzzuser", jxqm::kAuthConnect}, JXTRANSPORT_TCP, 1, "peer"}, &p);
    qm->endTurn();
  }
};

std::unique_ptr<Core> g_core;

Core &core() {
  if (!g_core || g_core->inputs >= kInputsPerLife || g_core->qm->queues().size() > kMostQueues) {
    g_core.reset();
    g_core = std::make_unique<Core>();
  }
  ++g_core->inputs;
  return *g_core;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  Core &c = core();
  const uint8_t flags = data[0];
  JXMD md = JXMD_DEFAULT;
  md.MsgType = JXMT_REQUEST;
  std::memcpy(md.Format, flags & kOtherFormat ? JXFMT_PCF : JXFMT_ADMIN, JX_FORMAT_LENGTH);
  if (flags & kOtherEncoding) md.Encoding = JXENC_NATIVE + 1;
  const jxqm::Identity who{"fuzzuser",
                           flags & kAdministrator ? jxqm::kAuthAdmin : jxqm::kAuthConnect};
  const std::string_view request(reinterpret_cast<const char *>(data + 1), size - 1);

  jxqm::CommandRun run(*c.qm, c.codec, who, md, request);
  int32_t expected = 1;
  bool last = false;
  auto check = [&](std::string &&reply) {
    jxqm::PcfHeader header;
    std::vector<jxqm::PcfParameter> parameters;
    if (last || !c.codec.decode(reply, header, parameters) || header.type != JXPCF_TYPE_RESPONSE ||
        header.command != run.command() || header.sequence != expected++)
      std::abort();
    last = header.control == JXPCF_CONTROL_LAST;
  };
  while (run.step(check)) c.qm->endTurn();
  if (!last) std::abort();
  c.qm->endTurn();
  return 0;
}
