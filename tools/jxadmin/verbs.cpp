#include "verbs.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "attribute_words.hpp"
#include "events.hpp"
#include "fan_out.hpp"
#include "metrics.hpp"
#include "output.hpp"

namespace jxadmin {
namespace {

// What a command verb sends and how its result is shown.
struct Plan {
  Request request;
  View view;
  const char *done = nullptr;  // words printed per queue manager when it shows no table
};

using Names = std::vector<std::string>;
using Builder = bool (*)(const CommandLine &, const Names &, Plan &, std::string &);

const struct {
  const char *word;
  int32_t value;
} kQueueTypes[] = {{"local", JXQT_LOCAL}, {"model", JXQT_MODEL}};

Item text(int32_t selector, const std::string &value) {
  return {selector, true, 0, value};
}
Item number(int32_t selector, int32_t value) {
  return {selector, false, value, {}};
}

bool queueType(const CommandLine &line, std::vector<Item> &params, std::string &error) {
  if (line.type.empty()) {
    params.push_back(number(JXIA_Q_TYPE, JXQT_LOCAL));
    return true;
  }
  for (const auto &t : kQueueTypes)
    if (line.type == t.word) {
      params.push_back(number(JXIA_Q_TYPE, t.value));
      return true;
    }
  error = "--type is local or model, not " + line.type;
  return false;
}

bool columns(const CommandLine &line, View &view, std::string &error) {
  if (line.columns.size() == 1 && line.columns[0] == "all") {
    view.columns.clear();
    return true;
  }
  if (line.columns.empty()) return true;
  view.columns.clear();
  for (const std::string &word : line.columns) {
    const AttributeWord *w = byWord(word, view.object);
    if (!w) {
      error = "no " + view.object + " attribute is called " + word;
      return false;
    }
    view.columns.push_back(w->selector);
  }
  return true;
}

bool noAttributes(const CommandLine &line, std::string &error) {
  if (line.attributes.empty()) return true;
  error = "this verb takes no --" + line.attributes[0].first;
  return false;
}

// A table shows its columns (--attrs chooses them), and the queue managers
// are asked for those alone, which spares them and jxadmin the rest of every
// reply; JSON shows every attribute, so it asks for them all.
bool showing(const CommandLine &line, Plan &p, std::string &error) {
  if (!noAttributes(line, error) || !columns(line, p.view, error)) return false;
  if (!line.json) p.request.inquire = p.view.columns;
  return true;
}

bool showQmgr(const CommandLine &line, const Names &, Plan &p, std::string &error) {
  p.request = {JXCMD_INQUIRE_QMGR, {}};
  p.view = {"show qmgr",
            "qmgr",
            {JXCA_Q_MGR_NAME, JXIA_CONNECTION_COUNT, JXIA_Q_COUNT, JXCA_START_DATE, JXCA_START_TIME,
             JXCA_Q_MGR_DESC}};
  return showing(line, p, error);
}

bool showQueues(const CommandLine &line, const Names &n, Plan &p, std::string &error) {
  p.request = {JXCMD_INQUIRE_QUEUE, {text(JXCA_Q_NAME, n.empty() ? "*" : n[0])}};
  p.view = {"show queues",
            "queue",
            {JXCA_Q_NAME, JXIA_Q_TYPE, JXIA_CURRENT_Q_DEPTH, JXIA_MAX_Q_DEPTH,
             JXIA_OPEN_INPUT_COUNT, JXIA_OPEN_OUTPUT_COUNT, JXCA_Q_DESC}};
  return showing(line, p, error);
}

bool showStatus(const CommandLine &line, const Names &n, Plan &p, std::string &error) {
  p.request = {JXCMD_INQUIRE_QUEUE_STATUS, {text(JXCA_Q_NAME, n.empty() ? "*" : n[0])}};
  p.view = {"show status",
            "queue",
            {JXCA_Q_NAME, JXIA_CURRENT_Q_DEPTH, JXIA_OPEN_INPUT_COUNT, JXIA_OPEN_OUTPUT_COUNT,
             JXIA_UNCOMMITTED_MSGS, JXIA_OLDEST_MSG_AGE, JXCA_LAST_PUT_DATE, JXCA_LAST_PUT_TIME,
             JXCA_LAST_GET_DATE, JXCA_LAST_GET_TIME}};
  // A status reply has few attributes, and an attribute list would refuse
  // the queue words a status has not (max-depth): the table just leaves them out.
  return noAttributes(line, error) && columns(line, p.view, error);
}

bool showConnections(const CommandLine &line, const Names &, Plan &p, std::string &error) {
  p.request = {JXCMD_INQUIRE_CONNECTIONS, {}};
  p.view = {"show connections",
            "connection",
            {JXCA_CONNECTION_ID, JXCA_USER_ID, JXIA_PROCESS_ID, JXCA_APPL_NAME, JXIA_TRANSPORT,
             JXIA_HANDLE_COUNT, JXCA_CONNECT_DATE, JXCA_CONNECT_TIME}};
  return noAttributes(line, error) && columns(line, p.view, error);
}

bool createQueue(const CommandLine &line, const Names &n, Plan &p, std::string &error) {
  p.request = {JXCMD_CREATE_QUEUE, {text(JXCA_Q_NAME, n[0])}};
  p.view = {"create queue", "queue", {}};
  p.done = "queue created";
  if (line.replace) p.request.params.push_back(number(JXSEL_REPLACE, 1));
  return queueType(line, p.request.params, error) &&
         attributeParams(line, "queue", p.request.params, error);
}

bool changeQueue(const CommandLine &line, const Names &n, Plan &p, std::string &error) {
  p.request = {JXCMD_CHANGE_QUEUE, {text(JXCA_Q_NAME, n[0])}};
  p.view = {"change queue", "queue", {}};
  p.done = "queue changed";
  return queueType(line, p.request.params, error) &&
         attributeParams(line, "queue", p.request.params, error);
}

bool changeQmgr(const CommandLine &line, const Names &, Plan &p, std::string &error) {
  p.request = {JXCMD_CHANGE_QMGR, {}};
  p.view = {"change qmgr", "qmgr", {}};
  p.done = "queue manager changed";
  return attributeParams(line, "qmgr", p.request.params, error);
}

bool copyQueue(const CommandLine &line, const Names &n, Plan &p, std::string &error) {
  p.request = {JXCMD_COPY_QUEUE,
               {text(JXSEL_FROM_QUEUE_NAME, n[0]), text(JXSEL_TO_QUEUE_NAME, n[1])}};
  p.view = {"copy queue", "queue", {}};
  p.done = "queue copied";
  return queueType(line, p.request.params, error) &&
         attributeParams(line, "queue", p.request.params, error);
}

bool deleteQueue(const CommandLine &line, const Names &n, Plan &p, std::string &error) {
  p.request = {JXCMD_DELETE_QUEUE, {text(JXCA_Q_NAME, n[0])}};
  if (line.purge) p.request.params.push_back(number(JXSEL_PURGE, 1));
  p.view = {"delete queue", "queue", {}};
  p.done = "queue deleted";
  return noAttributes(line, error);
}

bool clearQueue(const CommandLine &line, const Names &n, Plan &p, std::string &error) {
  p.request = {JXCMD_CLEAR_QUEUE, {text(JXCA_Q_NAME, n[0])}};
  p.view = {"clear queue", "queue", {}};
  p.done = "queue cleared";
  return noAttributes(line, error);
}

bool resetStats(const CommandLine &line, const Names &n, Plan &p, std::string &error) {
  p.request = {JXCMD_RESET_QUEUE_STATS, {text(JXCA_Q_NAME, n[0])}};
  p.view = {"reset stats",
            "queue",
            {JXCA_Q_NAME, JXIA_MSG_ENQ_COUNT, JXIA_MSG_DEQ_COUNT, JXIA_HIGH_Q_DEPTH,
             JXIA_TIME_SINCE_RESET}};
  return noAttributes(line, error) && columns(line, p.view, error);
}

bool stopConnection(const CommandLine &line, const Names &n, Plan &p, std::string &error) {
  p.request = {JXCMD_STOP_CONNECTION, {text(JXCA_CONNECTION_ID, n[0])}};
  p.view = {"stop connection", "connection", {}};
  p.done = "connection stopped";
  return noAttributes(line, error);
}

bool ping(const CommandLine &line, const Names &, Plan &p, std::string &error) {
  p.request = {JXCMD_PING_QMGR, {}};
  p.view = {"ping", "qmgr", {}};
  p.done = "queue manager answers";
  return noAttributes(line, error);
}

// Verbs that are one command; events and metrics run their own way.
const struct {
  const char *verb;
  const char *object;  // null: the verb stands alone
  size_t minNames, maxNames;
  Builder build;
} kVerbs[] = {
    {"show", "qmgr", 0, 0, showQmgr},       {"show", "queues", 0, 1, showQueues},
    {"show", "status", 0, 1, showStatus},   {"show", "connections", 0, 0, showConnections},
    {"create", "queue", 1, 1, createQueue}, {"change", "queue", 1, 1, changeQueue},
    {"change", "qmgr", 0, 0, changeQmgr},   {"copy", "queue", 2, 2, copyQueue},
    {"delete", "queue", 1, 1, deleteQueue}, {"clear", "queue", 1, 1, clearQueue},
    {"reset", "stats", 1, 1, resetStats},   {"stop", "connection", 1, 1, stopConnection},
    {"ping", nullptr, 0, 0, ping},
};

int usageError(const std::string &message) {
  std::cerr << "jxadmin: " << message << '\n' << kUsage;
  return kExitFailed;
}

int runPlan(const CommandLine &line, const Plan &plan) {
  const std::vector<Outcome> outcomes =
      runEverywhere(line.targets, line.credentials,
                    [&](Session &s) { return s.execute(plan.request, line.waitMs); });
  if (line.json) {
    printJson(std::cout, plan.view, outcomes);
  } else if (plan.done) {
    for (const Outcome &o : outcomes)
      if (o.failures.empty()) std::cout << o.qmgr << ": " << plan.done << '\n';
  } else {
    printTable(std::cout, plan.view, outcomes);
  }
  std::cout.flush();
  printFailures(std::cerr, outcomes, plan.view.object);
  return exitStatus(outcomes);
}

}  // namespace

bool attributeParams(const CommandLine &line, const char *object, std::vector<Item> &params,
                     std::string &error) {
  for (const auto &[word, value] : line.attributes) {
    const AttributeWord *w = byWord(word, object);
    if (!w || !w->settable) {
      error = std::string("no settable ") + object + " attribute is called " + word;
      return false;
    }
    if (w->length > 0) {
      if (value.size() > static_cast<size_t>(w->length)) {
        error = "--" + word + " takes at most " + std::to_string(w->length) + " characters";
        return false;
      }
      params.push_back(text(w->selector, value));
      continue;
    }
    char *end = nullptr;
    errno = 0;
    const long v = std::strtol(value.c_str(), &end, 10);
    if (errno || end == value.c_str() || *end || v < w->min || v > w->max) {
      error = "--" + word + " takes a number from " + std::to_string(w->min) + " to " +
              std::to_string(w->max);
      return false;
    }
    params.push_back(number(w->selector, static_cast<int32_t>(v)));
  }
  return true;
}

int runVerb(const CommandLine &line) {
  const std::string &verb = line.words[0];
  const Names rest(line.words.begin() + 1, line.words.end());
  if (verb == "events") {
    if (!rest.empty()) return usageError("events takes no names");
    return runEvents(line);
  }
  if (verb == "metrics") {
    if (!rest.empty()) return usageError("metrics takes no names");
    return runMetrics(line);
  }
  for (const auto &row : kVerbs) {
    if (verb != row.verb) continue;
    const bool alone = row.object == nullptr;
    if (!alone && (rest.empty() || rest[0] != row.object)) continue;
    const Names names(rest.begin() + (alone ? 0 : 1), rest.end());
    if (names.size() < row.minNames || names.size() > row.maxNames)
      return usageError(verb + (alone ? "" : std::string(" ") + row.object) +
                        ": wrong number of names");
    Plan plan;
    std::string error;
    if (!row.build(line, names, plan, error)) return usageError(error);
    return runPlan(line, plan);
  }
  return usageError("unknown verb: " + verb + (rest.empty() ? "" : " " + rest[0]));
}

}  // namespace jxadmin
