#include "output.hpp"

#include <jx/jxai.h>

#include <algorithm>
#include <cstdio>
#include <map>

#include "attribute_words.hpp"

namespace jxadmin {
namespace {

constexpr const char *kQmgrColumn = "queue-manager";
constexpr size_t kColumnGap = 2;

// Every value of a selector in a record, joined for a table cell.
std::string cell(const Record &record, int32_t selector) {
  std::string text;
  bool first = true;
  for (const Item &item : record) {
    if (item.selector != selector) continue;
    if (!first) text += ',';
    text += item.isString ? item.text : std::to_string(item.number);
    first = false;
  }
  return text;
}

std::vector<int32_t> columnsOf(const View &view, const std::vector<Outcome> &outcomes) {
  std::vector<int32_t> present;
  for (const Outcome &o : outcomes)
    for (const Record &r : o.records)
      for (const Item &item : r)
        if (std::find(present.begin(), present.end(), item.selector) == present.end())
          present.push_back(item.selector);
  if (view.columns.empty()) return present;
  std::vector<int32_t> shown;
  for (int32_t sel : view.columns)
    if (std::find(present.begin(), present.end(), sel) != present.end()) shown.push_back(sel);
  return shown;
}

}  // namespace

std::string jsonString(std::string_view s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      char esc[8];
      std::snprintf(esc, sizeof esc, "\\u%04x", c);
      out += esc;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + '"';
}

void jsonObject(std::ostream &out, const Record &record, std::string_view object) {
  std::vector<int32_t> order;
  std::map<int32_t, std::vector<const Item *>> values;
  for (const Item &item : record) {
    if (!values.count(item.selector)) order.push_back(item.selector);
    values[item.selector].push_back(&item);
  }
  out << '{';
  for (size_t i = 0; i < order.size(); ++i) {
    const auto &v = values[order[i]];
    out << (i ? ", " : "") << jsonString(wordOf(order[i], object)) << ": ";
    if (v.size() > 1) out << '[';
    for (size_t k = 0; k < v.size(); ++k) {
      if (k) out << ", ";
      if (v[k]->isString)
        out << jsonString(v[k]->text);
      else
        out << v[k]->number;
    }
    if (v.size() > 1) out << ']';
  }
  out << '}';
}

void printTable(std::ostream &out, const View &view, const std::vector<Outcome> &outcomes) {
  const bool several = outcomes.size() > 1;
  std::vector<std::vector<std::string>> rows;
  std::vector<std::string> header;
  if (several) header.push_back(kQmgrColumn);
  const std::vector<int32_t> columns = columnsOf(view, outcomes);
  for (int32_t sel : columns) header.push_back(wordOf(sel, view.object));
  for (const Outcome &o : outcomes)
    for (const Record &r : o.records) {
      std::vector<std::string> row;
      if (several) row.push_back(o.qmgr);
      for (int32_t sel : columns) row.push_back(cell(r, sel));
      rows.push_back(std::move(row));
    }
  if (rows.empty() || header.empty()) return;
  std::vector<size_t> width(header.size());
  for (size_t c = 0; c < header.size(); ++c) {
    width[c] = header[c].size();
    for (const auto &row : rows) width[c] = std::max(width[c], row[c].size());
  }
  auto line = [&](const std::vector<std::string> &cells) {
    std::string text;
    for (size_t c = 0; c < cells.size(); ++c) {
      text += cells[c];
      if (c + 1 < cells.size()) text.append(width[c] - cells[c].size() + kColumnGap, ' ');
    }
    out << text << '\n';
  };
  line(header);
  for (const auto &row : rows) line(row);
}

void printJson(std::ostream &out, const View &view, const std::vector<Outcome> &outcomes) {
  static const char *const kStatus[] = {"ok", "partial", "failed"};
  out << "{\"command\": " << jsonString(view.title)
      << ", \"status\": " << jsonString(kStatus[exitStatus(outcomes)]) << ", \"queue-managers\": [";
  for (size_t q = 0; q < outcomes.size(); ++q) {
    const Outcome &o = outcomes[q];
    out << (q ? ",\n  " : "\n  ") << "{\"" << kQmgrColumn << "\": " << jsonString(o.qmgr)
        << ", \"objects\": [";
    for (size_t i = 0; i < o.records.size(); ++i) {
      out << (i ? ",\n    " : "\n    ");
      jsonObject(out, o.records[i], view.object);
    }
    out << "], \"errors\": [";
    for (size_t i = 0; i < o.failures.size(); ++i) {
      const Failure &f = o.failures[i];
      const char *words = jxReasonWords(f.reason);
      out << (i ? ", " : "") << "{\"reason\": " << f.reason
          << ", \"words\": " << jsonString(words ? words : "");
      if (f.parameter) out << ", \"parameter\": " << jsonString(wordOf(f.parameter, view.object));
      out << '}';
    }
    out << "]}";
  }
  out << "\n]}\n";
}

std::string reasonText(int32_t reason) {
  const char *words = jxReasonWords(reason);
  return std::string(words ? words : "unknown reason") + " (reason " + std::to_string(reason) + ")";
}

void printFailures(std::ostream &err, const std::vector<Outcome> &outcomes,
                   std::string_view object) {
  for (const Outcome &o : outcomes)
    for (const Failure &f : o.failures) {
      err << "jxadmin: " << o.qmgr << ": " << reasonText(f.reason);
      if (f.parameter) err << ", parameter " << wordOf(f.parameter, object);
      err << '\n';
    }
}

int exitStatus(const std::vector<Outcome> &outcomes) {
  bool anyOk = false, anyFailure = false;
  for (const Outcome &o : outcomes) {
    anyOk |= !o.records.empty() || o.failures.empty();
    anyFailure |= !o.failures.empty();
  }
  if (!anyFailure) return 0;
  return anyOk ? 1 : 2;
}

}  // namespace jxadmin
