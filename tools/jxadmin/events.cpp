#include "events.hpp"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <iostream>
#include <mutex>
#include <sstream>
#include <thread>

#include "attribute_words.hpp"
#include "output.hpp"

namespace jxadmin {
namespace {

// Each event queue with the category its messages carry in their header.
const struct {
  const char *queue;
  int32_t category;
  const char *word;
} kEventQueues[] = {
    {JXQ_QMGR_EVENT, JXCMD_Q_MGR_EVENT, "queue-manager"},
    {JXQ_PERFM_EVENT, JXCMD_PERFM_EVENT, "performance"},
    {JXQ_CONFIG_EVENT, JXCMD_CONFIG_EVENT, "configuration"},
};

// How long one get waits while following: the longest a stop request waits.
constexpr int32_t kFollowPollMs = 500;

std::atomic<bool> stopRequested{false};

extern "C" void requestStop(int) {
  stopRequested = true;
}

struct Event {
  std::string qmgr;
  const char *category = "";
  int32_t reason = 0;
  Record items;
  std::string when() const {
    const Item *d = find(items, JXCA_EVENT_DATE);
    const Item *t = find(items, JXCA_EVENT_TIME);
    return (d ? d->text : std::string()) + ' ' + (t ? t->text : std::string());
  }
};

bool shownApart(int32_t selector) {
  return selector == JXCA_Q_MGR_NAME || selector == JXCA_EVENT_DATE || selector == JXCA_EVENT_TIME;
}

std::string eventLine(const Event &e) {
  std::ostringstream out;
  out << e.when() << "  " << e.qmgr << "  " << e.category << "  " << reasonText(e.reason);
  for (const Item &item : e.items) {
    if (shownApart(item.selector)) continue;
    out << "  " << wordOf(item.selector, "event") << '='
        << (item.isString ? item.text : std::to_string(item.number));
  }
  return out.str();
}

std::string eventJson(const Event &e) {
  std::ostringstream out;
  const char *words = jxReasonWords(e.reason);
  out << "{\"queue-manager\": " << jsonString(e.qmgr)
      << ", \"category\": " << jsonString(e.category) << ", \"reason\": " << e.reason
      << ", \"words\": " << jsonString(words ? words : "") << ", \"items\": ";
  jsonObject(out, e.items, "event");
  out << '}';
  return out.str();
}

// Reads one event queue until it is empty (or, following, until a stop).
// Returns the reason that ended it: 0 for an empty queue or a stop.
int32_t readQueue(Session &session, const std::string &qmgr, size_t which, bool follow,
                  const std::function<void(Event)> &emit) {
  JXOD od = JXOD_DEFAULT;
  std::memcpy(od.ObjectName, kEventQueues[which].queue,
              strnlen(kEventQueues[which].queue, sizeof od.ObjectName));
  JXHOBJ hobj = JXHO_UNUSABLE_HOBJ;
  JXLONG cc = JXCC_OK, rc = JXRC_NONE;
  JXOPEN(session.hconn(), &od, JXOO_INPUT_SHARED | JXOO_FAIL_IF_QUIESCING, &hobj, &cc, &rc);
  if (cc == JXCC_FAILED) return rc;
  JXHBAG bag = JXHB_NONE;
  jxCreateBag(JXBAG_ADMIN, &bag, &cc, &rc);
  int32_t ended = cc == JXCC_OK ? JXRC_NONE : rc;
  while (!ended && !stopRequested) {
    JXMD md = JXMD_DEFAULT;
    JXGMO gmo = JXGMO_DEFAULT;
    gmo.Options = JXGMO_NO_SYNCPOINT | JXGMO_FAIL_IF_QUIESCING | (follow ? JXGMO_WAIT : 0);
    gmo.WaitInterval = follow ? kFollowPollMs : 0;
    jxGetBag(session.hconn(), hobj, &md, &gmo, bag, &cc, &rc);
    if (rc == JXRC_NO_MSG_AVAILABLE) {
      if (!follow) break;
      continue;
    }
    if (cc == JXCC_FAILED) {
      ended = rc;
      break;
    }
    Event e;
    e.qmgr = qmgr;
    e.category = kEventQueues[which].word;
    JXLONG icc, irc;
    jxInquireInteger(bag, JXSYS_REASON, JXIDX_ONLY, &e.reason, &icc, &irc);
    if (icc != JXCC_OK) ended = irc;
    int32_t readReason = JXRC_NONE;
    e.items = readItems(bag, readReason);
    if (readReason) ended = readReason;
    if (!ended) emit(std::move(e));
  }
  JXLONG ccc, crc;
  if (bag != JXHB_NONE) jxDeleteBag(&bag, &ccc, &crc);
  JXCLOSE(session.hconn(), &hobj, JXCO_NONE, &ccc, &crc);
  return ended;
}

}  // namespace

int runEvents(const CommandLine &line) {
  std::mutex lock;
  std::vector<Event> gathered;
  std::vector<Outcome> outcomes;
  auto emit = [&](Event e) {
    std::lock_guard<std::mutex> hold(lock);
    if (!line.follow) {
      gathered.push_back(std::move(e));
      return;
    }
    std::cout << (line.json ? eventJson(e) : eventLine(e)) << std::endl;
  };
  if (line.follow) {
    struct sigaction sa {};
    sa.sa_handler = requestStop;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
  }
  // One connection a queue: a waiting get holds its connection.
  std::vector<std::thread> threads;
  const size_t queues = std::size(kEventQueues);
  outcomes.resize(line.targets.size() * queues);
  for (size_t t = 0; t < line.targets.size(); ++t)
    for (size_t q = 0; q < queues; ++q)
      threads.emplace_back([&, t, q] {
        Outcome &o = outcomes[t * queues + q];
        o.qmgr = line.targets[t].label();
        Session session;
        int32_t reason = session.connect(line.targets[t], line.credentials);
        if (!reason) reason = readQueue(session, o.qmgr, q, line.follow, emit);
        if (reason)
          o.failures.push_back({reason, 0});
        else
          o.records.emplace_back();
      });
  for (auto &th : threads) th.join();
  if (!line.follow) {
    std::stable_sort(gathered.begin(), gathered.end(),
                     [](const Event &a, const Event &b) { return a.when() < b.when(); });
    if (line.json) {
      std::cout << "{\"command\": \"events\", \"events\": [";
      for (size_t i = 0; i < gathered.size(); ++i)
        std::cout << (i ? ",\n  " : "\n  ") << eventJson(gathered[i]);
      std::cout << "\n]}\n";
    } else {
      for (const Event &e : gathered) std::cout << eventLine(e) << '\n';
    }
  }
  std::cout.flush();
  // A queue manager counts once, by the first failure of its queues.
  std::vector<Outcome> perQmgr;
  for (size_t t = 0; t < line.targets.size(); ++t) {
    Outcome merged;
    merged.qmgr = line.targets[t].label();
    for (size_t q = 0; q < queues && merged.failures.empty(); ++q)
      merged.failures = outcomes[t * queues + q].failures;
    if (merged.failures.empty()) merged.records.emplace_back();
    perQmgr.push_back(std::move(merged));
  }
  printFailures(std::cerr, perQmgr, "event");
  return exitStatus(perQmgr);
}

}  // namespace jxadmin
