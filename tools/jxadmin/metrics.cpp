#include "metrics.hpp"

#include <iostream>
#include <map>
#include <sstream>

#include "fan_out.hpp"
#include "http_server.hpp"
#include "output.hpp"

namespace jxadmin {
namespace {

enum class Kind { Gauge, Counter };

// Every figure exported: the attribute it comes from and its metric.
struct Metric {
  int32_t selector;
  const char *name;
  Kind kind;
  const char *help;
};

const Metric kQueueMetrics[] = {
    {JXIA_CURRENT_Q_DEPTH, "jx_queue_depth", Kind::Gauge, "Messages on the queue."},
    {JXIA_MSG_ENQ_COUNT, "jx_queue_messages_put_total", Kind::Counter,
     "Messages put on the queue since the queue manager started or its statistics were reset."},
    {JXIA_MSG_DEQ_COUNT, "jx_queue_messages_got_total", Kind::Counter,
     "Messages got from the queue since the queue manager started or its statistics were reset."},
    {JXIA_OPEN_INPUT_COUNT, "jx_queue_open_input_handles", Kind::Gauge,
     "Handles that have the queue open for input."},
    {JXIA_OPEN_OUTPUT_COUNT, "jx_queue_open_output_handles", Kind::Gauge,
     "Handles that have the queue open for output."},
    {JXIA_OLDEST_MSG_AGE, "jx_queue_oldest_message_age_seconds", Kind::Gauge,
     "Age of the oldest message on the queue, -1 when it is empty."},
};
const Metric kQmgrMetrics[] = {
    {JXIA_CONNECTION_COUNT, "jx_qmgr_connections", Kind::Gauge,
     "Connections to the queue manager."},
};
constexpr const char *kUpName = "jx_qmgr_up";
constexpr const char *kUpHelp = "1 when every command of this scrape was answered, else 0.";

// A label value with backslash, quote and newline escaped.
std::string labelValue(const std::string &v) {
  std::string out;
  for (char c : v) {
    if (c == '\\' || c == '"') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  return out;
}

void header(std::ostream &out, const char *name, Kind kind, const char *help) {
  out << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' '
      << (kind == Kind::Counter ? "counter" : "gauge") << '\n';
}

// What one queue manager answered: its own attributes, and each queue's
// attributes and status merged by name.
struct Sample {
  Outcome outcome;
  Record qmgr;
  std::map<std::string, Record> queues;
};

Sample sampleOf(Session &s, int32_t waitMs) {
  Sample sample;
  auto take = [&](const Request &r) {
    Outcome o = s.execute(r, waitMs);
    for (const Failure &f : o.failures) sample.outcome.failures.push_back(f);
    sample.outcome.records.insert(sample.outcome.records.end(), o.records.begin(), o.records.end());
    return o.records;
  };
  const Item all{JXCA_Q_NAME, true, 0, "*"};
  const std::vector<Record> qmgr = take({JXCMD_INQUIRE_QMGR, {}});
  // A queue manager that does not answer the first command is not asked again.
  if (qmgr.empty()) return sample;
  sample.qmgr = qmgr[0];
  for (int32_t command : {JXCMD_INQUIRE_QUEUE, JXCMD_INQUIRE_QUEUE_STATUS})
    for (const Record &rec : take({command, {all}})) {
      const Item *name = find(rec, JXCA_Q_NAME);
      if (!name) continue;
      Record &merged = sample.queues[name->text];
      for (const Item &item : rec)
        if (!find(merged, item.selector)) merged.push_back(item);
    }
  return sample;
}

}  // namespace

std::string collectMetrics(const CommandLine &line, std::vector<Outcome> &outcomes) {
  std::vector<Sample> samples = forEach<Sample>(line.targets.size(), [&](size_t k) {
    Session session;
    if (int32_t reason = session.connect(line.targets[k], line.credentials)) {
      Sample failed;
      failed.outcome.qmgr = line.targets[k].label();
      failed.outcome.failures.push_back({reason, 0});
      return failed;
    }
    Sample s = sampleOf(session, line.waitMs);
    s.outcome.qmgr = line.targets[k].label();
    return s;
  });
  std::ostringstream out;
  header(out, kUpName, Kind::Gauge, kUpHelp);
  for (const Sample &s : samples)
    out << kUpName << "{qmgr=\"" << labelValue(s.outcome.qmgr) << "\"} "
        << (s.outcome.failures.empty() ? 1 : 0) << '\n';
  for (const Metric &m : kQmgrMetrics) {
    header(out, m.name, m.kind, m.help);
    for (const Sample &s : samples)
      if (const Item *v = find(s.qmgr, m.selector))
        out << m.name << "{qmgr=\"" << labelValue(s.outcome.qmgr) << "\"} " << v->number << '\n';
  }
  for (const Metric &m : kQueueMetrics) {
    header(out, m.name, m.kind, m.help);
    for (const Sample &s : samples)
      for (const auto &[queue, rec] : s.queues)
        if (const Item *v = find(rec, m.selector))
          out << m.name << "{qmgr=\"" << labelValue(s.outcome.qmgr) << "\",queue=\""
              << labelValue(queue) << "\"} " << v->number << '\n';
  }
  outcomes.clear();
  for (Sample &s : samples) outcomes.push_back(std::move(s.outcome));
  return out.str();
}

int runMetrics(const CommandLine &line) {
  if (line.listen.empty()) {
    std::vector<Outcome> outcomes;
    std::cout << collectMetrics(line, outcomes) << std::flush;
    printFailures(std::cerr, outcomes, "queue");
    return exitStatus(outcomes);
  }
  return serveMetrics(line.listen, [&] {
    std::vector<Outcome> outcomes;
    std::string text = collectMetrics(line, outcomes);
    printFailures(std::cerr, outcomes, "queue");
    return text;
  });
}

}  // namespace jxadmin
